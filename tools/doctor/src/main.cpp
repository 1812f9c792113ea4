// orvanta-doctor: why did my push not arrive, why do my events not show up? Checks each link
// between an application that embeds the kit and the services, from its files to the desktop's
// bus to the network, and prints one line per check with the reason and one fix.
//
//   orvanta-doctor --bundle /opt/shop/resources --name shop --app-id com.example.Shop
//
// It never writes to the application's files and never sends a push, an event or a registration.
// Exit status: 0 when every check passed, 1 when one failed, 2 for bad arguments.

#include <pwd.h>
#include <unistd.h>

#include <orvanta/linux_platform.hpp>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "checks.hpp"

namespace {

using orvanta::doctor::Settings;

constexpr const char* kUsage =
    "usage: orvanta-doctor --bundle DIR (--name NAME | --data DIR --preferences FILE) [options]\n"
    "\n"
    "Checks an application that embeds the Orvanta kit: give it what the application gives the\n"
    "Linux platform (LinuxPlatformOptions) and its service URLs.\n"
    "\n"
    "  --bundle DIR           folder holding OrvantaConfig.plist (bundleDirectory)\n"
    "  --name NAME            folder name under the XDG directories (applicationName)\n"
    "  --data DIR             data folder (dataDirectory; default $XDG_DATA_HOME/NAME)\n"
    "  --keystore DIR         key store (secureStoreDirectory; default DATA/keystore)\n"
    "  --preferences FILE     preferences (preferencesFile;\n"
    "                         default $XDG_CONFIG_HOME/NAME/preferences.json)\n"
    "  --app-id ID            reverse-DNS application id (applicationId)\n"
    "  --distributor NAME     the push distributor the application names (pushDistributor)\n"
    "  --service URL          both service base URLs (as given to setServiceBaseURLs), or\n"
    "  --push-url URL         the push service's and\n"
    "  --api-url URL          the API service's (default: the production services)\n"
    "  --timeout SECONDS      for each bus call and request (default 10)\n"
    "  --max-backlog-age S    age of the oldest waiting event that counts as stuck (default "
    "86400)\n"
    "  --skip ID[,ID...]      checks to leave out (ids below)\n"
    "  --json                 one JSON document instead of lines\n"
    "\n"
    "The session D-Bus is the one the application would use (DBUS_SESSION_BUS_ADDRESS), and so is\n"
    "the distributor named in ORVANTA_PUSH_DISTRIBUTOR.\n"
    "Exit status: 0 when every check passed, 1 when one failed, 2 for bad arguments.\n";

struct Arguments {
  orvanta::LinuxPlatformOptions platform;
  Settings settings;
  bool json = false;
  bool help = false;
};

std::optional<double> positiveNumber(const std::string& text) {
  char* end = nullptr;
  const double value = std::strtod(text.c_str(), &end);
  if (text.empty() || *end != '\0' || !(value > 0) || value > 1e9) {
    return std::nullopt;
  }
  return value;
}

std::string environmentPath(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr && value[0] == '/' ? value : "";
}

std::string homeDirectory() {
  if (std::string home = environmentPath("HOME"); !home.empty()) {
    return home;
  }
  struct passwd entry {};
  struct passwd* found = nullptr;
  std::vector<char> buffer(16384);
  if (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 &&
      found != nullptr && found->pw_dir != nullptr && found->pw_dir[0] == '/') {
    return found->pw_dir;
  }
  return {};
}

/// The preferences file the platform picks when none is given.
std::string defaultPreferencesFile(const std::string& name) {
  if (std::string config = environmentPath("XDG_CONFIG_HOME"); !config.empty()) {
    return config + "/" + name + "/preferences.json";
  }
  if (std::string home = homeDirectory(); !home.empty()) {
    return home + "/.config/" + name + "/preferences.json";
  }
  return {};
}

/// The arguments, or none with the reason in `why`.
std::optional<Arguments> parse(int argc, char** argv, std::string& why) {
  Arguments arguments;
  Settings& settings = arguments.settings;
  settings.pushServiceURL = "https://push.orvanta.io/v1/";
  settings.apiServiceURL = "https://api.orvanta.io/v1/";
  std::optional<std::string> preferences;
  for (int i = 1; i < argc; ++i) {
    const std::string_view name = argv[i];
    if (name == "--json" || name == "--help" || name == "-h") {
      (name == "--json" ? arguments.json : arguments.help) = true;
      continue;
    }
    if (i + 1 >= argc) {
      why = std::string(name) + " needs a value";
      return std::nullopt;
    }
    const std::string value = argv[++i];
    auto& platform = arguments.platform;
    if (name == "--bundle") {
      platform.bundleDirectory = value;
    } else if (name == "--name") {
      platform.applicationName = value;
    } else if (name == "--data") {
      platform.dataDirectory = value;
    } else if (name == "--keystore") {
      platform.secureStoreDirectory = value;
    } else if (name == "--preferences") {
      preferences = value;
    } else if (name == "--app-id") {
      platform.applicationId = value;
    } else if (name == "--distributor") {
      platform.pushDistributor = value;
    } else if (name == "--service") {
      settings.pushServiceURL = settings.apiServiceURL = value;
    } else if (name == "--push-url") {
      settings.pushServiceURL = value;
    } else if (name == "--api-url") {
      settings.apiServiceURL = value;
    } else if (name == "--timeout" || name == "--max-backlog-age") {
      const auto seconds = positiveNumber(value);
      if (!seconds) {
        why = std::string(name) + " takes a positive number of seconds";
        return std::nullopt;
      }
      if (name == "--timeout") {
        settings.timeout = std::chrono::milliseconds(static_cast<long long>(*seconds * 1000));
      } else {
        settings.maxBacklogAge = std::chrono::seconds(static_cast<long long>(*seconds));
      }
    } else if (name == "--skip") {
      for (std::size_t start = 0; start <= value.size();) {
        const std::size_t comma = std::min(value.find(',', start), value.size());
        const std::string id = value.substr(start, comma - start);
        bool known = false;
        for (const auto& check : orvanta::doctor::allChecks()) {
          known = known || id == check.id;
        }
        if (!known) {
          why = "--skip: no check is called \"" + id + "\"";
          return std::nullopt;
        }
        settings.skipped.insert(id);
        start = comma + 1;
      }
    } else {
      why = "unknown option " + std::string(name);
      return std::nullopt;
    }
  }
  if (arguments.help) {
    return arguments;
  }
  auto& platform = arguments.platform;
  if (!platform.bundleDirectory) {
    why = "give the folder of the application's OrvantaConfig.plist (--bundle)";
    return std::nullopt;
  }
  if (platform.applicationName.empty() && (!platform.dataDirectory || !preferences)) {
    why = "give the application's name (--name), or its --data folder and --preferences file";
    return std::nullopt;
  }
  platform.preferencesFile =
      preferences ? *preferences : defaultPreferencesFile(platform.applicationName);
  settings.bundleDirectory = *platform.bundleDirectory;
  settings.preferencesFile = *platform.preferencesFile;
  settings.applicationId = platform.applicationId;
  settings.distributor = platform.pushDistributor;
  return arguments;
}

}  // namespace

