// A command-line host: it registers this installation with a push token of its own transport,
// tracks a few events and exits only once every one of them was delivered (or the time is up).
//
//   orvanta-cli-host --service http://127.0.0.1:8080/v1/ --bundle resources/sample
//                    --data /tmp/cli-host [--events 20] [--verbose]
//
// Exit status: 0 when the service accepted the registration and every event; 1 otherwise.

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <optional>
#include <orvanta.hpp>
#include <string>
#include <string_view>

namespace {

struct Arguments {
  std::string service;
  std::string bundle;
  std::string data;
  int events = 20;
  bool verbose = false;
};

std::optional<Arguments> parse(int argc, char** argv) {
  Arguments arguments;
  for (int i = 1; i < argc; ++i) {
    std::string_view name = argv[i];
    if (name == "--verbose") {
      arguments.verbose = true;
      continue;
    }
    if (i + 1 >= argc) {
      return std::nullopt;
    }
    std::string value = argv[++i];
    if (name == "--service") {
      arguments.service = value;
    } else if (name == "--bundle") {
      arguments.bundle = value;
    } else if (name == "--data") {
      arguments.data = value;
    } else if (name == "--events") {
      arguments.events = std::atoi(value.c_str());
    } else {
      return std::nullopt;
    }
  }
  if (arguments.service.empty() || arguments.bundle.empty() || arguments.data.empty() ||
      arguments.events < 0) {
    return std::nullopt;
  }
  return arguments;
}

/// What the registration observer heard, for the main thread to wait on.
class Registration {
 public:
  void settle(bool accepted, std::string detail) {
    std::lock_guard lock(mutex_);
    if (!outcome_) {
      outcome_ = accepted;
      detail_ = std::move(detail);
      settled_.notify_all();
    }
  }
  /// True when the service accepted the record within `limit`.
  bool await(std::chrono::seconds limit) {
    std::unique_lock lock(mutex_);
    settled_.wait_for(lock, limit, [&] { return outcome_.has_value(); });
    return outcome_.value_or(false);
  }
  std::string detail() {
    std::lock_guard lock(mutex_);
    return detail_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable settled_;
  std::optional<bool> outcome_;
  std::string detail_ = "no answer";
};

}  // namespace

int main(int argc, char** argv) {
  auto arguments = parse(argc, argv);
  if (!arguments) {
    std::fprintf(stderr,
                 "usage: orvanta-cli-host --service URL --bundle DIR --data DIR [--events N] "
                 "[--verbose]\n");
    return 2;
  }

  // First the platform, then the service, then the configuration: nothing touches the kit before.
  orvanta::LinuxPlatformOptions options;
  options.applicationName = "orvanta-cli-host";
  options.bundleDirectory = arguments->bundle;
  options.dataDirectory = arguments->data;
  options.preferencesFile = arguments->data + "/preferences.json";
  if (!orvanta::installPlatform(orvanta::makeLinuxPlatform(options)) ||
      !orvanta::setServiceBaseURLs(arguments->service, arguments->service)) {
    std::fprintf(stderr, "orvanta-cli-host: the service URL %s was refused\n",
                 arguments->service.c_str());
    return 2;
  }
  auto configuration = orvanta::OrvantaConfiguration::defaultConfiguration();
  configuration->setIsLoggingEnabled(arguments->verbose);
  orvanta::Orvanta::configure(configuration);

  Registration registration;
  auto observer = std::make_shared<orvanta::OrvantaRegistrationObserver>();
  observer->didReceiveToken = [](const std::string& token) {
    std::printf("token %s handed to the kit\n", token.c_str());
  };
  observer->didRegisterWithService = [&](const std::optional<std::string>& token) {
    registration.settle(true, "registered with token " + token.value_or("(none)"));
  };
  observer->didFailToRegister = [&](const orvanta::Error& error) {
    registration.settle(false, "registration failed: " + error.localizedDescription());
  };
  auto& push = orvanta::Orvanta::push();
  push.setRegistrationObserver(observer);  // held weakly: `observer` lives until main returns

  // This host's pushes come by a transport of its own, which gave it this token.
  push.didRegisterForRemoteNotifications({0xc1, 0x1e, 0x00, 0x57});
  const bool registered = registration.await(std::chrono::seconds(10));
  std::printf("%s\n", registration.detail().c_str());

  for (int i = 0; i < arguments->events; ++i) {
    orvanta::Orvanta::analytics().trackEvent("cli_step",
                                             {{"step", i}, {"final", i + 1 == arguments->events}});
  }
  const std::size_t left = orvanta::Orvanta::flush(std::chrono::seconds(10));
  std::printf("%d events tracked, %zu left undelivered\n", arguments->events, left);
  return registered && left == 0 ? 0 : 1;
}
