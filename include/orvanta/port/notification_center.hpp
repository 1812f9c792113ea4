#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "orvanta/error.hpp"
#include "orvanta/export.hpp"
#include "orvanta/value.hpp"

namespace orvanta::port {

/// What the user is asked to allow, as a bit set: badge (1), sound (2), alert (4).
using AuthorizationOptions = std::uint64_t;
inline constexpr AuthorizationOptions kAuthorizationOptionBadge = 1;
inline constexpr AuthorizationOptions kAuthorizationOptionSound = 2;
inline constexpr AuthorizationOptions kAuthorizationOptionAlert = 4;

/// How a notification is shown while the application is in front, as a bit set: badge (1),
/// sound (2), alert (4). Zero: not shown at all.
using PresentationOptions = std::uint64_t;
inline constexpr PresentationOptions kPresentationOptionBadge = 1;
inline constexpr PresentationOptions kPresentationOptionSound = 2;
inline constexpr PresentationOptions kPresentationOptionAlert = 4;

/// Options of a notification action, as a bit set. Foreground (4): choosing the action brings the
/// application to the front.
using NotificationActionOptions = std::uint32_t;
inline constexpr NotificationActionOptions kNotificationActionOptionForeground = 4;

/// The action identifier of a response that stands for a tap on the notification's body.
inline constexpr std::string_view kDefaultActionIdentifier = "default";

/// One button of a category.
struct NotificationAction {
  std::string identifier;
  std::string title;  ///< already localised
  NotificationActionOptions options = 0;

  friend bool operator==(const NotificationAction&, const NotificationAction&) = default;
};

/// A named set of buttons that a notification picks through its category identifier.
struct NotificationCategory {
  std::string identifier;
  std::vector<NotificationAction> actions;  ///< in the order they are shown

  friend bool operator==(const NotificationCategory&, const NotificationCategory&) = default;
};

/// A file shown with a notification (a picture).
struct NotificationAttachment {
  std::string identifier;
  std::string path;  ///< absolute path of a local file; its extension tells its type
};

/// What a notification shows and carries.
struct NotificationContent {
  std::string title;
  std::string body;
  /// The category whose buttons the notification shows; empty for none.
  std::string categoryIdentifier;
  /// The push's whole dictionary (for a remote notification, the JSON object it carried).
  ValueMap userInfo;
  std::vector<NotificationAttachment> attachments;
};

/// A notification to show: an identifier of the application's choosing and its content.
struct NotificationRequest {
  std::string identifier;
  NotificationContent content;
};

/// A notification the centre shows, or is about to show.
struct Notification {
  NotificationRequest request;
  std::chrono::system_clock::time_point date;
};

/// What the user did with a notification: tapped its body (`kDefaultActionIdentifier`) or one
/// of its buttons (the button's identifier).
struct NotificationResponse {
  Notification notification;
  std::string actionIdentifier;
};

/// Receives the notification centre's callbacks. Both run on the thread the centre chooses; each
/// completion handler must be called once (a second call is ignored) and may be called from any
/// thread.
class ORVANTA_API NotificationCenterDelegate {
 public:
  virtual ~NotificationCenterDelegate() = default;

  /// A notification is about to be shown while the application is in front; answer how to show
  /// it (0: not at all).
  virtual void willPresentNotification(
      const Notification& notification,
      std::function<void(PresentationOptions)> completionHandler) = 0;

  /// The user acted on a notification; call the handler once the response is handled.
  virtual void didReceiveNotificationResponse(const NotificationResponse& response,
                                              std::function<void()> completionHandler) = 0;
};

/// The system's notification centre: permission, categories, showing notifications, and the
/// user's responses. Every member may be called from any thread; completions run on a thread of
/// the centre's choosing, never inside the call that started them.
class ORVANTA_API NotificationCenter {
 public:
  virtual ~NotificationCenter() = default;

  /// Asks the user for permission to show notifications. The completion tells whether it was
  /// granted; an error, when present, says why it was not.
  virtual void requestAuthorization(
      AuthorizationOptions options,
      std::function<void(bool granted, std::optional<Error> error)> completionHandler) = 0;

  /// Replaces the whole set of categories; categories installed earlier are forgotten.
  virtual void setNotificationCategories(std::vector<NotificationCategory> categories) = 0;

  /// Shows a notification. As on the phone platforms, a notification that arrives while the
  /// application runs is first offered to the delegate's `willPresentNotification`; it is shown
  /// as an alert when the answer includes `kPresentationOptionAlert`, or at once when there is no
  /// delegate. The completion (optional) tells whether it could be handed to the system.
  virtual void add(NotificationRequest request,
                   std::function<void(std::optional<Error>)> completionHandler) = 0;

  /// The object that receives will-present and response callbacks; held weakly.
  virtual void setDelegate(std::weak_ptr<NotificationCenterDelegate> delegate) = 0;
  virtual std::shared_ptr<NotificationCenterDelegate> delegate() const = 0;
};

}  // namespace orvanta::port
