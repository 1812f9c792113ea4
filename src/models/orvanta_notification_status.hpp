#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace orvanta {

/// What happened to one push: the body of a push report. Written, never read.
///
/// Keys in order: "id", "status" (a JSON integer), "type", "registration_id", "occurred_at",
/// then "details" and "actionId" only when set.
struct OrvantaNotificationStatus {
  enum class PushReportStatus : int { received = 0, reactedOn = 1 };
  enum class DetailsType { click, swipe, dismiss };

  /// "NOTIFICATION_CLICK_ACTION", "NOTIFICATION_SWIPE_ACTION", "DIALOG_DISMISS_ACTION".
  static std::string_view rawValue(DetailsType details);

  std::string id{};                       ///< "id": the push identifier
  PushReportStatus status{};              ///< "status"
  std::string type = "IOS";               ///< "type"
  std::string deviceToken{};              ///< "registration_id": the push token in hex
  std::int64_t occurredAt = 0;            ///< "occurred_at": whole seconds since 1970
  std::optional<DetailsType> details{};   ///< "details"
  std::optional<std::string> actionId{};  ///< "actionId"

  nlohmann::ordered_json toJson() const;

  friend bool operator==(const OrvantaNotificationStatus&,
                         const OrvantaNotificationStatus&) = default;
};

}  // namespace orvanta
