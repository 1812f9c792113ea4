#include "push/orvanta_notification_status_reporter.hpp"

#include <chrono>
#include <utility>

#include "core/health.hpp"
#include "core/logger.hpp"

namespace orvanta {

OrvantaNotificationStatusReporter::OrvantaNotificationStatusReporter(Dependencies dependencies)
    : dependencies_(std::move(dependencies)) {}

void OrvantaNotificationStatusReporter::report(
    OrvantaNotificationStatus::PushReportStatus status, const std::string& pushId,
    const std::string& deviceToken, std::optional<OrvantaNotificationStatus::DetailsType> details,
    std::optional<std::string> actionId) {
  const auto now = dependencies_.clock->now().time_since_epoch();
  OrvantaNotificationStatus record;
  record.id = pushId;
  record.status = status;
  record.type = "IOS";
  record.deviceToken = deviceToken;
  record.occurredAt = std::chrono::duration_cast<std::chrono::seconds>(now).count();
  record.details = details;
  record.actionId = std::move(actionId);

  dependencies_.commonData->setLastOpenedPushId(pushId);

  const char* statusName =
      status == OrvantaNotificationStatus::PushReportStatus::received ? "received" : "reactedOn";
  CompletionHandler<Void> handler;
  handler.onNext = [statusName, pushId] {
    health::count(health::Counter::reportsSent);
    OrvantaLogger::info([&] {
      return std::string("Successfully reported status: ") + statusName +
             " for push with id: " + pushId;
    });
  };
  handler.onError = [](const Error& error) {
    health::count(health::Counter::reportsFailed);
    OrvantaLogger::error(error);
  };
  dependencies_.pushesService->report(record, std::move(handler));
}

}  // namespace orvanta
