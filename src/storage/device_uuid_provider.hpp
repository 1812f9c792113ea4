#pragma once

#include <string>

namespace orvanta {

/// The installation's stable identifier, kept in the secure store under "uuid". Any thread.
class DeviceUuidProvider {
 public:
  DeviceUuidProvider() = delete;

  /// The stored identifier. When there is none, a new random one is made, stored and returned.
  /// A stored item that is not UTF-8 reads as the empty string, which is returned as it is.
  static std::string uuid();

  /// Stores `uuid`; failures are dropped (a new identifier is then made on the next read).
  static void setUuid(const std::string& uuid);
};

}  // namespace orvanta
