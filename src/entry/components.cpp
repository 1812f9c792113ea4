#include "entry/components.hpp"

#include <utility>

#include "analytics/orvanta_analytics_impl.hpp"
#include "networking/devices_service.hpp"
#include "networking/events_service.hpp"
#include "push/orvanta_notification_service_extension_impl.hpp"
#include "push/orvanta_push_impl.hpp"
#include "user/orvanta_user_data_impl.hpp"

namespace orvanta::detail {
namespace {

/// The context's event database, opened by its first use (the first event tracked, the first
/// flush) rather than when the kit is built: a launch that tracks nothing opens no file. When it
/// can't be opened, every call does nothing, as the queue does without a database.
class EventStoreOpenedOnUse final : public EventDatabase {
 public:
  explicit EventStoreOpenedOnUse(std::shared_ptr<const KitContext> context)
      : context_(std::move(context)) {}

  void add(const OrvantaEvent& record) override {
    if (auto* store = opened()) {
      store->add(record);
    }
  }
  std::vector<Row> allRows() override {
    auto* store = opened();
    return store ? store->allRows() : std::vector<Row>{};
  }
  void deleteRows(std::string_view column, const std::string& value) override {
    if (auto* store = opened()) {
      store->deleteRows(column, value);
    }
  }
  void deleteRow(std::string_view primaryKey) override {
    if (auto* store = opened()) {
      store->deleteRow(primaryKey);
    }
  }
  void inTransaction(const std::function<void()>& work) override {
    if (auto* store = opened()) {
      store->inTransaction(work);
    }
  }
  void setAside(std::int64_t rowId, std::string_view reason) override {
    if (auto* store = opened()) {
      store->setAside(rowId, reason);
    }
  }
  std::vector<DamagedRow> damagedRows() override {
    auto* store = opened();
    return store ? store->damagedRows() : std::vector<DamagedRow>{};
  }
  void checkpoint() override {
    if (auto* store = opened()) {
      store->checkpoint();
    }
  }

 private:
  EventDatabase* opened() const { return context_->eventStore().get(); }

  std::shared_ptr<const KitContext> context_;
};

}  // namespace

PushComponents makePushComponents(const std::shared_ptr<KitContext>& context,
                                  bool hookPlatformCallbacks) {
  const auto& platform = *context->platform();
  auto statusReporter = context->makeStatusReporter();
  auto inAppInteraction =
      std::make_shared<OrvantaInAppInteraction::Impl>(OrvantaInAppInteraction::Impl::Dependencies{
          .presenter = platform.presenter,
          .application = platform.application,
          .mainQueue = platform.mainQueue,
          .bundle = platform.bundle,
          .statusReporter = statusReporter,
          .authData = context->authData(),
      });
  auto push = std::make_unique<OrvantaPush>(
      std::make_shared<OrvantaPush::Impl>(OrvantaPush::Impl::Dependencies{
          .authData = context->authData(),
          .notificationCenter = platform.notificationCenter,
          .application = platform.application,
          .mainQueue = platform.mainQueue,
          .categoriesFactory =
              std::make_shared<OrvantaPushNotificationCategoriesFactory>(platform.bundle),
          .statusReporter = statusReporter,
          .actionHandler = inAppInteraction,
      }));
  auto interception = std::make_shared<PushInterception>(push->impl());
  if (hookPlatformCallbacks) {
    platform.notificationCenter->setDelegate(interception);
    platform.application->setDelegate(interception);
  }
  return {std::move(push), std::move(inAppInteraction), std::move(interception)};
}

std::unique_ptr<OrvantaUserData> makeUserData(const std::shared_ptr<KitContext>& context) {
  return std::make_unique<OrvantaUserData>(std::make_shared<OrvantaUserData::Impl>(
      OrvantaUserData::Impl::Dependencies{context->authData()}));
}

std::unique_ptr<OrvantaAnalytics> makeAnalytics(const std::shared_ptr<KitContext>& context) {
  auto handler = OrvantaAnalyticsOperationsHandler::make({
      .eventsDatabase = std::make_shared<EventStoreOpenedOnUse>(context),
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

std::shared_ptr<OrvantaInAppPushHandler> makeInAppPushHandler(
    const std::shared_ptr<KitContext>& context, const PushComponents& push) {
  return OrvantaInAppPushHandler::make({
      .devicesService = std::make_shared<DevicesService>(context->router<DevicesEndPoint>()),
      .authData = context->authData(),
      .commonData = context->commonData(),
      .push = push.push->impl(),
      .inAppInteraction = push.inAppInteraction,
      .lifecycle = context->platform()->lifecycle,
  });
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
