// orvanta-demo: a host application in miniature. It embeds the kit exactly as an application
// would, through the public API only: it installs the platform, configures the kit from its
// bundle's OrvantaConfig.plist with logging on, and runs the verbs given on the command line
// against orvanta-sandbox, the local emulator of the hosted services, started in-process.
//
//   orvanta-demo [--bundle DIR] [--data-dir DIR] [verb...]
//
// Verbs (default: tour):
//   configure   configure the kit from the bundle (always done first)
//   register    start the sandbox, receive a push token, and show the device it registered
//   push        the sandbox sends a push to the application through orvanta-distributor, a
//               push distributor on the session bus (a private bus when there is none),
//               encrypted to the keys of the application's token and signed with the sandbox's
//               VAPID key: it is decrypted, reported received, shown with its picture and
//               buttons, a button is pressed and reported; where no distributor can run, the push
//               is handed to the kit directly
//   user        set the user's profile and custom parameters, save them, and show what the
//               sandbox received
//   objc        (when built with Objective-C) an Objective-C host whose own token callback the
//               kit intercepts
//   catchup     the application comes back to the foreground and is offered the last push it
//               missed, as an alert; the user presses a button
//   track       track a handful of events with typed parameters
//   background  move the application to the background and show the events delivered
//   health      print the kit's health counters and show them on the sandbox's console
//   tour        register, push, user, catchup, objc (when built), track, background, health
#include <orvanta.hpp>
#include <orvanta_sandbox/sandbox.hpp>
#include <orvanta_sandbox/web_push.hpp>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "desktop_push.hpp"

#if defined(ORVANTA_DEMO_WITH_OBJC)
bool runObjectiveCHost();  // objc_host.mm
#endif

namespace {

using namespace std::chrono_literals;

struct Options {
  std::string bundle = ORVANTA_DEMO_SAMPLE_BUNDLE;
  std::string dataDirectory;
  std::vector<std::string> verbs;
};

void usage() {
  std::fprintf(stderr,
               "usage: orvanta-demo [--bundle DIR] [--data-dir DIR] "
               "[configure|register|push|user|catchup|objc|track|background|health|tour]...\n");
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
  if (options.verbs.empty()) {
    options.verbs.push_back("tour");
  }
  return true;
}

void say(const std::string& text) {
  std::printf("\n== %s\n", text.c_str());
  std::fflush(stdout);
}

// The demo's screens: a terminal has no windows, so an alert is described on standard output and
// its first button is pressed, as a user would; a web view screen prints the page it opens.
class ConsolePresenter : public orvanta::port::Presenter {
 public:
  std::shared_ptr<orvanta::port::Screen> keyWindowRootScreen() override { return screen_; }

  void presentAlert(const std::shared_ptr<orvanta::port::Screen>&, orvanta::port::Alert alert,
                    bool) override {
    std::printf("screen: alert \"%s\" - \"%s\" with buttons", alert.title.value_or("").c_str(),
                alert.message.value_or("").c_str());
    for (const auto& button : alert.buttons) {
      std::printf(" [%s]", button.title.c_str());
    }
    std::printf("\n");
    if (!alert.buttons.empty()) {
      std::printf("screen: the user presses [%s]\n", alert.buttons.front().title.c_str());
      if (alert.buttons.front().handler) {
        alert.buttons.front().handler();
      }
    }
  }

  void presentWebViewScreen(const std::shared_ptr<orvanta::port::Screen>&,
                            std::shared_ptr<orvanta::port::WebViewScreen>, bool) override {
    std::printf("screen: the in-app web view opens\n");
  }

 private:
  class Window : public orvanta::port::Screen {
   public:
    std::shared_ptr<Screen> presentedScreen() const override { return nullptr; }
  };
  std::shared_ptr<Window> screen_ = std::make_shared<Window>();
};

// The demo's stand-in for the hosted services, started on first need.
class Services {
 public:
  Services(std::string bundle, std::string vapidPrivateKey)
      : bundle_(std::move(bundle)), vapidPrivateKey_(std::move(vapidPrivateKey)) {}

  orvanta::sandbox::Sandbox& sandbox() {
    if (!sandbox_) {
      orvanta::sandbox::Options options;
      options.credentials = orvanta::sandbox::loadCredentials(bundle_ + "/OrvantaConfig.plist");
      options.vapidPrivateKey = vapidPrivateKey_;
      sandbox_ = orvanta::sandbox::Sandbox::start(options);
      say("orvanta-sandbox listening on " + sandbox_->baseUrl());
      std::printf("orvanta-sandbox console at %s\n", sandbox_->consoleUrl().c_str());
      orvanta::setServiceBaseURLs(sandbox_->baseUrl(), sandbox_->baseUrl());
    }
    return *sandbox_;
  }

