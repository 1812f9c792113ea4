#include <orvanta.hpp>

int main(int argc, char** argv) {
  if (argc < 2)
    return 2;
  orvanta::LinuxPlatformOptions options;
  options.dataDirectory = argv[1];
  options.preferencesFile = std::string(argv[1]) + "/preferences.json";
  options.bundleDirectory = argv[1];
  orvanta::installPlatform(orvanta::makeLinuxPlatform(options));
  auto configuration = orvanta::OrvantaConfiguration::defaultConfiguration();
  configuration->setIsLoggingEnabled(true);
  orvanta::Orvanta::configure(configuration);
  return configuration->isLoggingEnabled() ? 0 : 1;
}
