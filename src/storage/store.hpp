#pragma once

#include <memory>

#include "storage/keychain_access.hpp"
#include "storage/user_defaults_access.hpp"

namespace orvanta {

/// Where the kit's code finds its key-value stores. Each accessor hands out one shared wrapper
/// over the current platform's store, and a new one once another platform has been installed.
/// Any thread.
class Store {
 public:
  Store() = delete;
  static std::shared_ptr<KeychainAccess> keychain();
  static std::shared_ptr<UserDefaultsAccess> userDefaults();
};

}  // namespace orvanta
