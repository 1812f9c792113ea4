#include "models/orvanta_notification_payload.hpp"

#include "core/json_coding.hpp"
#include "models/value_json.hpp"

namespace orvanta {

OrvantaNotificationPayload OrvantaNotificationPayload::fromJson(const nlohmann::json& json) {
  using namespace detail;
  // The push form carries the fields under "data"; the last-push answer is the bare dictionary.
  const Json* data = nullptr;
  if (json.is_object()) {
    auto nested = json.find("data");
    data = nested != json.end() && nested->is_object() ? &*nested : &json;
  } else {
    requireObject(json, "payload");  // throws
  }

  OrvantaNotificationPayload payload;
  payload.id = requiredString(*data, "id");
  payload.registrationId = optionalString(*data, "registration_id");
  if (auto image = optionalString(*data, "image")) {
    payload.image = Url::parse(*image);
    if (!payload.image) {
      throw DecodingFailure(DecodingFailure::Kind::dataCorrupted, "image: invalid URL string");
    }
  }
  payload.title = optionalString(*data, "title");
  payload.body = optionalString(*data, "body");
  if (const Json* action = optionalMember(*data, "action")) {
    payload.action = OrvantaNotificationAction::fromJson(*action);
  }

  // "action_buttons" that is missing or not an object simply means no buttons.
  auto buttons = data->find("action_buttons");
  if (buttons != data->end() && buttons->is_object()) {
    payload.category = optionalString(*buttons, "category_id");
    if (const Json* items = optionalMember(*buttons, "items")) {
      if (!items->is_array()) {
        throw DecodingFailure(DecodingFailure::Kind::typeMismatch, "items: array expected");
      }
      std::vector<OrvantaNotificationAction> actions;
      actions.reserve(items->size());
      for (const Json& item : *items) {
        actions.push_back(OrvantaNotificationAction::fromJson(item));
      }
      payload.actionButtons = std::move(actions);
    }
  }
  return payload;
}

Result<OrvantaNotificationPayload> OrvantaNotificationPayload::decode(std::string_view json) {
  try {
    return fromJson(detail::parseJson(json));
  } catch (const detail::DecodingFailure& failure) {
    return failure.toError();
  }
}

std::optional<OrvantaNotificationPayload> OrvantaNotificationPayload::fromUserInfo(
    const ValueMap& userInfo) {
  // Serialise and decode again, exactly as the notification's dictionary travels from the
  // system to the decoder: anything JSON cannot carry means no payload.
  auto json = detail::valueToJson(Value(userInfo));
  if (!json) {
    return std::nullopt;
  }
  try {
    auto payload = fromJson(detail::parseJson(json->dump()));
    payload.userInfo = userInfo;
    return payload;
  } catch (const detail::DecodingFailure&) {
    return std::nullopt;
  } catch (const nlohmann::json::exception&) {
    return std::nullopt;
  }
}

}  // namespace orvanta
