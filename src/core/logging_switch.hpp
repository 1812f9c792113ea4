#pragma once

#include <string_view>

#include "orvanta/port/preferences_store.hpp"

namespace orvanta::detail {

/// Preferences key of the persisted logging switch.
inline constexpr std::string_view kIsLoggingEnabledKey = "orvanta.userDefaults.isLoggingEnabled";

/// The persisted logging switch, read from `preferences` on every call; a missing or non-Boolean
/// value reads as false.
bool isLoggingEnabled(port::PreferencesStore& preferences);

/// Persists the logging switch in `preferences`; a switch that holds `enabled` already is not
/// written again.
void setLoggingEnabled(port::PreferencesStore& preferences, bool enabled);

}  // namespace orvanta::detail
