#pragma once

// Test support for the record tests: a fixed device description, and
// values printed as JSON in failure messages.

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <ostream>
#include <string>

#include "models/orvanta_device.hpp"
#include "models/value_json.hpp"
#include "orvanta/port/device_info.hpp"
#include "orvanta/value.hpp"

namespace orvanta {

// Values print as JSON in test failures (dates as "date(seconds since 2001)").
inline void PrintTo(const Value& value, std::ostream* out) {
  if (auto date = value.date()) {
    *out << "date(" << date->timeIntervalSinceReferenceDate() << ")";
  } else if (auto json = detail::valueToJson(value)) {
    *out << json->dump();
  } else {
    *out << "<value without JSON form>";
  }
}

}  // namespace orvanta

namespace orvanta::testing_records {

class FixedDeviceInfo : public port::DeviceInfo {
 public:
  std::string machineName = std::string("x86_64\0\0\0", 9);
  std::optional<std::string> simulatorModel;
  std::optional<std::string> vendor;
  std::optional<std::string> language = "en";

  std::string machine() override { return machineName; }
  std::string systemName() override { return "Debian GNU/Linux"; }
  std::string systemVersion() override { return "12"; }
  std::optional<std::string> vendorId() override { return vendor; }
  std::optional<std::string> languageCode() override { return language; }
  std::optional<std::string> environment(const std::string& name) override {
    return name == "SIMULATOR_MODEL_IDENTIFIER" ? simulatorModel : std::nullopt;
  }
};

/// Records of the application "app-1" on a `FixedDeviceInfo` device.
class RecordsTest : public ::testing::Test {
 protected:
  /// A new device record for the installation `id`, describing `deviceInfo_`.
  OrvantaDevice newDevice(const std::string& id) {
    return OrvantaDevice(id, "IOS", "app-1", Constants::DeviceAnalytics::from(*deviceInfo_));
  }

  std::shared_ptr<FixedDeviceInfo> deviceInfo_ = std::make_shared<FixedDeviceInfo>();
};

}  // namespace orvanta::testing_records
