#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "orvanta/export.hpp"

namespace orvanta {

/// The host's configuration, handed to `Orvanta::configure`. It keeps no state of its own: the
/// four credentials are read from the host's "OrvantaConfig.plist" (keys "AppId", "Token",
/// "Secret", "EventsToken") on every access, and `isLoggingEnabled` lives in the preferences
/// store, shared by every configuration object and kept across launches.
///
/// The last value a host sets through `setIsLoggingEnabled` on an object is also remembered by
/// that object and applied again when the object is passed to `Orvanta::configure`: creating the
/// shared instance switches logging off, and a host that asked for logging on the configuration
/// it installs gets it, whichever comes first.
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

 private:
  friend class Orvanta;
  enum LoggingChoice : int { kUnset = -1, kOff = 0, kOn = 1 };
  std::atomic<int> loggingChoice_{kUnset};
};

}  // namespace orvanta
