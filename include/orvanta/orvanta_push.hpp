#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "orvanta/error.hpp"
#include "orvanta/export.hpp"
#include "orvanta/port/notification_center.hpp"
#include "orvanta/value.hpp"

namespace orvanta {

/// What the kit asks of the user, and whether it hooks the platform's push callbacks itself.
/// One object is shared by whoever holds it: changing it changes it for the push facade too.
/// Every member may be called from any thread.
class ORVANTA_API OrvantaPushOptions {
 public:
  OrvantaPushOptions(port::AuthorizationOptions authorizationOptions,
                     bool useAutomaticConfiguration);

  /// Badge, sound and alert (7), and automatic configuration on.
  static std::shared_ptr<OrvantaPushOptions> defaultOptions();

  port::AuthorizationOptions authorizationOptions() const { return authorizationOptions_.load(); }
  void setAuthorizationOptions(port::AuthorizationOptions options) {
    authorizationOptions_.store(options);
  }

  /// When on, the platform's token and notification callbacks reach the kit first (see
  /// `OrvantaPush`); when off, only the host's own handlers run.
  bool useAutomaticConfiguration() const { return useAutomaticConfiguration_.load(); }
  void setUseAutomaticConfiguration(bool enabled) { useAutomaticConfiguration_.store(enabled); }

 private:
  std::atomic<port::AuthorizationOptions> authorizationOptions_;
  std::atomic<bool> useAutomaticConfiguration_;
};

/// The host's listener for pushes. Each member is optional: the kit calls only those that are
/// set, and a member left empty means the host does not handle that moment. They run on the
/// thread of the notification centre's callback (the main queue on Linux).
///
///   auto delegate = std::make_shared<orvanta::OrvantaPushDelegate>();
///   delegate->didOpenNotificationWithUserInfo = [](const orvanta::ValueMap& info) { ... };
///   orvanta::Orvanta::push().setDelegate(delegate);   // held weakly: keep `delegate` alive
struct ORVANTA_API OrvantaPushDelegate {
  /// A notification arrived while the application is in front.
  std::function<void(const ValueMap& userInfo)> didRecieveNotificationWithUserInfo;
  /// The user tapped the body of one of the kit's notifications. When set, the host navigates
  /// and the kit performs no action of its own.
  std::function<void(const ValueMap& userInfo)> didOpenNotificationWithUserInfo;
  /// The user tapped a button of one of the kit's notifications (`identifier` is the button's
  /// whole identifier, "ORVANTA_PUSH_ACTION_ACCEPT" say). When set, the kit performs no action of
  /// its own.
  std::function<void(const std::string& identifier, const ValueMap& userInfo)>
      didClickOnActionButtonWithIdentifier;
  /// The last push the user did not see is available when the application comes back. When set,
  /// the kit shows nothing itself; calling `completion(true)` reports that the host showed it.
  std::function<void(const ValueMap& userInfo, std::function<void(bool displayed)> completion)>
      unreachedNotificationIsAvailableToDisplay;
};

/// The host's view of this installation's registration, apart from `OrvantaPushDelegate` (whose
/// callbacks stay as they are). Each member is optional. All of them run on the main queue, in the
/// order things happened; they must not block it.
///
///   auto observer = std::make_shared<orvanta::OrvantaRegistrationObserver>();
///   observer->didRegisterWithService = [](const auto& token) { ... };
///   orvanta::Orvanta::push().setRegistrationObserver(observer);  // held weakly
struct ORVANTA_API OrvantaRegistrationObserver {
  /// The push transport gave this installation a token; `token` is its lower-case hex text, as
  /// the service receives it.
  std::function<void(const std::string& token)> didReceiveToken;
  /// The service accepted the device record (after a new token, `OrvantaUserData::saveUser`, or a
  /// retry); `deviceToken` is the token in the record it accepted, none before the first.
  std::function<void(const std::optional<std::string>& deviceToken)> didRegisterWithService;
  /// Registration failed: the push transport gave no token (no distributor, say), or the service
  /// refused the record or could not be reached (the kit tries again every 60 seconds).
  std::function<void(const Error& error)> didFailToRegister;
};

/// The push facade, reached as `Orvanta::push()`. One instance exists, owned by the kit.
/// Every member may be called from any thread and never throws; no failure reaches the host.
class ORVANTA_API OrvantaPush {
 public:
  /// The host's listener, held weakly: a released delegate simply stops being called.
  void setDelegate(std::shared_ptr<OrvantaPushDelegate> delegate);
  std::shared_ptr<OrvantaPushDelegate> delegate() const;

  /// The host's registration observer, held weakly like the delegate.
  void setRegistrationObserver(std::shared_ptr<OrvantaRegistrationObserver> observer);
  std::shared_ptr<OrvantaRegistrationObserver> registrationObserver() const;

  /// The options in force (`OrvantaPushOptions::defaultOptions()` until the host registers).
  std::shared_ptr<OrvantaPushOptions> options() const;
  void setOptions(std::shared_ptr<OrvantaPushOptions> options);

  /// Keeps `options`, asks the user's permission with its authorization options and, once
  /// granted, registers the application for remote notifications on the main queue, logging
  /// "Successfully registered for Push Notifications". Refused permission is silent.
  void registerForPushNotifications(std::shared_ptr<OrvantaPushOptions> options);
  /// Gives the remote-notification address up (on the main queue). Nothing is sent to the
  /// service.
  void unregisterForPushNotifications();

  /// The platform delivered this installation's push token. The token, written as two lower-case
  /// hex digits per byte, is stored in the device record and registered with the push service
  /// (retried every 60 seconds until the service accepts it); "APNs token retrieved: " + token is
  /// logged and the kit's 29 notification categories are installed.
  void didRegisterForRemoteNotifications(const std::vector<std::uint8_t>& deviceToken);
  /// Registration failed: logs "Failed to register for remote notifications with error: " and
  /// the error's text. Nothing is retried.
  void didFailToRegisterForRemoteNotifications(const Error& error);

  /// A notification is about to be shown while the application is in front: logs its user info,
  /// tells the delegate, and answers `presentationOptions` unchanged.
  port::PresentationOptions willPresentNotification(const port::Notification& notification,
                                                    port::PresentationOptions presentationOptions);
  /// The user acted on a notification. For one of the kit's pushes, once the device has a token:
  /// a tap on the body goes to the delegate (or opens the push's action) and is reported as
  /// clicked; a button goes to the delegate (or runs the button's action) and is reported with
  /// its identifier. Anything else is ignored.
  void didReceiveNotificationResponse(const port::NotificationResponse& response);

  class Impl;  ///< internal
  explicit OrvantaPush(std::shared_ptr<Impl> impl);
  ~OrvantaPush();
  OrvantaPush(const OrvantaPush&) = delete;
  OrvantaPush& operator=(const OrvantaPush&) = delete;

  const std::shared_ptr<Impl>& impl() const { return impl_; }

 private:
  std::shared_ptr<Impl> impl_;
};

}  // namespace orvanta
