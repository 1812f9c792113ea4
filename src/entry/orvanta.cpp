#include "orvanta/orvanta.hpp"

#include <utility>

#include "analytics/orvanta_analytics_impl.hpp"
#include "core/guard.hpp"
#include "core/health.hpp"
#include "core/logger.hpp"
#include "core/logging_switch.hpp"
#include "entry/components.hpp"
#include "entry/orvanta_components.hpp"
#include "entry/platform_installation.hpp"

namespace orvanta {
namespace {

/// The credentials of the shared instance's configuration.
class SharedConfigurationCredentials final : public CredentialsSource {
 public:
  std::string token() const override { return Orvanta::shared().configuration()->token(); }
  std::string secret() const override { return Orvanta::shared().configuration()->secret(); }
  std::string appId() const override { return Orvanta::shared().configuration()->appId(); }
  std::string eventsToken() const override {
    return Orvanta::shared().configuration()->eventsToken();
  }
};

}  // namespace

namespace detail {

std::shared_ptr<const CredentialsSource> sharedConfigurationCredentials() {
  static const auto credentials = std::make_shared<const SharedConfigurationCredentials>();
  return credentials;
}

}  // namespace detail

Orvanta::Orvanta() : components_(std::make_unique<Components>()) {
  build(false);
}

Orvanta::Orvanta(SharedInstance) : components_(std::make_unique<Components>()) {
  build(true);
}

void Orvanta::build(bool shared) {
  // The shared instance is built from the context whose stores and device authorization the
  // shared accessors show; another instance from a context of its own.
  auto& context = components_->context;
  if (shared) {
    context = detail::processContext();
    detail::markInUse();
  } else {
    context = std::make_shared<detail::KitContext>(currentPlatform(),
                                                   detail::sharedConfigurationCredentials());
  }
  // In this order: push, user data, analytics, in-app push handler; then the configuration.
  auto push = detail::makePushComponents(context, shared);
  components_->orvantaUserData = detail::makeUserData(context);
  components_->orvantaAnalytics = detail::makeAnalytics(context);
  components_->orvantaInAppPushHandler = detail::makeInAppPushHandler(context, push);
  components_->orvantaPush = std::move(push.push);
  components_->inAppInteraction = std::move(push.inAppInteraction);
  components_->pushInterception = std::move(push.interception);
  // Last: the default configuration, which switches logging off.
  configuration_ = OrvantaConfiguration::defaultConfiguration();
}

Orvanta::~Orvanta() = default;

Orvanta& Orvanta::shared() {
  detail::noteEntry("Orvanta::shared()");
  // Never destroyed: components may still be in use by threads running at process exit.
  static Orvanta* instance = new Orvanta(SharedInstance{});
  return *instance;
}

void Orvanta::configure(std::shared_ptr<OrvantaConfiguration> configuration) {
  detail::noteEntry("Orvanta::configure()");
  detail::shielded([&] {
    Orvanta& orvanta = shared();
    if (!configuration) {
      configuration = std::make_shared<OrvantaConfiguration>();
    }
    // Creating the shared instance above switched logging off; the host's own choice on the
    // object it installs wins.
    if (int choice = configuration->loggingChoice_.load(); choice != OrvantaConfiguration::kUnset) {
      configuration->setIsLoggingEnabled(choice == OrvantaConfiguration::kOn);
    }
    {
      std::lock_guard lock(orvanta.configurationMutex_);
      orvanta.configuration_ = configuration;
    }
    OrvantaLogger::info([&] {
      return "Configuration with token: " + configuration->token() +
             ", secret: " + configuration->secret() + ", appId: " + configuration->appId() +
             " and eventsToken: " + configuration->eventsToken();
    });
  });
}

OrvantaPush& Orvanta::push() {
  detail::noteEntry("Orvanta::push()");
  return *shared().components_->orvantaPush;
}

OrvantaAnalytics& Orvanta::analytics() {
  detail::noteEntry("Orvanta::analytics()");
  return *shared().components_->orvantaAnalytics;
}

OrvantaUserData& Orvanta::user() {
  detail::noteEntry("Orvanta::user()");
  return *shared().components_->orvantaUserData;
}

std::size_t Orvanta::flush(std::chrono::milliseconds timeout) {
  detail::noteEntry("Orvanta::flush()");
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  return detail::shielded(
      [&]() -> std::size_t {
        const auto& impl = analytics().impl();
        return impl ? impl->flush(deadline) : 0;
      },
      std::size_t{1});
}

OrvantaHealth Orvanta::health() {
  return detail::shielded(
      [] {
        OrvantaHealth health = health::snapshot();
        if (const auto& impl = analytics().impl()) {
          impl->describeQueue(health);
        }
        return health;
      },
      OrvantaHealth{});
}

bool Orvanta::isAutoConfigurationForPushNotificationsEnabled() {
  return push().options()->useAutomaticConfiguration();
}

void Orvanta::setIsAutoConfigurationForPushNotificationsEnabled(bool enabled) {
  push().options()->setUseAutomaticConfiguration(enabled);
}

void OrvantaPushInterception::didRegisterForRemoteNotifications(
    const std::vector<std::uint8_t>& deviceToken, TokenHandler hostHandler) {
  detail::shielded([&] {
    Orvanta::shared().components().pushInterception->didRegisterForRemoteNotifications(deviceToken,
                                                                                       hostHandler);
  });
}

void OrvantaPushInterception::willPresentNotification(
    const port::Notification& notification,
    std::function<void(port::PresentationOptions)> completion, WillPresentHandler hostHandler) {
  detail::shielded([&] {
    Orvanta::shared().components().pushInterception->willPresentNotification(
        notification, std::move(completion), hostHandler);
  });
}

void OrvantaPushInterception::didReceiveNotificationResponse(
    const port::NotificationResponse& response, std::function<void()> completion,
    ResponseHandler hostHandler) {
  detail::shielded([&] {
    Orvanta::shared().components().pushInterception->didReceiveNotificationResponse(
        response, std::move(completion), hostHandler);
  });
}

void OrvantaInAppInteraction::presentAlertWithWebViewPresentationAction(
    const std::shared_ptr<port::Screen>& in, const std::string& title, const std::string& message,
    const std::string& webViewURL) {
  detail::shielded([&] {
    Orvanta::shared().components().inAppInteraction->presentAlertWithWebViewPresentationAction(
        in, title, message, webViewURL);
  });
}

void OrvantaInAppInteraction::presentWebViewController(const std::shared_ptr<port::Screen>& in,
                                                       const std::string& url) {
  detail::shielded(
      [&] { Orvanta::shared().components().inAppInteraction->presentWebViewController(in, url); });
}

std::shared_ptr<OrvantaConfiguration> Orvanta::configuration() const {
  std::lock_guard lock(configurationMutex_);
  return configuration_;
}

}  // namespace orvanta
