#include "contract.hpp"

#include <algorithm>
#include <array>
#include <cctype>
#include <functional>
#include <iterator>

namespace orvanta::sandbox::contract {
namespace {

using nlohmann::json;
using Reason = std::optional<std::string>;
using ValueCheck = std::function<bool(const json&)>;

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           return std::tolower(static_cast<unsigned char>(x)) ==
                  std::tolower(static_cast<unsigned char>(y));
         });
}

std::string quote(std::string_view key) {
  return "\"" + std::string(key) + "\"";
}

bool isString(const json& value) {
  return value.is_string();
}
bool isInteger(const json& value) {
  return value.is_number_integer();
}
bool isBoolean(const json& value) {
  return value.is_boolean();
}
bool isNumber(const json& value) {
  return value.is_number();
}

// Every member of `object` must be one of `allowed`.
template <std::size_t N>
Reason onlyKeys(const json& object, const std::array<std::string_view, N>& allowed,
                std::string_view where) {
  for (const auto& item : object.items()) {
    if (std::find(allowed.begin(), allowed.end(), item.key()) == allowed.end()) {
      return std::string(where) + ": unexpected key " + quote(item.key());
    }
  }
  return std::nullopt;
}

Reason required(const json& object, std::string_view key, const ValueCheck& check,
                std::string_view what, std::string_view where) {
  const auto found = object.find(key);
  if (found == object.end()) {
    return std::string(where) + ": missing " + quote(key);
  }
  if (!check(*found)) {
    return std::string(where) + ": " + quote(key) + " is not " + std::string(what);
  }
  return std::nullopt;
}

// Absent is fine; present (even as null) must pass the check.
Reason optional(const json& object, std::string_view key, const ValueCheck& check,
                std::string_view what, std::string_view where) {
  if (!object.contains(key)) {
    return std::nullopt;
  }
  return required(object, key, check, what, where);
}

// An object whose every value passes `check`.
Reason typedMap(const json& object, std::string_view key, const ValueCheck& check,
                std::string_view what, std::string_view where) {
  const auto found = object.find(key);
  if (found == object.end()) {
    return std::string(where) + ": missing " + quote(key);
  }
  if (!found->is_object()) {
    return std::string(where) + ": " + quote(key) + " is not an object";
  }
  for (const auto& item : found->items()) {
    if (!check(item.value())) {
      return std::string(where) + ": " + quote(std::string(key) + "." + item.key()) + " is not " +
             std::string(what);
    }
  }
  return std::nullopt;
}

Reason firstOf(std::initializer_list<std::function<Reason()>> checks) {
  for (const auto& check : checks) {
    if (auto reason = check()) {
      return reason;
    }
  }
  return std::nullopt;
}

Reason checkMobileAgent(const json& body) {
  constexpr std::string_view where = "device";
  const auto found = body.find("mobile_agent");
  if (found == body.end()) {
    return std::string(where) + ": missing \"mobile_agent\"";
  }
  if (!found->is_array()) {
    return std::string(where) + ": \"mobile_agent\" is not an array";
  }
  if (found->size() != 1) {
    return std::string(where) + ": \"mobile_agent\" holds " + std::to_string(found->size()) +
           " elements, not exactly one";
  }
  constexpr std::array<std::string_view, 5> keys = {"phone_model", "system_version", "system_name",
                                                    "vendor_id", "language"};
  for (const auto& agent : *found) {
    constexpr std::string_view inner = "device mobile_agent";
    if (!agent.is_object()) {
      return std::string(inner) + ": an element is not an object";
    }
    auto reason = firstOf({
        [&] { return onlyKeys(agent, keys, inner); },
        [&] { return required(agent, "phone_model", isString, "a string", inner); },
        [&] { return required(agent, "system_version", isString, "a string", inner); },
        [&] { return required(agent, "system_name", isString, "a string", inner); },
        [&] { return optional(agent, "vendor_id", isString, "a string", inner); },
        [&] { return optional(agent, "language", isString, "a string", inner); },
    });
    if (reason) {
      return reason;
    }
  }
  return std::nullopt;
}

