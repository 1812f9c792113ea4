// The kit's shared accessors are views of the process context (see platform_installation.hpp).

#include "entry/platform_installation.hpp"
#include "storage/store.hpp"

namespace orvanta {

std::shared_ptr<AuthData> AuthData::shared() {
  return detail::processContext()->authData();
}

std::shared_ptr<KeychainAccess> Store::keychain() {
  return detail::processContext()->keychain();
}

std::shared_ptr<UserDefaultsAccess> Store::userDefaults() {
  return detail::processContext()->userDefaults();
}

std::shared_ptr<KeychainAccess> KeychainAccess::standard() {
  return Store::keychain();
}

std::shared_ptr<UserDefaultsAccess> UserDefaultsAccess::standard() {
  return Store::userDefaults();
}

CommonData& CommonData::shared() {
  return *detail::processContext()->commonData();
}

}  // namespace orvanta
