#pragma once

#include <optional>
#include <string>

#include "orvanta/export.hpp"

namespace orvanta::port {

/// Facts about the device and its system.
class ORVANTA_API DeviceInfo {
 public:
  virtual ~DeviceInfo() = default;
  /// The hardware name as the system reports it (uname's machine field), untrimmed.
  virtual std::string machine() = 0;
  virtual std::string systemName() = 0;
  virtual std::string systemVersion() = 0;
  /// Identifier for the vendor in canonical UUID text; none where the system has no such thing.
  virtual std::optional<std::string> vendorId() = 0;
  /// Language code of the current locale ("en"), none when unknown.
  virtual std::optional<std::string> languageCode() = 0;
  /// A variable of the process environment.
  virtual std::optional<std::string> environment(const std::string& name) = 0;
};

}  // namespace orvanta::port
