#include "orvanta/orvanta.hpp"

#include <utility>

#include "analytics/orvanta_analytics_impl.hpp"
#include "core/guard.hpp"
#include "core/logger.hpp"
#include "core/logging_switch.hpp"
#include "entry/orvanta_components.hpp"
#include "entry/platform_installation.hpp"
#include "networking/events_service.hpp"
#include "push/orvanta_push_impl.hpp"

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

std::unique_ptr<OrvantaPush> makePush(const std::shared_ptr<detail::KitContext>& context) {
  const auto& platform = *context->platform();
  auto inAppInteraction =
      std::make_shared<OrvantaInAppInteraction>(OrvantaInAppInteraction::Dependencies{
          platform.presenter, platform.application, platform.mainQueue});
  return std::make_unique<OrvantaPush>(std::make_shared<OrvantaPush::Impl>(OrvantaPush::Impl::Dependencies{
      .authData = context->authData(),
      .notificationCenter = platform.notificationCenter,
      .application = platform.application,
      .mainQueue = platform.mainQueue,
      .categoriesFactory =
          std::make_shared<OrvantaPushNotificationCategoriesFactory>(platform.bundle),
      .statusReporter = context->makeStatusReporter(),
      .inAppInteraction = std::move(inAppInteraction),
  }));
}

/// Hooks the platform's push callbacks for `push`.
std::shared_ptr<PushInterception> interceptPushCallbacks(const detail::KitContext& context,
                                                         const OrvantaPush& push) {
  auto interception = std::make_shared<PushInterception>(push.impl());
  context.platform()->notificationCenter->setDelegate(interception);
  context.platform()->application->setDelegate(interception);
  return interception;
}

std::unique_ptr<OrvantaAnalytics> makeAnalytics(
    const std::shared_ptr<detail::KitContext>& context) {
  std::weak_ptr<detail::KitContext> weakContext = context;
  auto handler = OrvantaAnalyticsOperationsHandler::make({
      .eventsDatabase = context->eventStore(),
      .makeEventsService = [weakContext]() -> std::shared_ptr<EventsServiceProtocol> {
        auto owner = weakContext.lock();
        return owner ? std::make_shared<EventsService>(owner->router<EventsEndPoint>()) : nullptr;
      },
  });
  const auto& platform = *context->platform();
  auto impl = OrvantaAnalytics::Impl::make({
      .operationsHandler = std::move(handler),
      .authData = context->authData(),
      .lifecycle = platform.lifecycle,
      .clock = platform.clock,
      .configFile = context->configFile(),
  });
  return std::make_unique<OrvantaAnalytics>(std::move(impl));
}

}  // namespace

namespace detail {

std::shared_ptr<const CredentialsSource> sharedConfigurationCredentials() {
  static const auto credentials = std::make_shared<const SharedConfigurationCredentials>();
  return credentials;
}

}  // namespace detail

Orvanta::Orvanta() : components_(std::make_unique<Components>()) {
  auto& context = components_->context;
  context = detail::processContext();
  components_->orvantaPush = makePush(context);
  components_->pushInterception = interceptPushCallbacks(*context, *components_->orvantaPush);
  components_->orvantaAnalytics = makeAnalytics(context);
  // Last: the default configuration, which switches logging off.
  configuration_ = OrvantaConfiguration::defaultConfiguration();
}

Orvanta::~Orvanta() = default;

Orvanta& Orvanta::shared() {
  // Never destroyed: components may still be in use by threads running at process exit.
  static Orvanta* instance = new Orvanta();
  return *instance;
}

void Orvanta::configure(std::shared_ptr<OrvantaConfiguration> configuration) {
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
  return *shared().components_->orvantaPush;
}

OrvantaAnalytics& Orvanta::analytics() {
  return *shared().components_->orvantaAnalytics;
}

std::shared_ptr<OrvantaConfiguration> Orvanta::configuration() const {
  std::lock_guard lock(configurationMutex_);
  return configuration_;
}

}  // namespace orvanta
