#pragma once

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "models/url.hpp"

namespace orvanta {

/// One tappable action of a push: the default action of the notification body or the action of
/// one of its buttons. Read from the push's "data" (never written by the kit).
struct OrvantaNotificationAction {
  /// How the target is opened. Raw values are case-sensitive.
  enum class ActionType { browser, deeplink, webview, none };

  /// "BROWSER", "DEEPLINK", "WEBVIEW", "NONE".
  static std::string_view rawValue(ActionType type);
  /// The case with this raw value; none for any other text.
  static std::optional<ActionType> actionType(std::string_view rawValue);

  /// Links a button to its action (the suffix of the button identifier).
  std::optional<std::string> id;
  /// The button title sent by the service; only in the nested form.
  std::optional<std::string> text;
  std::optional<Url> url;
  std::optional<ActionType> type;

  /// Reads an action object: the nested form {"text", "action": {"id", "url", "type"}} or, when
  /// there is no object under "action", the flat form {"id", "url", "type"} (then `text` stays
  /// empty). Throws `detail::DecodingFailure` on a wrong type, an unknown "type" or a "url" that
  /// does not parse.
  static OrvantaNotificationAction fromJson(const nlohmann::json& json);

  friend bool operator==(const OrvantaNotificationAction&,
                         const OrvantaNotificationAction&) = default;
};

}  // namespace orvanta
