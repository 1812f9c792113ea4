#include "storage/common_data.hpp"

#include "storage/store.hpp"

namespace orvanta {

CommonData& CommonData::shared() {
  static auto* instance = new CommonData();
  return *instance;
}

std::optional<std::string> CommonData::lastOpenedPushId() const {
  return Store::userDefaults()->value<std::string>(lastOpenedPushIdKey_);
}

void CommonData::setLastOpenedPushId(const std::optional<std::string>& pushId) {
  Store::userDefaults()->set(pushId, lastOpenedPushIdKey_);
}

}  // namespace orvanta
