#include "core/logging_switch.hpp"

#include <string>
#include <variant>

namespace orvanta::detail {

bool isLoggingEnabled(port::PreferencesStore& preferences) {
  auto value = preferences.object(std::string(kIsLoggingEnabledKey));
  if (!value) {
    return false;
  }
  if (const bool* flag = std::get_if<bool>(&*value)) {
    return *flag;
  }
  return false;
}

void setLoggingEnabled(port::PreferencesStore& preferences, bool enabled) {
  preferences.setObject(std::string(kIsLoggingEnabledKey), port::PreferenceValue(enabled));
}

}  // namespace orvanta::detail
