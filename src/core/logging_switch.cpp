#include "core/logging_switch.hpp"

#include <string>
#include <variant>

#include "orvanta/platform.hpp"

namespace orvanta::detail {

bool isLoggingEnabled() {
  auto platform = currentPlatform();
  auto value = platform->preferences->object(std::string(kIsLoggingEnabledKey));
  if (!value) {
    return false;
  }
  if (const bool* flag = std::get_if<bool>(&*value)) {
    return *flag;
  }
  return false;
}

void setLoggingEnabled(bool enabled) {
  auto platform = currentPlatform();
  platform->preferences->setObject(std::string(kIsLoggingEnabledKey),
                                   port::PreferenceValue(enabled));
}

}  // namespace orvanta::detail
