#pragma once

// Test support for the record tests: a fixed device description on the test platform, and
// values printed as JSON in failure messages.

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <ostream>
#include <string>

#include "models/value_json.hpp"
#include "orvanta/platform.hpp"
#include "orvanta/value.hpp"
#include "testing/platform_test.hpp"

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

/// Each test runs on a fresh test platform whose configuration file holds the application
/// identifier "app-1" and whose device is a `FixedDeviceInfo`.
class RecordsTest : public orvanta::testing::PlatformTest {
 protected:
  void SetUp() override {
    PlatformTest::SetUp();
    writeConfig({{"AppId", "app-1"}});
    deviceInfo_ = std::make_shared<FixedDeviceInfo>();
    platform()->deviceInfo = deviceInfo_;
  }

  std::shared_ptr<FixedDeviceInfo> deviceInfo_;
};

}  // namespace orvanta::testing_records