int main(int argc, char** argv) {
  std::string why;
  auto arguments = parse(argc, argv, why);
  if (!arguments || arguments->help) {
    std::fputs(kUsage, arguments ? stdout : stderr);
    std::fputs("\nChecks:", arguments ? stdout : stderr);
    for (const auto& check : orvanta::doctor::allChecks()) {
      std::fprintf(arguments ? stdout : stderr, " %s", check.id);
    }
    std::fputs("\n", arguments ? stdout : stderr);
    if (!arguments) {
      std::fprintf(stderr, "\norvanta-doctor: %s\n", why.c_str());
      return 2;
    }
    return 0;
  }

  orvanta::doctor::Context context;
  context.settings = arguments->settings;
  // The ports the kit would use: the same options give the same folders and files.
  context.platform = orvanta::makeLinuxPlatform(arguments->platform);
  Settings& settings = context.settings;
  settings.dataDirectory = context.platform->fileLocations->documentsDirectory().path.value_or("");
  settings.keystoreDirectory = arguments->platform.secureStoreDirectory.value_or(
      settings.dataDirectory.empty() ? "" : settings.dataDirectory + "/keystore");

  orvanta::doctor::Report report = orvanta::doctor::runChecks(context);
  report.application = {
      {"bundle", settings.bundleDirectory},        {"data", settings.dataDirectory},
      {"keystore", settings.keystoreDirectory},    {"preferences", settings.preferencesFile},
      {"applicationId", settings.applicationId},   {"distributor", settings.distributor},
      {"pushServiceURL", settings.pushServiceURL}, {"apiServiceURL", settings.apiServiceURL}};
  if (arguments->json) {
    const std::string text = orvanta::doctor::renderJson(report).dump(
        2, ' ', false, nlohmann::json::error_handler_t::replace);
    std::printf("%s\n", text.c_str());
  } else {
    std::fputs(orvanta::doctor::renderText(report).c_str(), stdout);
  }
  return report.passed() ? 0 : 1;
}
