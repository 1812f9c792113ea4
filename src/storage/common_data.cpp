#include "storage/common_data.hpp"

#include <utility>

namespace orvanta {

CommonData::CommonData(std::shared_ptr<UserDefaultsAccess> userDefaults)
    : userDefaults_(std::move(userDefaults)) {}

std::optional<std::string> CommonData::lastOpenedPushId() const {
  return userDefaults_->value<std::string>(lastOpenedPushIdKey_);
}

void CommonData::setLastOpenedPushId(const std::optional<std::string>& pushId) {
  userDefaults_->set(pushId, lastOpenedPushIdKey_);
}

}  // namespace orvanta
