#include "storage/user_defaults_access.hpp"

#include <utility>

namespace orvanta {

UserDefaultsAccess::UserDefaultsAccess(std::shared_ptr<port::PreferencesStore> defaults)
    : defaults_(std::move(defaults)) {}

}  // namespace orvanta
