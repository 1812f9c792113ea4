#pragma once

#include <memory>

#include "orvanta/orvanta_push.hpp"
#include "orvanta/orvanta_push_interception.hpp"
#include "orvanta/port/application.hpp"
#include "orvanta/port/notification_center.hpp"

namespace orvanta {

/// The kit's hook on the platform's push callbacks: the notification centre's will-present and
/// response callbacks and the application's registration outcome, as the platform delivers them
/// to the kit (it is their delegate) or as a host forwards them (`OrvantaPushInterception`).
/// While the push options' automatic configuration is on, each reaches the push facade, which
/// completes the platform's request; then the host's handler, if any, runs with the same
/// arguments. Calls arrive on the thread the platform chooses.
class PushInterception : public port::NotificationCenterDelegate, public port::ApplicationDelegate {
 public:
  explicit PushInterception(std::shared_ptr<OrvantaPush::Impl> push);

  void willPresentNotification(
      const port::Notification& notification,
      std::function<void(port::PresentationOptions)> completionHandler) override;
  void didReceiveNotificationResponse(const port::NotificationResponse& response,
                                      std::function<void()> completionHandler) override;
  void didRegisterForRemoteNotifications(const std::vector<std::uint8_t>& deviceToken) override;
  void didFailToRegisterForRemoteNotifications(const Error& error) override;

  /// The same, followed by the host's own handler (when there is one).
  void willPresentNotification(const port::Notification& notification,
                               std::function<void(port::PresentationOptions)> completionHandler,
                               const OrvantaPushInterception::WillPresentHandler& hostHandler);
  void didReceiveNotificationResponse(const port::NotificationResponse& response,
                                      std::function<void()> completionHandler,
                                      const OrvantaPushInterception::ResponseHandler& hostHandler);
  void didRegisterForRemoteNotifications(const std::vector<std::uint8_t>& deviceToken,
                                         const OrvantaPushInterception::TokenHandler& hostHandler);

 private:
  /// The push facade, while automatic configuration is on.
  std::shared_ptr<OrvantaPush::Impl> enabledPush() const;

  std::weak_ptr<OrvantaPush::Impl> push_;
};

}  // namespace orvanta
