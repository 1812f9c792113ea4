#include "objc/interception_hooks.hpp"

#include "orvanta/orvanta.hpp"

namespace orvanta::objc {

InterceptionHooks kitInterceptionHooks() {
  return {
      .isAutoConfigurationEnabled =
          [] { return Orvanta::isAutoConfigurationForPushNotificationsEnabled(); },
      .didRegisterForRemoteNotifications =
          [](const std::vector<std::uint8_t>& deviceToken) {
            Orvanta::push().didRegisterForRemoteNotifications(deviceToken);
          },
      .willPresentNotification =
          [](const port::Notification& notification, port::PresentationOptions options) {
            return Orvanta::push().willPresentNotification(notification, options);
          },
      .didReceiveNotificationResponse =
          [](const port::NotificationResponse& response) {
            Orvanta::push().didReceiveNotificationResponse(response);
          },
  };
}

}  // namespace orvanta::objc
