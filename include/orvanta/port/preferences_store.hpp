#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>

#include "orvanta/export.hpp"

namespace orvanta::port {

/// A value kept in the preferences store.
using PreferenceValue = std::variant<bool, std::int64_t, double, std::string>;

/// The platform's per-application preferences store. Thread-safe; writes survive a restart.
class ORVANTA_API PreferencesStore {
 public:
  virtual ~PreferencesStore() = default;
  virtual std::optional<PreferenceValue> object(const std::string& key) = 0;
  /// Stores the value; no value removes the entry.
  virtual void setObject(const std::string& key, const std::optional<PreferenceValue>& value) = 0;
};

}  // namespace orvanta::port
