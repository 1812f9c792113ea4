#pragma once

#include <optional>
#include <string>

namespace orvanta {

/// Small values shared between the kit's components, kept in the preferences store.
/// Any thread.
class CommonData {
 public:
  static CommonData& shared();

  /// Id of the last push the user opened ("commonData.lastOpenedPushId").
  std::optional<std::string> lastOpenedPushId() const;
  void setLastOpenedPushId(const std::optional<std::string>& pushId);

 private:
  CommonData() = default;
  const std::string lastOpenedPushIdKey_ = std::string("commonData.") + "lastOpenedPushId";
};

}  // namespace orvanta
