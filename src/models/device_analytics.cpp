#include "models/device_analytics.hpp"

#include <algorithm>

#include "core/json_coding.hpp"
#include "core/utf8.hpp"

namespace orvanta {
namespace {

bool isControl(unsigned char c) {
  return c < 0x20 || c == 0x7F;
}

}  // namespace

std::string modelIdentifier(port::DeviceInfo& deviceInfo) {
  if (auto simulated = deviceInfo.environment("SIMULATOR_MODEL_IDENTIFIER")) {
    return *simulated;
  }
  const std::string machine = deviceInfo.machine();
  if (std::any_of(machine.begin(), machine.end(),
                  [](char c) { return static_cast<unsigned char>(c) >= 0x80; })) {
    return {};
  }
  std::size_t begin = 0;
  std::size_t end = machine.size();
  while (begin < end && isControl(static_cast<unsigned char>(machine[begin]))) {
    ++begin;
  }
  while (end > begin && isControl(static_cast<unsigned char>(machine[end - 1]))) {
    --end;
  }
  return machine.substr(begin, end - begin);
}

}  // namespace orvanta

namespace orvanta::Constants {

DeviceAnalytics DeviceAnalytics::from(port::DeviceInfo& deviceInfo) {
  DeviceAnalytics analytics;
  // What the system reports is outside text like any other: repaired as it enters.
  analytics.phoneModel = repairedUtf8(modelIdentifier(deviceInfo));
  analytics.systemVersion = repairedUtf8(deviceInfo.systemVersion());
  analytics.systemName = repairedUtf8(deviceInfo.systemName());
  analytics.vendorId = deviceInfo.vendorId();
  analytics.language = deviceInfo.languageCode();
  for (auto* text : {&analytics.vendorId, &analytics.language}) {
    if (*text) {
      repairUtf8(**text);
    }
  }
  return analytics;
}

nlohmann::ordered_json DeviceAnalytics::toJson() const {
  nlohmann::ordered_json json = nlohmann::ordered_json::object();
  json["phone_model"] = phoneModel;
  json["system_version"] = systemVersion;
  json["system_name"] = systemName;
  if (vendorId) {
    json["vendor_id"] = *vendorId;
  }
  if (language) {
    json["language"] = *language;
  }
  return json;
}

DeviceAnalytics DeviceAnalytics::fromJson(const nlohmann::json& json) {
  using namespace detail;
  requireObject(json, "mobile_agent");
  DeviceAnalytics analytics;
  analytics.phoneModel = requiredString(json, "phone_model");
  analytics.systemVersion = requiredString(json, "system_version");
  analytics.systemName = requiredString(json, "system_name");
  analytics.vendorId = optionalString(json, "vendor_id");
  analytics.language = optionalString(json, "language");
  return analytics;
}

}  // namespace orvanta::Constants
