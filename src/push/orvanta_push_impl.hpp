#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "models/orvanta_notification_payload.hpp"
#include "networking/auth_data.hpp"
#include "orvanta/orvanta_push.hpp"
#include "orvanta/port/application.hpp"
#include "orvanta/port/main_queue.hpp"
#include "orvanta/port/notification_center.hpp"
#include "push/orvanta_notification_status_reporter.hpp"
#include "push/push_action_handler.hpp"
#include "push/push_notification_categories.hpp"

namespace orvanta {

/// The push facade's state and behaviour. Always owned by a `std::shared_ptr`; the permission
/// completion and the main-queue work hold it weakly.
class OrvantaPush::Impl : public std::enable_shared_from_this<OrvantaPush::Impl> {
 public:
  struct Dependencies {
    /// Device registration: where the token goes, where the token of a response is read.
    std::shared_ptr<AuthData> authData;
    std::shared_ptr<port::NotificationCenter> notificationCenter;
    std::shared_ptr<port::Application> application;
    /// Where the application registration calls are made.
    std::shared_ptr<port::MainQueue> mainQueue;
    std::shared_ptr<OrvantaPushNotificationCategoriesFactory> categoriesFactory;
    std::shared_ptr<OrvantaNotificationStatusReporter> statusReporter;
    /// The kit's own handling of a push's actions.
    std::shared_ptr<PushActionHandler> actionHandler;
  };

  explicit Impl(Dependencies dependencies);

  void setDelegate(std::shared_ptr<OrvantaPushDelegate> delegate);
  std::shared_ptr<OrvantaPushDelegate> delegate() const;
  void setRegistrationObserver(std::shared_ptr<OrvantaRegistrationObserver> observer);
  std::shared_ptr<OrvantaRegistrationObserver> registrationObserver() const;
  std::shared_ptr<OrvantaPushOptions> options() const;
  void setOptions(std::shared_ptr<OrvantaPushOptions> options);

  void registerForPushNotifications(std::shared_ptr<OrvantaPushOptions> options);
  void unregisterForPushNotifications();
  void didRegisterForRemoteNotifications(const std::vector<std::uint8_t>& deviceToken);
  void didFailToRegisterForRemoteNotifications(const Error& error);
  port::PresentationOptions willPresentNotification(const port::Notification& notification,
                                                    port::PresentationOptions presentationOptions);
  void didReceiveNotificationResponse(const port::NotificationResponse& response);

  const Dependencies& dependencies() const { return dependencies_; }

 private:
  void handleOpenedNotification(const OrvantaNotificationPayload& payload);
  void handleNotificationAction(const std::string& identifier,
                                const OrvantaNotificationPayload& payload);

  Dependencies dependencies_;
  mutable std::mutex mutex_;
  /// Runs `call` with the registration observer on the main queue, when one is set then.
  void tellObserver(std::function<void(const OrvantaRegistrationObserver&)> call) const;

  std::weak_ptr<OrvantaPushDelegate> delegate_;          ///< guarded by mutex_
  std::weak_ptr<OrvantaRegistrationObserver> observer_;  ///< guarded by mutex_
  bool observingAuthData_ = false;                       ///< guarded by mutex_
  std::shared_ptr<OrvantaPushOptions> options_;          ///< guarded by mutex_
};

namespace detail {

/// Each byte as two lower-case hex digits, in order.
std::string hexString(const std::vector<std::uint8_t>& bytes);

}  // namespace detail

}  // namespace orvanta
