#include "orvanta_sandbox/records.hpp"

#include <algorithm>
#include <array>
#include <cctype>

namespace orvanta::sandbox {
namespace {

constexpr std::array<std::string_view, kEndpointCount> kEndpointNames = {
    "devices", "device_update", "last_push", "reports", "event"};

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           return std::tolower(static_cast<unsigned char>(x)) ==
                  std::tolower(static_cast<unsigned char>(y));
         });
}

std::int64_t millisecondsSinceEpoch(std::chrono::system_clock::time_point time) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
}

}  // namespace

std::string_view endpointName(Endpoint endpoint) {
  return kEndpointNames.at(static_cast<std::size_t>(endpoint));
}

std::optional<Endpoint> endpointFromName(std::string_view name) {
  for (std::size_t i = 0; i < kEndpointNames.size(); ++i) {
    if (kEndpointNames[i] == name) {
      return static_cast<Endpoint>(i);
    }
  }
  return std::nullopt;
}

std::string_view violationKindName(Violation::Kind kind) {
  switch (kind) {
    case Violation::Kind::contract:
      return "contract";
    case Violation::Kind::credentials:
      return "credentials";
    case Violation::Kind::routing:
      return "routing";
  }
  return "contract";
}

std::string_view deliveryOutcomeName(Delivery::Outcome outcome) {
  switch (outcome) {
    case Delivery::Outcome::notAvailable:
      return "not_available";
    case Delivery::Outcome::delivered:
      return "delivered";
    case Delivery::Outcome::failed:
      return "failed";
  }
  return "not_available";
}

std::optional<std::string> RecordedRequest::header(std::string_view name) const {
  for (const auto& [key, value] : headers) {
    if (equalsIgnoringCase(key, name)) {
      return value;
    }
  }
  return std::nullopt;
}

nlohmann::json toJson(const RecordedRequest& request) {
  nlohmann::json headers = nlohmann::json::array();
  for (const auto& [key, value] : request.headers) {
    headers.push_back({key, value});
  }
  return {{"method", request.method},
          {"path", request.path},
          {"headers", std::move(headers)},
          {"body", request.body},
          {"time_ms", millisecondsSinceEpoch(request.time)},
          {"status", request.status},
          {"reason", request.reason}};
}

nlohmann::json toJson(const Device& device) {
  nlohmann::json out = {{"user_id", device.userId},
                        {"orvanta", device.profile},
                        {"custom", device.custom},
                        {"body", device.body},
                        {"registrations", device.registrations},
                        {"unregistered", device.unregistered}};
  out["registration_id"] = device.registrationId ? nlohmann::json(*device.registrationId) : nullptr;
  out["oldDeviceToken"] = device.oldDeviceToken ? nlohmann::json(*device.oldDeviceToken) : nullptr;
  out["health"] = device.health;
  return out;
}

nlohmann::json toJson(const Report& report) {
  return {{"push_id", report.pushId}, {"body", report.body}, {"deliveries", report.deliveries}};
}

nlohmann::json toJson(const Event& event) {
  return {{"body", event.body}, {"deliveries", event.deliveries}};
}

nlohmann::json toJson(const Violation& violation) {
  return {{"kind", violationKindName(violation.kind)},
          {"method", violation.method},
          {"path", violation.path},
          {"reason", violation.reason},
          {"time_ms", millisecondsSinceEpoch(violation.time)}};
}

nlohmann::json toJson(const Fault& fault) {
  nlohmann::json out = {{"content_type", fault.addContentType},
                        {"delay_ms", fault.delay.count()},
                        {"drop", fault.drop}};
  out["status"] = fault.status ? nlohmann::json(*fault.status) : nullptr;
  out["count"] = fault.count ? nlohmann::json(*fault.count) : nullptr;
  return out;
}

nlohmann::json toJson(const Delivery& delivery) {
  return {{"outcome", deliveryOutcomeName(delivery.outcome)},
          {"detail", delivery.detail},
          {"encrypted", delivery.encrypted}};
}

nlohmann::json toJson(const SentPush& push) {
  return {{"token", push.deviceToken},
          {"push_id", push.pushId},
          {"time_ms", millisecondsSinceEpoch(push.time)},
          {"delivery", toJson(push.delivery)}};
}

std::optional<Fault> faultFromJson(const nlohmann::json& object, std::string* error) {
  const auto fail = [&](std::string reason) -> std::optional<Fault> {
    if (error != nullptr) {
      *error = std::move(reason);
    }
    return std::nullopt;
  };
  if (!object.is_object()) {
    return fail("a fault is a JSON object");
  }
  Fault fault;
  for (const auto& item : object.items()) {
    const auto& key = item.key();
    const auto& value = item.value();
    if (value.is_null()) {
      continue;
    }
    if (key == "status") {
      if (!value.is_number_integer() || value.get<int>() < 100 || value.get<int>() > 599) {
        return fail("\"status\" is an HTTP status between 100 and 599");
      }
      fault.status = value.get<int>();
    } else if (key == "content_type") {
      if (!value.is_boolean()) {
        return fail("\"content_type\" is a Boolean");
      }
      fault.addContentType = value.get<bool>();
    } else if (key == "delay_ms") {
      if (!value.is_number_integer() || value.get<std::int64_t>() < 0) {
        return fail("\"delay_ms\" is a non-negative integer");
      }
      fault.delay = std::chrono::milliseconds(value.get<std::int64_t>());
    } else if (key == "drop") {
      if (!value.is_boolean()) {
        return fail("\"drop\" is a Boolean");
      }
      fault.drop = value.get<bool>();
    } else if (key == "count") {
      if (!value.is_number_integer() || value.get<std::int64_t>() < 1) {
        return fail("\"count\" is a positive integer");
      }
      fault.count = value.get<int>();
    } else {
      return fail("unknown fault key \"" + key + "\"");
    }
  }
  return fault;
}

}  // namespace orvanta::sandbox
