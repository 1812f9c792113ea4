#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "orvanta/export.hpp"
#include "orvanta/port/notification_center.hpp"

namespace orvanta {

/// The kit's handling of the platform's three push callbacks, for a host that receives them
/// itself (its own notification-centre or application delegate) instead of leaving them to the
/// kit. The host calls the matching member from its callback and passes its own handler: while
/// automatic configuration is on (`Orvanta::isAutoConfigurationForPushNotificationsEnabled`),
/// the kit handles the callback and completes the platform's request first, then the host's
/// handler runs with the same arguments and the same completion; while it is off, only the
/// host's handler runs. A host that also calls the completion completes the request twice.
///
/// Call them on the thread of the platform's callback; never throws.
class ORVANTA_API OrvantaPushInterception {
 public:
  using TokenHandler = std::function<void(const std::vector<std::uint8_t>& deviceToken)>;
  using WillPresentHandler =
      std::function<void(const port::Notification& notification,
                         std::function<void(port::PresentationOptions)> completionHandler)>;
  using ResponseHandler = std::function<void(const port::NotificationResponse& response,
                                             std::function<void()> completionHandler)>;

  /// The push token arrived: the kit registers it
  /// (`OrvantaPush::didRegisterForRemoteNotifications`).
  static void didRegisterForRemoteNotifications(const std::vector<std::uint8_t>& deviceToken,
                                                TokenHandler hostHandler = {});
  /// A notification is about to be shown in front: the kit completes the request with its answer
  /// for an alert (`OrvantaPush::willPresentNotification` with alert).
  static void willPresentNotification(const port::Notification& notification,
                                      std::function<void(port::PresentationOptions)> completion,
                                      WillPresentHandler hostHandler = {});
  /// The user acted on a notification: the kit handles it
  /// (`OrvantaPush::didReceiveNotificationResponse`), then completes the request.
  static void didReceiveNotificationResponse(const port::NotificationResponse& response,
                                             std::function<void()> completion,
                                             ResponseHandler hostHandler = {});

  OrvantaPushInterception() = delete;
};

}  // namespace orvanta
