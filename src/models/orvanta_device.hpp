#pragma once

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/result.hpp"
#include "models/device_analytics.hpp"
#include "models/orvanta_custom_parameters.hpp"
#include "models/orvanta_user.hpp"

namespace orvanta {

/// The installation as the push service knows it: the body of the device registration and update
/// requests, and the record the device authorization keeps between launches.
///
/// Written with the keys, in this order: "user_id", "orvanta", "type", "app_id",
/// "registration_id" and "oldDeviceToken" (only when known), "custom", "mobile_agent".
struct OrvantaDevice {
  std::string deviceUUID;                               ///< "user_id"
  OrvantaUser user;                                     ///< "orvanta"
  std::string type;                                     ///< "type", always "IOS"
  std::string appId;                                    ///< "app_id"
  OrvantaCustomParameters customParameters;             ///< "custom"
  std::vector<Constants::DeviceAnalytics> mobileAgent;  ///< "mobile_agent"
  std::optional<std::string> deviceToken;               ///< "registration_id"
  std::optional<std::string> oldDeviceToken;            ///< "oldDeviceToken"

  /// An empty record (what decoding starts from).
  OrvantaDevice() = default;
  /// A new record for the installation `deviceUUID`: no profile, no parameters, no tokens, the
  /// application identifier of the host's configuration and `device` as the one description of
  /// the handset.
  OrvantaDevice(std::string deviceUUID, std::string type, std::string appId,
                Constants::DeviceAnalytics device);

  /// Throws `detail::EncodingFailure` for a custom date that is not finite.
  nlohmann::ordered_json toJson() const;
  /// "user_id", "orvanta", "type", "app_id", "custom" and "mobile_agent" are required.
  /// Throws `detail::DecodingFailure`.
  static OrvantaDevice fromJson(const nlohmann::json& json);
  /// Decodes a stored record; a decoding error (`Error::Domain::decoding`) when it is not one.
  static Result<OrvantaDevice> decode(std::string_view json);

  friend bool operator==(const OrvantaDevice&, const OrvantaDevice&) = default;
};

}  // namespace orvanta
