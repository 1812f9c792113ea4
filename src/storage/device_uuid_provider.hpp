#pragma once

#include <string>

#include "storage/keychain_access.hpp"

namespace orvanta {

/// The installation's stable identifier, kept in the secure store under "uuid". Any thread.
class DeviceUuidProvider {
 public:
  DeviceUuidProvider() = delete;
  /// The identifier stored in `keychain`. When there is none, a new random one is made, stored and
  /// returned. A stored item that is not UTF-8 reads as the empty string, which is returned as it
  /// is.
  static std::string uuid(KeychainAccess& keychain);
  /// Stores `uuid`; failures are dropped (a new identifier is then made on the next read).
  static void setUuid(KeychainAccess& keychain, const std::string& uuid);
};

}  // namespace orvanta
