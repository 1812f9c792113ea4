#pragma once

#include <string>

namespace orvanta {

/// Reads the host's credentials from the resource "OrvantaConfig" of type "plist" in the bundle of
/// the current platform. The file is read again on every access (nothing is cached); a missing or
/// unreadable file, a missing key or a value that is not a string all give the empty string.
class OrvantaConfigFileHelper {
 public:
  static std::string token();
  static std::string secret();
  static std::string appId();
  static std::string eventsToken();
};

}  // namespace orvanta
