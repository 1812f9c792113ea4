// orvanta-demo: a host application in miniature. It embeds the kit exactly as an application
// would: it installs the platform, configures the kit from its bundle's OrvantaConfig.plist with
// logging on, and then runs the verbs given on the command line.
//
//   orvanta-demo [--bundle DIR] [--data-dir DIR] [verb...]
//
// Verbs:
//   configure   configure the kit from the bundle (always done first)
#include <orvanta.hpp>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace {

struct Options {
  std::string bundle = ORVANTA_DEMO_SAMPLE_BUNDLE;
  std::string dataDirectory;
  std::vector<std::string> verbs;
};

void usage() {
  std::fprintf(stderr, "usage: orvanta-demo [--bundle DIR] [--data-dir DIR] [configure]\n");
}

bool parse(int argc, char** argv, Options& options) {
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    if ((arg == "--bundle" || arg == "--data-dir") && i + 1 < argc) {
      (arg == "--bundle" ? options.bundle : options.dataDirectory) = argv[++i];
    } else if (arg == "-h" || arg == "--help") {
      return false;
    } else if (!arg.empty() && arg[0] == '-') {
      std::fprintf(stderr, "orvanta-demo: unknown option %s\n", arg.c_str());
      return false;
    } else {
      options.verbs.push_back(arg);
    }
  }
  if (options.dataDirectory.empty()) {
    options.dataDirectory = (std::filesystem::temp_directory_path() / "orvanta-demo").string();
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  if (!parse(argc, argv, options)) {
    usage();
    return 2;
  }

  orvanta::LinuxPlatformOptions platformOptions;
  platformOptions.applicationName = "orvanta-demo";
  platformOptions.bundleDirectory = options.bundle;
  platformOptions.dataDirectory = options.dataDirectory;
  platformOptions.preferencesFile = options.dataDirectory + "/preferences.json";
  orvanta::installPlatform(orvanta::makeLinuxPlatform(platformOptions));

  std::printf("orvanta-demo: bundle %s, data in %s\n", options.bundle.c_str(),
              options.dataDirectory.c_str());

  auto configuration = orvanta::OrvantaConfiguration::defaultConfiguration();
  configuration->setIsLoggingEnabled(true);
  orvanta::Orvanta::configure(configuration);

  for (const auto& verb : options.verbs) {
    if (verb == "configure") {
      continue;
    }
    std::fprintf(stderr, "orvanta-demo: unknown verb %s\n", verb.c_str());
    usage();
    return 2;
  }
  return 0;
}
