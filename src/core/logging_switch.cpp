#include "core/logging_switch.hpp"

#include <string>
#include <variant>

namespace orvanta::detail {

namespace {

/// The key as the store takes it, made once: the switch is read for every line the kit may log.
const std::string& key() {
  static const auto* text = new std::string(kIsLoggingEnabledKey);  // never destroyed
  return *text;
}

}  // namespace

bool isLoggingEnabled(port::PreferencesStore& preferences) {
  auto value = preferences.object(key());
  if (!value) {
    return false;
  }
  if (const bool* flag = std::get_if<bool>(&*value)) {
    return *flag;
  }
  return false;
}

void setLoggingEnabled(port::PreferencesStore& preferences, bool enabled) {
  // Every launch sets the switch (the default configuration, then the host's choice) and mostly
  // to what it was: a store may have to write and sync a file for each change. A switch never set
  // reads as off, so switching it off writes nothing either: a first launch makes no preferences
  // file, and waits for no disk sync, until something is switched on or stored.
  const auto stored = preferences.object(key());
  if (stored ? *stored == port::PreferenceValue(enabled) : !enabled) {
    return;
  }
  preferences.setObject(key(), port::PreferenceValue(enabled));
}

}  // namespace orvanta::detail
