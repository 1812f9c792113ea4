#include "push/remote_notification.hpp"

#include <string>

#include "core/uuid.hpp"
#include "push/push_notification_categories.hpp"

namespace orvanta {
namespace {

const ValueMap* mapAt(const ValueMap& map, const char* key) {
  auto found = map.find(key);
  return found == map.end() ? nullptr : found->second.map();
}

const std::string* stringAt(const ValueMap* map, const char* key) {
  if (map == nullptr) {
    return nullptr;
  }
  auto found = map->find(key);
  return found == map->end() ? nullptr : found->second.string();
}

}  // namespace

port::NotificationRequest notificationRequestFromUserInfo(const ValueMap& userInfo) {
  port::NotificationRequest request;
  auto& content = request.content;
  content.userInfo = userInfo;

  const ValueMap* aps = mapAt(userInfo, "aps");
  const ValueMap* data = mapAt(userInfo, "data");
  const ValueMap* alertObject = aps != nullptr ? mapAt(*aps, "alert") : nullptr;
  const std::string* alertText = stringAt(aps, "alert");

  const std::string* title = stringAt(alertObject, "title");
  const std::string* body = alertText != nullptr ? alertText : stringAt(alertObject, "body");
  if (title == nullptr && body == nullptr) {
    title = stringAt(data, "title");
    body = stringAt(data, "body");
  }
  content.title = title != nullptr ? *title : "";
  content.body = body != nullptr ? *body : "";

  const std::string* category = stringAt(aps, "category");
  if (category == nullptr && data != nullptr) {
    category = stringAt(mapAt(*data, "action_buttons"), "category_id");
  }
  if (category != nullptr) {
    using Factory = OrvantaPushNotificationCategoriesFactory;
    auto known = Factory::categoryFromId(*category);
    content.categoryIdentifier = known ? Factory::identifier(*known) : *category;
  }

  const std::string* id = stringAt(data, "id");
  request.identifier = id != nullptr ? *id : makeUuidString();
  return request;
}

}  // namespace orvanta