Reason checkProfile(const json& body) {
  const auto found = body.find("orvanta");
  if (found == body.end()) {
    return std::string("device: missing \"orvanta\"");
  }
  if (!found->is_object()) {
    return std::string("device: \"orvanta\" is not an object");
  }
  constexpr std::array<std::string_view, 5> keys = {"email", "number", "first_name", "last_name",
                                                    "company_name"};
  constexpr std::string_view where = "device orvanta";
  if (auto reason = onlyKeys(*found, keys, where)) {
    return reason;
  }
  for (const auto& item : found->items()) {
    if (!item.value().is_string()) {
      return std::string(where) + ": " + quote(item.key()) + " is not a string";
    }
  }
  return std::nullopt;
}

Reason checkCustom(const json& body) {
  const auto found = body.find("custom");
  if (found == body.end()) {
    return std::string("device: missing \"custom\"");
  }
  if (!found->is_object()) {
    return std::string("device: \"custom\" is not an object");
  }
  const json& custom = *found;
  constexpr std::string_view where = "device custom";
  constexpr std::array<std::string_view, 4> keys = {"boolean_fields", "integer_fields",
                                                    "string_fields", "date_fields"};
  return firstOf({
      [&] { return onlyKeys(custom, keys, where); },
      [&] { return typedMap(custom, "boolean_fields", isBoolean, "a Boolean", where); },
      [&] { return typedMap(custom, "integer_fields", isInteger, "an integer", where); },
      [&] { return typedMap(custom, "string_fields", isString, "a string", where); },
      [&] { return typedMap(custom, "date_fields", isNumber, "a number", where); },
  });
}

}  // namespace

std::optional<std::string> checkDevice(const json& body, std::string_view appId) {
  constexpr std::string_view where = "device";
  if (!body.is_object()) {
    return std::string("device: the body is not a JSON object");
  }
  constexpr std::array<std::string_view, 8> keys = {"user_id", "orvanta",         "type",
                                                    "app_id",  "registration_id", "oldDeviceToken",
                                                    "custom",  "mobile_agent"};
  return firstOf({
      [&] { return onlyKeys(body, keys, where); },
      [&] { return required(body, "user_id", isString, "a string", where); },
      [&] { return checkProfile(body); },
      [&] {
        return required(
            body, "type", [](const json& v) { return v.is_string() && v == "IOS"; }, "\"IOS\"",
            where);
      },
      [&] { return required(body, "app_id", isString, "a string", where); },
      [&]() -> Reason {
        if (body["app_id"].get_ref<const std::string&>() != appId) {
          return std::string("device: \"app_id\" is not this application's id");
        }
        return std::nullopt;
      },
      [&] { return optional(body, "registration_id", isString, "a string", where); },
      [&] { return optional(body, "oldDeviceToken", isString, "a string", where); },
      [&] { return checkCustom(body); },
      [&] { return checkMobileAgent(body); },
  });
}

