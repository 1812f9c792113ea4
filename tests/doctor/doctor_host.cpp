// A desktop application for the doctor's tests, on the kit's public API only: it registers for
// pushes (the notification server grants, the distributor on the session bus gives an endpoint,
// the service takes the device), tracks a few events and exits. What it leaves in its folders is
// what the doctor then looks at.
//
//   orvanta_doctor_host --bundle DIR --data DIR --preferences FILE --app-id ID --service URL
//                       [--events N]
//
// Exit status: 0 once the service accepted the registration; 1 otherwise; 2 for bad arguments.

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <optional>
#include <orvanta.hpp>
#include <string>
#include <string_view>

namespace {

/// The registration's outcome, for the main thread to wait on.
class Outcome {
 public:
  void settle(bool registered, std::string detail) {
    std::lock_guard lock(mutex_);
    if (!registered_) {
      registered_ = registered;
      detail_ = std::move(detail);
      settled_.notify_all();
    }
  }
  bool await(std::chrono::seconds limit) {
    std::unique_lock lock(mutex_);
    settled_.wait_for(lock, limit, [&] { return registered_.has_value(); });
    return registered_.value_or(false);
  }
  std::string detail() {
    std::lock_guard lock(mutex_);
    return detail_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable settled_;
  std::optional<bool> registered_;
  std::string detail_ = "no answer";
};

}  // namespace

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

  Outcome outcome;
  auto observer = std::make_shared<orvanta::OrvantaRegistrationObserver>();
  observer->didRegisterWithService = [&](const std::optional<std::string>& token) {
    outcome.settle(true, "registered with token " + token.value_or("(none)"));
  };
  observer->didFailToRegister = [&](const orvanta::Error& error) {
    outcome.settle(false, "registration failed: " + error.localizedDescription());
  };
  auto& push = orvanta::Orvanta::push();
  push.setRegistrationObserver(observer);
  push.registerForPushNotifications(orvanta::OrvantaPushOptions::defaultOptions());
  const bool registered = outcome.await(std::chrono::seconds(60));
  std::printf("%s\n", outcome.detail().c_str());

  const int events = std::atoi(arguments["--events"].c_str());
  for (int i = 0; i < events; ++i) {
    orvanta::Orvanta::analytics().trackEvent("doctor_step", {{"step", i}});
  }
  // A short wait: the tests keep events waiting by having the service refuse them.
  const std::size_t left = orvanta::Orvanta::flush(std::chrono::seconds(1));
  std::printf("%d events tracked, %zu left\n", events, left);
  return registered ? 0 : 1;
}
