#include "storage/user_defaults_access.hpp"

#include <utility>

#include "storage/store.hpp"

namespace orvanta {

UserDefaultsAccess::UserDefaultsAccess(std::shared_ptr<port::PreferencesStore> defaults)
    : defaults_(std::move(defaults)) {}

std::shared_ptr<UserDefaultsAccess> UserDefaultsAccess::standard() {
  return Store::userDefaults();
}

}  // namespace orvanta
