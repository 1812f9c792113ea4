#pragma once

#include <optional>
#include <string>

#include "orvanta/export.hpp"

namespace orvanta::port {

/// Read-only resources: the host's bundle (configuration file) and the kit's string tables.
class ORVANTA_API Bundle {
 public:
  virtual ~Bundle() = default;
  /// Path of resource `name` of type `type` ("OrvantaConfig", "plist"), when it exists.
  virtual std::optional<std::string> pathForResource(const std::string& name,
                                                     const std::string& type) = 0;
  /// The localised string for `key` in string table `table`; the key itself when there is none.
  virtual std::string localizedString(const std::string& key, const std::string& table) = 0;
};

}  // namespace orvanta::port
