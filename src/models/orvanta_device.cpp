#include "models/orvanta_device.hpp"

#include "core/json_coding.hpp"
#include "core/utf8.hpp"

namespace orvanta {

OrvantaDevice::OrvantaDevice(std::string installationId, std::string platformType,
                             std::string applicationId, Constants::DeviceAnalytics device)
    : deviceUUID(std::move(installationId)),
      type(std::move(platformType)),
      appId(repairedUtf8(applicationId)),
      mobileAgent{std::move(device)} {}

nlohmann::ordered_json OrvantaDevice::toJson() const {
  nlohmann::ordered_json json = nlohmann::ordered_json::object();
  json["user_id"] = deviceUUID;
  json["orvanta"] = user.toJson();
  json["type"] = type;
  json["app_id"] = appId;
  if (deviceToken) {
    json["registration_id"] = *deviceToken;
  }
  if (oldDeviceToken) {
    json["oldDeviceToken"] = *oldDeviceToken;
  }
  json["custom"] = customParameters.toJson();
  nlohmann::ordered_json agents = nlohmann::ordered_json::array();
  for (const auto& agent : mobileAgent) {
    agents.push_back(agent.toJson());
  }
  json["mobile_agent"] = std::move(agents);
  return json;
}

OrvantaDevice OrvantaDevice::fromJson(const nlohmann::json& json) {
  using namespace detail;
  requireObject(json, "device");
  OrvantaDevice device;
  device.deviceUUID = requiredString(json, "user_id");
  device.user = OrvantaUser::fromJson(requiredMember(json, "orvanta"));
  device.type = requiredString(json, "type");
  device.appId = requiredString(json, "app_id");
  device.deviceToken = optionalString(json, "registration_id");
  device.oldDeviceToken = optionalString(json, "oldDeviceToken");
  device.customParameters = OrvantaCustomParameters::fromJson(requiredMember(json, "custom"));
  const Json& agents = requiredMember(json, "mobile_agent");
  if (!agents.is_array()) {
    throw DecodingFailure(DecodingFailure::Kind::typeMismatch, "mobile_agent: array expected");
  }
  for (const Json& agent : agents) {
    device.mobileAgent.push_back(Constants::DeviceAnalytics::fromJson(agent));
  }
  return device;
}

Result<OrvantaDevice> OrvantaDevice::decode(std::string_view json) {
  try {
    return fromJson(detail::parseJson(json));
  } catch (const detail::DecodingFailure& failure) {
    return failure.toError();
  }
}

}  // namespace orvanta
