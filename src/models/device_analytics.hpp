#pragma once

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

#include "orvanta/port/device_info.hpp"

namespace orvanta {

/// The hardware model identifier: the environment variable "SIMULATOR_MODEL_IDENTIFIER" when set,
/// otherwise the machine name reported by the system with control characters (the padding NULs
/// of the fixed-size field among them) trimmed from both ends. A machine name that is not ASCII
/// gives the empty string.
std::string modelIdentifier(port::DeviceInfo& deviceInfo);
/// The same, for the device of the current platform.
std::string modelIdentifier();

}  // namespace orvanta

namespace orvanta::Constants {

/// The description of the handset and its system that travels in the device record's
/// "mobile_agent" array.
struct DeviceAnalytics {
  std::string phoneModel;               ///< "phone_model"
  std::string systemVersion;            ///< "system_version"
  std::string systemName;               ///< "system_name"
  std::optional<std::string> vendorId;  ///< "vendor_id", omitted when absent
  std::optional<std::string> language;  ///< "language", omitted when absent

  /// The description of the device behind `deviceInfo`.
  static DeviceAnalytics from(port::DeviceInfo& deviceInfo);
  /// The description of the current platform's device, read afresh.
  static DeviceAnalytics current();

  nlohmann::ordered_json toJson() const;
  /// Throws `detail::DecodingFailure` when a required key is missing or a key has the wrong type.
  static DeviceAnalytics fromJson(const nlohmann::json& json);

  friend bool operator==(const DeviceAnalytics&, const DeviceAnalytics&) = default;
};

}  // namespace orvanta::Constants
