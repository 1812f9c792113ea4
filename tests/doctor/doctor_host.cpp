// A desktop application for the doctor's tests, on the kit's public API only: it registers for
// pushes (the notification server grants, the distributor on the session bus gives an endpoint,
// the service takes the device), tracks a few events and exits. What it leaves in its folders is
// what the doctor then looks at.
//
//   orvanta_doctor_host --bundle DIR --data DIR --preferences FILE --app-id ID --service URL
//                       [--events N]
//
// Exit status: 0 once the service accepted the registration; 1 otherwise; 2 for bad arguments.

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <map>
#include <memory>
#include <optional>
#include <orvanta.hpp>
#include <string>
#include <utility>

int main(int argc, char** argv) {
  std::map<std::string, std::string, std::less<>> arguments{{"--events", "0"}};
  for (int i = 1; i + 1 < argc; i += 2) {
    arguments[argv[i]] = argv[i + 1];
  }
  for (const char* required : {"--bundle", "--data", "--preferences", "--app-id", "--service"}) {
    if (arguments.count(required) == 0 || argc % 2 == 0) {
      std::fprintf(stderr,
                   "usage: orvanta_doctor_host --bundle DIR --data DIR --preferences FILE "
                   "--app-id ID --service URL [--events N]\n");
      return 2;
    }
  }

  orvanta::LinuxPlatformOptions options;
  options.applicationName = "doctor-host";
  options.bundleDirectory = arguments["--bundle"];
  options.dataDirectory = arguments["--data"];
  options.preferencesFile = arguments["--preferences"];
  options.applicationId = arguments["--app-id"];
  if (!orvanta::installPlatform(orvanta::makeLinuxPlatform(options)) ||
      !orvanta::setServiceBaseURLs(arguments["--service"], arguments["--service"])) {
    std::fprintf(stderr, "orvanta_doctor_host: the platform or the service URL was refused\n");
    return 2;
  }
  auto configuration = orvanta::OrvantaConfiguration::defaultConfiguration();
  configuration->setIsLoggingEnabled(true);
  orvanta::Orvanta::configure(configuration);

  // The first outcome the observer hears.
  auto outcome = std::make_shared<std::promise<std::pair<bool, std::string>>>();
  auto settled = std::make_shared<std::atomic<bool>>(false);
  auto settle = [outcome, settled](bool registered, std::string detail) {
    if (!settled->exchange(true)) {
      outcome->set_value({registered, std::move(detail)});
    }
  };
  auto observer = std::make_shared<orvanta::OrvantaRegistrationObserver>();
  observer->didRegisterWithService = [settle](const std::optional<std::string>& token) {
    settle(true, "registered with token " + token.value_or("(none)"));
  };
  observer->didFailToRegister = [settle](const orvanta::Error& error) {
    settle(false, "registration failed: " + error.localizedDescription());
  };
  auto& push = orvanta::Orvanta::push();
  push.setRegistrationObserver(observer);
  push.registerForPushNotifications(orvanta::OrvantaPushOptions::defaultOptions());
  auto heard = outcome->get_future();
  const bool answered = heard.wait_for(std::chrono::seconds(60)) == std::future_status::ready;
  const auto [registered, detail] =
      answered ? heard.get() : std::pair<bool, std::string>(false, "no answer");
  std::printf("%s\n", detail.c_str());

  const int events = std::atoi(arguments["--events"].c_str());
  for (int i = 0; i < events; ++i) {
    orvanta::Orvanta::analytics().trackEvent("doctor_step", {{"step", i}});
  }
  // A short wait: the tests keep events waiting by having the service refuse them.
  const std::size_t left = orvanta::Orvanta::flush(std::chrono::seconds(1));
  std::printf("%d events tracked, %zu left\n", events, left);
  return registered ? 0 : 1;
}
