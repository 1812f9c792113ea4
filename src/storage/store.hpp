#pragma once

#include <memory>

#include "storage/keychain_access.hpp"
#include "storage/user_defaults_access.hpp"

namespace orvanta {

/// The kit's shared key-value stores: the wrappers over the secure store and the preferences store
/// of the platform in force, the same objects its components are built with (a new pair once
/// another platform is installed). Any thread.
class Store {
 public:
  Store() = delete;
  static std::shared_ptr<KeychainAccess> keychain();
  static std::shared_ptr<UserDefaultsAccess> userDefaults();
};

}  // namespace orvanta
