#pragma once

#include <memory>
#include <optional>
#include <string>

#include "models/orvanta_notification_status.hpp"
#include "networking/pushes_service.hpp"
#include "orvanta/port/clock.hpp"
#include "storage/common_data.hpp"

namespace orvanta {

/// Tells the push service what happened to one of its pushes. Fire and forget: the outcome is
/// only logged, nothing is retried. `report` may be called from any thread and returns at once;
/// the answer is handled on the HTTP client's thread.
class OrvantaNotificationStatusReporter {
 public:
  struct Dependencies {
    std::shared_ptr<PushesServiceProtocol> pushesService;
    /// Where the last opened push is remembered.
    std::shared_ptr<CommonData> commonData;
    /// When a report happens.
    std::shared_ptr<port::Clock> clock;
  };

  explicit OrvantaNotificationStatusReporter(Dependencies dependencies);

  /// Stamps the status with the time in whole seconds and the type "IOS", remembers `pushId` as
  /// the last opened push (for every report, before sending, whatever the outcome), and sends it.
  /// Success logs "Successfully reported status: " + "received" or "reactedOn" + " for push with
  /// id: " + `pushId`; failure logs the error.
  void report(OrvantaNotificationStatus::PushReportStatus status, const std::string& pushId,
              const std::string& deviceToken,
              std::optional<OrvantaNotificationStatus::DetailsType> details,
              std::optional<std::string> actionId);

 private:
  Dependencies dependencies_;
};

}  // namespace orvanta
