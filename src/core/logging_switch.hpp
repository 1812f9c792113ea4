#pragma once

#include <string_view>

namespace orvanta::detail {

/// Preferences key of the persisted logging switch.
inline constexpr std::string_view kIsLoggingEnabledKey = "orvanta.userDefaults.isLoggingEnabled";

/// The persisted logging switch, read from the current platform's preferences on every call; a
/// missing or non-Boolean value reads as false.
bool isLoggingEnabled();

/// Persists the logging switch in the current platform's preferences.
void setLoggingEnabled(bool enabled);

}  // namespace orvanta::detail
