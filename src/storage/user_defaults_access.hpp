#pragma once

#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>

#include "core/logging_switch.hpp"
#include "orvanta/port/preferences_store.hpp"

namespace orvanta {

/// The kit's view of the platform's preferences store. Values are Booleans, integers, floating
/// point numbers or strings. Every member may be called from any thread; the store does its own
/// locking.
class UserDefaultsAccess {
 public:
  /// The kit's preference keys.
  struct Key {
    static constexpr std::string_view isLoggingEnabled = detail::kIsLoggingEnabledKey;
  };

  explicit UserDefaultsAccess(std::shared_ptr<port::PreferencesStore> defaults);

  /// Stores `value` under `key`; no value removes the entry.
  template <class T>
  void set(const std::optional<T>& value, const std::string& key) {
    if (!value) {
      defaults_->setObject(key, std::nullopt);
      return;
    }
    defaults_->setObject(key, toPreference(*value));
  }

  /// The value under `key` when it is of type T (an integer also reads as a floating point
  /// number); none otherwise.
  template <class T>
  std::optional<T> value(const std::string& key) {
    auto stored = defaults_->object(key);
    if (!stored) {
      return std::nullopt;
    }
    if constexpr (std::is_same_v<T, bool> || std::is_same_v<T, std::string> ||
                  std::is_same_v<T, std::int64_t>) {
      if (const T* found = std::get_if<T>(&*stored)) {
        return *found;
      }
      return std::nullopt;
    } else if constexpr (std::is_same_v<T, int>) {
      if (const auto* found = std::get_if<std::int64_t>(&*stored)) {
        if (*found >= std::numeric_limits<int>::min() &&
            *found <= std::numeric_limits<int>::max()) {
          return static_cast<int>(*found);
        }
      }
      return std::nullopt;
    } else if constexpr (std::is_same_v<T, double>) {
      if (const auto* found = std::get_if<double>(&*stored)) {
        return *found;
      }
      if (const auto* found = std::get_if<std::int64_t>(&*stored)) {
        return static_cast<double>(*found);
      }
      return std::nullopt;
    } else {
      static_assert(std::is_same_v<T, bool>, "unsupported preference type");
    }
  }

 private:
  static port::PreferenceValue toPreference(bool value) { return value; }
  static port::PreferenceValue toPreference(int value) { return std::int64_t{value}; }
  static port::PreferenceValue toPreference(std::int64_t value) { return value; }
  static port::PreferenceValue toPreference(double value) { return value; }
  static port::PreferenceValue toPreference(const std::string& value) { return value; }

  std::shared_ptr<port::PreferencesStore> defaults_;
};

}  // namespace orvanta
