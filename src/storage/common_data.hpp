#pragma once

#include <memory>
#include <optional>
#include <string>

#include "storage/user_defaults_access.hpp"

namespace orvanta {

/// Small values shared between the kit's components, kept in the preferences store.
/// Any thread.
class CommonData {
 public:
  explicit CommonData(std::shared_ptr<UserDefaultsAccess> userDefaults);

  /// Id of the last push the user opened ("commonData.lastOpenedPushId").
  std::optional<std::string> lastOpenedPushId() const;
  void setLastOpenedPushId(const std::optional<std::string>& pushId);

 private:
  std::shared_ptr<UserDefaultsAccess> userDefaults_;
  const std::string lastOpenedPushIdKey_ = std::string("commonData.") + "lastOpenedPushId";
};

}  // namespace orvanta
