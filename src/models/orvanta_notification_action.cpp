#include "models/orvanta_notification_action.hpp"

#include <array>
#include <utility>

#include "core/json_coding.hpp"

namespace orvanta {
namespace {

constexpr std::array<std::pair<OrvantaNotificationAction::ActionType, std::string_view>, 4>
    kActionTypes{{
        {OrvantaNotificationAction::ActionType::browser, "BROWSER"},
        {OrvantaNotificationAction::ActionType::deeplink, "DEEPLINK"},
        {OrvantaNotificationAction::ActionType::webview, "WEBVIEW"},
        {OrvantaNotificationAction::ActionType::none, "NONE"},
    }};

}  // namespace

std::string_view OrvantaNotificationAction::rawValue(ActionType type) {
  for (const auto& [candidate, raw] : kActionTypes) {
    if (candidate == type) {
      return raw;
    }
  }
  return {};
}

std::optional<OrvantaNotificationAction::ActionType> OrvantaNotificationAction::actionType(
    std::string_view rawValue) {
  for (const auto& [candidate, raw] : kActionTypes) {
    if (raw == rawValue) {
      return candidate;
    }
  }
  return std::nullopt;
}

OrvantaNotificationAction OrvantaNotificationAction::fromJson(const nlohmann::json& json) {
  using namespace detail;
  OrvantaNotificationAction result;
  const Json* inner = nullptr;
  if (json.is_object()) {
    auto nested = json.find("action");
    if (nested != json.end() && nested->is_object()) {
      inner = &*nested;
      result.text = optionalString(json, "text");
    } else {
      inner = &json;
    }
  } else {
    requireObject(json, "action");  // throws
  }

  result.id = optionalString(*inner, "id");
  if (auto url = optionalString(*inner, "url")) {
    result.url = Url::parse(*url);
    if (!result.url) {
      throw DecodingFailure(DecodingFailure::Kind::dataCorrupted, "url: invalid URL string");
    }
  }
  if (auto type = optionalString(*inner, "type")) {
    result.type = actionType(*type);
    if (!result.type) {
      throw DecodingFailure(DecodingFailure::Kind::dataCorrupted,
                            "type: unknown action type \"" + *type + "\"");
    }
  }
  return result;
}

}  // namespace orvanta
