#pragma once

#include <memory>
#include <string>

#include "orvanta/export.hpp"

namespace orvanta {

/// The host's configuration, handed to `Orvanta::configure`. It keeps no state of its own: the
/// four credentials are read from the host's "OrvantaConfig.plist" (keys "AppId", "Token",
/// "Secret", "EventsToken") on every access, and `isLoggingEnabled` lives in the preferences
/// store, shared by every configuration object and kept across launches.
///
/// All members may be called from any thread.
class ORVANTA_API OrvantaConfiguration {
 public:
  /// A configuration that leaves the persisted logging switch as it is.
  OrvantaConfiguration() = default;

  /// A new configuration; switches logging off (persisted) as a side effect. The usual start:
  /// take `defaultConfiguration()`, `setIsLoggingEnabled(true)` if wanted, pass it to `configure`.
  static std::shared_ptr<OrvantaConfiguration> defaultConfiguration();

  /// The credentials; the empty string when the file, the key or a string value is missing.
  std::string appId() const;
  std::string token() const;
  std::string secret() const;
  std::string eventsToken() const;

  /// The persisted logging switch ("orvanta.userDefaults.isLoggingEnabled"); false when unset.
  bool isLoggingEnabled() const;
  void setIsLoggingEnabled(bool enabled);
};

}  // namespace orvanta
