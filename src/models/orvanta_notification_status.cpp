#include "models/orvanta_notification_status.hpp"

#include <nlohmann/json.hpp>

namespace orvanta {

std::string_view OrvantaNotificationStatus::rawValue(DetailsType details) {
  switch (details) {
    case DetailsType::click:
      return "NOTIFICATION_CLICK_ACTION";
    case DetailsType::swipe:
      return "NOTIFICATION_SWIPE_ACTION";
    case DetailsType::dismiss:
      return "DIALOG_DISMISS_ACTION";
  }
  return {};
}

nlohmann::ordered_json OrvantaNotificationStatus::toJson() const {
  nlohmann::ordered_json json = nlohmann::ordered_json::object();
  json["id"] = id;
  json["status"] = static_cast<int>(status);
  json["type"] = type;
  json["registration_id"] = deviceToken;
  json["occurred_at"] = occurredAt;
  if (details) {
    json["details"] = std::string(rawValue(*details));
  }
  if (actionId) {
    json["actionId"] = *actionId;
  }
  return json;
}

}  // namespace orvanta
