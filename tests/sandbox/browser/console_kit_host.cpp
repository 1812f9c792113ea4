// A host application for the console's browser test: it embeds the kit through its public
// interface only, points it at a running sandbox, and does what the test asks on standard input,
// one command a line:
//
//   register         the platform delivers a push token
//   track <name>     track an event with a few typed parameters
//   background       the application moves to the background (the kit flushes its events)
//   health           prints "health " and the kit's health snapshot as JSON
//   quit
//
// It answers each command with "done <command>" once the kit has been called (the kit's work
// itself goes on in the background; the test watches the sandbox to see it arrive).
//
//   console_kit_host <service base URL> <bundle folder> <data folder>

#include <orvanta.hpp>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <iostream>
#include <string>
#include <vector>

namespace {

void answer(const std::string& line) {
  std::cout << line << std::endl;  // flushed: the test waits for it
}

std::vector<std::uint8_t> pushToken() {
  std::vector<std::uint8_t> token;
  for (int i = 0; i < 32; ++i) {
    token.push_back(static_cast<std::uint8_t>(i * 29 + 7));
  }
  return token;
}

void track(const std::string& name) {
  const auto now = std::chrono::system_clock::now();
  orvanta::Orvanta::analytics().trackEvent(
      name, {{"sku", "A-1"}, {"qty", 2}, {"gift", false}, {"when", orvanta::Date(now)}});
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fprintf(stderr, "usage: console_kit_host <service base URL> <bundle> <data folder>\n");
    return 2;
  }
  const std::string baseUrl = argv[1];
  const std::string dataDirectory = argv[3];

  orvanta::LinuxPlatformOptions platformOptions;
  platformOptions.applicationName = "orvanta-console-test";
  platformOptions.bundleDirectory = argv[2];
  platformOptions.dataDirectory = dataDirectory;
  platformOptions.preferencesFile = dataDirectory + "/preferences.json";
  orvanta::installPlatform(orvanta::makeLinuxPlatform(platformOptions));
  if (!orvanta::setServiceBaseURLs(baseUrl, baseUrl)) {
    std::fprintf(stderr, "console_kit_host: refused base URL %s\n", baseUrl.c_str());
    return 2;
  }
  auto configuration = orvanta::OrvantaConfiguration::defaultConfiguration();
  configuration->setIsLoggingEnabled(true);
  orvanta::Orvanta::configure(configuration);
  answer("ready");

  std::string line;
  while (std::getline(std::cin, line)) {
    if (line == "register") {
      orvanta::Orvanta::push().didRegisterForRemoteNotifications(pushToken());
    } else if (line.rfind("track ", 0) == 0) {
      track(line.substr(6));
    } else if (line == "background") {
      orvanta::postLifecycleEvent(orvanta::port::LifecycleEvent::didEnterBackground);
    } else if (line == "health") {
      answer("health " + orvanta::Orvanta::health().json());
    } else if (line == "quit") {
      break;
    } else {
      std::fprintf(stderr, "console_kit_host: unknown command %s\n", line.c_str());
      return 2;
    }
    answer("done " + line);
  }
  orvanta::postWillSuspend();
  answer("done quit");
  return 0;
}
