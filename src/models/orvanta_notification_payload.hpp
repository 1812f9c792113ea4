#pragma once

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/result.hpp"
#include "models/orvanta_notification_action.hpp"
#include "models/url.hpp"
#include "orvanta/value.hpp"

namespace orvanta {

/// The service's content of one push: the "data" dictionary of a remote notification, or the
/// bare dictionary of the last-push answer. A value type; read only, never written by the kit.
struct OrvantaNotificationPayload {
  /// The push identifier on the service (status reports, last-opened bookkeeping).
  std::string id;
  std::optional<std::string> title;
  std::optional<std::string> body;
  std::optional<std::string> registrationId;
  std::optional<Url> image;
  /// What a tap on the notification body does.
  std::optional<OrvantaNotificationAction> action;
  /// The actions of the category's buttons ("action_buttons" → "items").
  std::optional<std::vector<OrvantaNotificationAction>> actionButtons;
  /// The category of the buttons ("action_buttons" → "category_id").
  std::optional<std::string> category;
  /// The dictionary the payload was built from by `fromUserInfo`; empty when decoded from JSON.
  ValueMap userInfo;

  /// The payload of a notification's user info, or none when the dictionary holds a value JSON
  /// cannot carry (a date, a non-finite number, text that is not UTF-8) or does not decode.
  /// `userInfo` of the result is the dictionary passed in. Never fails otherwise, logs nothing.
  static std::optional<OrvantaNotificationPayload> fromUserInfo(const ValueMap& userInfo);

  /// Decodes JSON text (the last-push answer, or a whole user info) into a payload; a decoding
  /// error (`Error::Domain::decoding`) when it is not one.
  static Result<OrvantaNotificationPayload> decode(std::string_view json);

  /// Reads parsed JSON: the object under "data" when there is one, the top-level object itself
  /// otherwise. Throws `detail::DecodingFailure`.
  static OrvantaNotificationPayload fromJson(const nlohmann::json& json);

  friend bool operator==(const OrvantaNotificationPayload&,
                         const OrvantaNotificationPayload&) = default;
};

}  // namespace orvanta