std::optional<std::string> checkReport(const json& body, std::string_view pushId) {
  constexpr std::string_view where = "report";
  if (!body.is_object()) {
    return std::string("report: the body is not a JSON object");
  }
  constexpr std::array<std::string_view, 7> keys = {
      "id", "status", "type", "registration_id", "occurred_at", "details", "actionId"};
  return firstOf({
      [&] { return onlyKeys(body, keys, where); },
      [&] { return required(body, "id", isString, "a string", where); },
      [&]() -> Reason {
        if (body["id"].get_ref<const std::string&>() != pushId) {
          return std::string("report: \"id\" differs from the push id of the path");
        }
        return std::nullopt;
      },
      [&] {
        return required(
            body, "status",
            [](const json& v) { return v.is_number_integer() && (v == 0 || v == 1); },
            "the integer 0 or 1", where);
      },
      [&] {
        return required(
            body, "type", [](const json& v) { return v.is_string() && v == "IOS"; }, "\"IOS\"",
            where);
      },
      [&] { return required(body, "registration_id", isString, "a string", where); },
      [&] { return required(body, "occurred_at", isInteger, "an integer", where); },
      [&] {
        return optional(
            body, "details",
            [](const json& v) {
              return v.is_string() &&
                     (v == "NOTIFICATION_CLICK_ACTION" || v == "NOTIFICATION_SWIPE_ACTION" ||
                      v == "DIALOG_DISMISS_ACTION");
            },
            "a known details value", where);
      },
      [&] { return optional(body, "actionId", isString, "a string", where); },
  });
}

std::optional<std::string> checkEvent(const json& body, std::string_view appId) {
  constexpr std::string_view where = "event";
  if (!body.is_object()) {
    return std::string("event: the body is not a JSON object");
  }
  if (body.contains("uuidId")) {
    return std::string("event: \"uuidId\" must not be sent");
  }
  constexpr std::array<std::string_view, 7> keys = {"pushId",
                                                    "eventName",
                                                    "createdAt",
                                                    "additionalStringFields",
                                                    "additionalNumericFields",
                                                    "additionalBoolFields",
                                                    "additionalDateFields"};
  return firstOf({
      [&] { return onlyKeys(body, keys, where); },
      [&] { return required(body, "pushId", isString, "a string", where); },
      [&]() -> Reason {
        const auto& pushId = body["pushId"].get_ref<const std::string&>();
        const auto bars = pushId.find("|||");
        if (bars == std::string::npos) {
          return std::string("event: \"pushId\" has no \"|||\"");
        }
        if (bars == 0) {
          return std::string("event: \"pushId\" has no device token before \"|||\"");
        }
        if (std::string_view(pushId).substr(bars + 3) != appId) {
          return std::string("event: \"pushId\" does not end in this application's id");
        }
        return std::nullopt;
      },
      [&] { return required(body, "eventName", isString, "a string", where); },
      [&] { return required(body, "createdAt", isNumber, "a number", where); },
      [&] { return typedMap(body, "additionalStringFields", isString, "a string", where); },
      [&] { return typedMap(body, "additionalNumericFields", isInteger, "an integer", where); },
      [&] { return typedMap(body, "additionalBoolFields", isBoolean, "a Boolean", where); },
      [&] { return typedMap(body, "additionalDateFields", isNumber, "a number", where); },
  });
}

std::optional<std::string> checkUniqueHeaders(
    const std::vector<std::pair<std::string, std::string>>& headers) {
  for (auto field = headers.begin(); field != headers.end(); ++field) {
    for (auto other = std::next(field); other != headers.end(); ++other) {
      if (equalsIgnoringCase(field->first, other->first)) {
        return "the header field " + quote(field->first) + " appears more than once";
      }
    }
  }
  return std::nullopt;
}

std::optional<std::string> checkEventHeaders(
    const std::vector<std::pair<std::string, std::string>>& headers) {
  for (const auto& [name, value] : headers) {
    for (const std::string_view pushOnly : {"X-Orvanta-App-Token", "X-Orvanta-App-Secret"}) {
      if (equalsIgnoringCase(name, pushOnly)) {
        return "event: the push service's header " + quote(pushOnly) + " on an event request";
      }
    }
  }
  return std::nullopt;
}

std::optional<std::string> checkContentType(const std::optional<std::string>& value) {
  if (!value) {
    return std::string("missing \"Content-Type: application/json\"");
  }
  if (*value != "application/json") {
    return "\"Content-Type\" is \"" + *value + "\", not exactly \"application/json\"";
  }
  return std::nullopt;
}

}  // namespace orvanta::sandbox::contract
