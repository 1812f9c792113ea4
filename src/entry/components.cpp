#include "entry/components.hpp"

#include <utility>

#include "analytics/orvanta_analytics_impl.hpp"
#include "networking/events_service.hpp"
#include "push/orvanta_notification_service_extension_impl.hpp"
#include "push/orvanta_push_impl.hpp"

namespace orvanta::detail {

PushComponents makePushComponents(const std::shared_ptr<KitContext>& context) {
  const auto& platform = *context->platform();
  auto inAppInteraction =
      std::make_shared<OrvantaInAppInteraction>(OrvantaInAppInteraction::Dependencies{
          platform.presenter, platform.application, platform.mainQueue});
  auto push = std::make_unique<OrvantaPush>(
      std::make_shared<OrvantaPush::Impl>(OrvantaPush::Impl::Dependencies{
          .authData = context->authData(),
          .notificationCenter = platform.notificationCenter,
          .application = platform.application,
          .mainQueue = platform.mainQueue,
          .categoriesFactory =
              std::make_shared<OrvantaPushNotificationCategoriesFactory>(platform.bundle),
          .statusReporter = context->makeStatusReporter(),
          .inAppInteraction = std::move(inAppInteraction),
      }));
  auto interception = std::make_shared<PushInterception>(push->impl());
  platform.notificationCenter->setDelegate(interception);
  platform.application->setDelegate(interception);
  return {std::move(push), std::move(interception)};
}

std::unique_ptr<OrvantaAnalytics> makeAnalytics(const std::shared_ptr<KitContext>& context) {
  auto handler = OrvantaAnalyticsOperationsHandler::make({
      .eventsDatabase = context->eventStore(),
      .makeEventsService = [context]() -> std::shared_ptr<EventsServiceProtocol> {
        return std::make_shared<EventsService>(context->router<EventsEndPoint>());
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

std::shared_ptr<OrvantaNotificationServiceExtension::Impl> makeNotificationServiceExtension(
    const std::shared_ptr<KitContext>& context) {
  const auto& platform = *context->platform();
  return std::make_shared<OrvantaNotificationServiceExtension::Impl>(
      OrvantaNotificationServiceExtension::Impl::Dependencies{
          .statusReporter = context->makeStatusReporter(),
          .httpClient = platform.httpClient,
          .fileLocations = platform.fileLocations,
      });
}

}  // namespace orvanta::detail