 private:
  std::string bundle_;
  std::string vapidPrivateKey_;
  std::unique_ptr<orvanta::sandbox::Sandbox> sandbox_;
};

bool registerDevice(Services& services, std::string& deviceToken) {
  auto& sandbox = services.sandbox();
  say("the platform delivers a push token");
  std::vector<std::uint8_t> token;
  for (int i = 0; i < 32; ++i) {
    token.push_back(static_cast<std::uint8_t>(i * 37 + 11));
  }
  orvanta::Orvanta::push().didRegisterForRemoteNotifications(token);

  bool registered = sandbox.waitFor(
      [&] {
        auto devices = sandbox.devices();
        return !devices.empty() && devices.front().registrationId.has_value();
      },
      10s);
  if (!registered) {
    std::printf("the device did not reach the sandbox\n");
    return false;
  }
  auto device = sandbox.devices().front();
  deviceToken = *device.registrationId;
  std::printf("sandbox: device %s registered with token %s\n", device.userId.c_str(),
              device.registrationId->c_str());
  std::printf("%s\n", device.body.dump(2).c_str());
  return true;
}

// The host's own listener: it is told about pushes that arrive while it is in front, and leaves
// taps and buttons to the kit.
struct Arrivals {
  std::mutex mutex;
  std::condition_variable changed;
  int count = 0;
};

std::shared_ptr<orvanta::OrvantaPushDelegate> makeDelegate(Arrivals& arrivals) {
  auto delegate = std::make_shared<orvanta::OrvantaPushDelegate>();
  delegate->didRecieveNotificationWithUserInfo = [&arrivals](const orvanta::ValueMap& userInfo) {
    const auto* data = userInfo.count("data") ? userInfo.at("data").map() : nullptr;
    const auto* id = data && data->count("id") ? data->at("id").string() : nullptr;
    std::printf("host: push %s arrived while the application is in front\n",
                id ? id->c_str() : "?");
    std::lock_guard lock(arrivals.mutex);
    ++arrivals.count;
    arrivals.changed.notify_all();
  };
  return delegate;
}

bool receivePush(Services& services, Arrivals& arrivals, DesktopPush& desktop,
                 std::string& deviceToken) {
  auto& sandbox = services.sandbox();
  int arrivedBefore = 0;
  {
    std::lock_guard lock(arrivals.mutex);
    arrivedBefore = arrivals.count;
  }
  const auto arrived = [&arrivals, arrivedBefore] {
    std::unique_lock lock(arrivals.mutex);
    return arrivals.changed.wait_for(lock, 10s, [&] { return arrivals.count > arrivedBefore; });
  };
  if (auto outcome = desktop.receivePushFromSandbox(sandbox, arrived, deviceToken)) {
    return *outcome;
  }
  say("the push can't travel through a push distributor here: it is handed to the kit directly");
  say("the host asks to show notifications");
  orvanta::Orvanta::push().registerForPushNotifications(
      orvanta::OrvantaPushOptions::defaultOptions());

  say("a push with two buttons arrives while the application is in front");
  // The push reaches the application as the platform hands it over; with a notification server
  // on the desktop it appears there with its two buttons.
  orvanta::ValueMap userInfo{
      {"aps", orvanta::ValueMap{{"alert", orvanta::ValueMap{{"title", "Flash sale"},
                                                            {"body", "Two hours only"}}}}},
      {"data", orvanta::ValueMap{
                   {"id", "demo-push-1"},
                   {"registration_id", deviceToken},
                   {"action_buttons",
                    orvanta::ValueMap{{"category_id", "ORVANTA_PUSH_CATEGORY_ACCEPTANCE"},
                                      {"items", orvanta::ValueArray{orvanta::ValueMap{
                                                    {"id", "ORVANTA_PUSH_ACTION_ACCEPT"},
                                                    {"type", "NONE"},
                                                    {"url", "https://orvanta.io/sale"}}}}}}}}};
  orvanta::deliverRemoteNotification(userInfo);
  {
    std::unique_lock lock(arrivals.mutex);
    if (!arrivals.changed.wait_for(lock, 10s, [&] { return arrivals.count > 0; })) {
      std::printf("the push did not reach the host\n");
      return false;
    }
  }

  say("the user presses \"Accept\"");
  orvanta::port::NotificationResponse response;
  response.notification.request.content.userInfo = userInfo;
  response.actionIdentifier = "ORVANTA_PUSH_ACTION_ACCEPT";
  orvanta::Orvanta::push().didReceiveNotificationResponse(response);

  // The received report comes first (the service extension's), the button's after it.
  bool reported = sandbox.waitFor(
      [&] {
        const auto reports = sandbox.reports();
        return std::any_of(reports.begin(), reports.end(),
                           [](const auto& report) { return report.body.contains("actionId"); });
      },
      10s);
  for (const auto& report : sandbox.reports()) {
    std::printf("sandbox: report for push %s: %s\n", report.pushId.c_str(),
                report.body.dump().c_str());
  }
  if (!reported) {
    std::printf("the report did not reach the sandbox\n");
  }
  return reported;
}

bool catchUp(Services& services, const std::string& deviceToken) {
  auto& sandbox = services.sandbox();
  say("the service holds a push the user never saw; the application comes back to the foreground");
  const std::size_t reportsBefore = sandbox.reports().size();
  sandbox.setLastPush(deviceToken, {{"id", "demo-push-2"},
                                    {"title", "Your cart is waiting"},
                                    {"body", "Two items are still in your cart"},
                                    {"action_buttons",
                                     {{"category_id", "ORVANTA_PUSH_CATEGORY_SHOPPING_CART"},
                                      {"items",
                                       {{{"id", "ORVANTA_PUSH_ACTION_ADD_TO_CART"},
                                         {"type", "NONE"},
                                         {"url", "https://orvanta.io/cart"}}}}}}});
  orvanta::postLifecycleEvent(orvanta::port::LifecycleEvent::willEnterForeground);
  bool reported = sandbox.waitFor([&] { return sandbox.reports().size() > reportsBefore; }, 10s);
  if (!reported) {
    std::printf("the report did not reach the sandbox\n");
    return false;
  }
  const auto report = sandbox.reports().back();
  std::printf("sandbox: report for push %s: %s\n", report.pushId.c_str(),
              report.body.dump().c_str());
  return true;
}

bool saveUser(Services& services) {
  auto& sandbox = services.sandbox();
  say("the host sets its user's profile and saves it");
  auto& user = orvanta::Orvanta::user();
  user.setEmail("ann@example.com");
  user.setPhone("+1 555 0100");
  user.setFirstName("Ann");
  user.setLastName("Lee");
  user.setCustomParameters({{"plan", "pro"}, {"seats", 5}, {"beta", true}});
  user.saveUser();
  bool saved = sandbox.waitFor(
      [&] {
        auto devices = sandbox.devices();
        return !devices.empty() && devices.front().profile.contains("email");
      },
      10s);
  if (!saved) {
    std::printf("the profile did not reach the sandbox\n");
    return false;
  }
  auto device = sandbox.devices().front();
  std::printf("sandbox: profile %s\nsandbox: custom parameters %s\n", device.profile.dump().c_str(),
              device.custom.dump().c_str());
  return true;
}

void trackEvents() {
  say("the host tracks events");
  auto& analytics = orvanta::Orvanta::analytics();
  auto now = std::chrono::system_clock::now();
  analytics.trackEvent("app_open");
  analytics.trackEvent("purchase",
                       {{"sku", "A-1"}, {"qty", 2}, {"gift", false}, {"when", orvanta::Date(now)}});
  analytics.trackEvent("search", {{"query", "blue shoes"}, {"results", 14}});
  analytics.trackEvent("rating", {{"stars", 5}, {"score", 4.5}});  // fractions are dropped
  analytics.trackEvent("share", {{"channel", "mail"}, {"boxed_flag", orvanta::Value::boxed(true)}});
}

bool goToBackground(Services& services) {
  auto& sandbox = services.sandbox();
  say("the application moves to the background");
  orvanta::postLifecycleEvent(orvanta::port::LifecycleEvent::didEnterBackground);
  bool delivered = sandbox.waitForEventCount(5, 10s);
  for (const auto& event : sandbox.events()) {
    std::printf("sandbox: event delivered %dx: %s\n", event.deliveries, event.body.dump().c_str());
  }
  if (!delivered) {
    std::printf("not every event reached the sandbox\n");
  }
  orvanta::postWillSuspend();
  return delivered;
}

// What the kit counted in this run, shown on the sandbox console beside the device.
void reportHealth(Services& services, const std::string& deviceToken) {
  say("the host reads the kit's health counters");
  const std::string counters = orvanta::Orvanta::health().json();
  std::printf("host: %s\n", counters.c_str());
  if (!deviceToken.empty() &&
      services.sandbox().setHealth(deviceToken, nlohmann::json::parse(counters))) {
    std::printf("sandbox: the counters are shown beside the device on the console\n");
  }
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  if (!parse(argc, argv, options)) {
    usage();
    return 2;
  }

  // Pushes travel over the session bus; without one, the demo starts its own (before any thread).
  const bool pushes =
      std::any_of(options.verbs.begin(), options.verbs.end(),
                  [](const std::string& verb) { return verb == "push" || verb == "tour"; });
  DesktopPush desktop(pushes);

  // Each run starts as a fresh installation.
  std::error_code ignored;
  std::filesystem::remove_all(options.dataDirectory, ignored);

  orvanta::LinuxPlatformOptions platformOptions;
  platformOptions.applicationName = "orvanta-demo";
  platformOptions.bundleDirectory = options.bundle;
  platformOptions.kitResourcesDirectory = ORVANTA_DEMO_KIT_RESOURCES;  // the kit's texts
  platformOptions.dataDirectory = options.dataDirectory;
  platformOptions.preferencesFile = options.dataDirectory + "/preferences.json";
  // The sandbox signs the pushes it sends with this VAPID key; the kit is given its public half,
  // as a host is given its service's.
  const auto vapid = orvanta::sandbox::webpush::VapidKey::generate();
  desktop.configure(platformOptions, vapid.publicKey());
  auto platform = orvanta::makeLinuxPlatform(platformOptions);
  platform->presenter = std::make_shared<ConsolePresenter>();
  orvanta::installPlatform(platform);

  std::printf("orvanta-demo: bundle %s, data in %s\n", options.bundle.c_str(),
              options.dataDirectory.c_str());
  say("the host configures the kit");
  auto configuration = orvanta::OrvantaConfiguration::defaultConfiguration();
  configuration->setIsLoggingEnabled(true);
  orvanta::Orvanta::configure(configuration);

  Arrivals arrivals;
  auto delegate = makeDelegate(arrivals);
  orvanta::Orvanta::push().setDelegate(delegate);

  Services services(options.bundle, vapid.privateKey());
  std::string deviceToken;
  bool ok = true;
  for (const auto& verb : options.verbs) {
    if (verb == "configure") {
      continue;
    } else if (verb == "register") {
      ok = registerDevice(services, deviceToken) && ok;
    } else if (verb == "push") {
      ok = (!deviceToken.empty() || registerDevice(services, deviceToken)) &&
           receivePush(services, arrivals, desktop, deviceToken) && ok;
    } else if (verb == "catchup") {
      ok = (!deviceToken.empty() || registerDevice(services, deviceToken)) &&
           catchUp(services, deviceToken) && ok;
    } else if (verb == "user") {
      ok = saveUser(services) && ok;
    } else if (verb == "objc") {
#if defined(ORVANTA_DEMO_WITH_OBJC)
      say("an Objective-C host receives a push token");
      ok = runObjectiveCHost() && ok;
#else
      std::printf("orvanta-demo: built without Objective-C\n");
#endif
    } else if (verb == "track") {
      trackEvents();
    } else if (verb == "background") {
      ok = goToBackground(services) && ok;
    } else if (verb == "tour") {
      ok = registerDevice(services, deviceToken) && ok;
      ok = receivePush(services, arrivals, desktop, deviceToken) && ok;
      ok = saveUser(services) && ok;
      ok = catchUp(services, deviceToken) && ok;
#if defined(ORVANTA_DEMO_WITH_OBJC)
      say("an Objective-C host receives a push token");
      ok = runObjectiveCHost() && ok;
#endif
      trackEvents();
      ok = goToBackground(services) && ok;
      reportHealth(services, deviceToken);
    } else if (verb == "health") {
      reportHealth(services, deviceToken);
    } else {
      std::fprintf(stderr, "orvanta-demo: unknown verb %s\n", verb.c_str());
      usage();
      return 2;
    }
  }
  // Posts still in flight meet the stopped sandbox when the demo ends; the rows stay stored for
  // the next launch, which is how the kit works, but the lines would only confuse here.
  configuration->setIsLoggingEnabled(false);
  std::printf("\norvanta-demo: %s\n", ok ? "done" : "finished with problems");
  return ok ? 0 : 1;
}
