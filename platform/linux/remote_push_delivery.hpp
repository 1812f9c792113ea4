#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>

#include "orvanta/orvanta_notification_service_extension.hpp"
#include "orvanta/port/main_queue.hpp"
#include "orvanta/port/notification_center.hpp"
#include "orvanta/value.hpp"

namespace orvanta::linux_platform {

/// What a Linux desktop does with a remote push before the user sees it, in the part the phone
/// platforms leave to the system: the notification is built from the push's dictionary
/// (`notificationRequestFromUserInfo`), a new notification service extension gets it with a time
/// budget, and the content the extension hands over goes to the notification centre.
///
/// - The extension is made (by `makeExtension`, else by the kit's factory, see `setKitExtension`)
///   and called on the main queue: `didReceive` at once, `serviceExtensionTimeWillExpire` once the
///   budget is spent and nothing was handed over yet. If even then nothing was, the push is shown
///   as it came and the kit's log says so.
/// - The first content handed over is shown; later calls are ignored. The extension is released
///   on the main queue once the push was shown (a download still under way is then cancelled).
/// - No factory, or one that throws or gives no extension: the push is shown as it came.
///
/// `deliver` may be called from any thread and returns at once.
class RemotePushDelivery : public std::enable_shared_from_this<RemotePushDelivery> {
 public:
  using ExtensionFactory = std::function<std::shared_ptr<OrvantaNotificationServiceExtension>()>;

  struct Options {
    std::shared_ptr<port::NotificationCenter> notificationCenter;
    std::shared_ptr<port::MainQueue> mainQueue;
    /// Makes the extension of one push (the host's); empty: the kit's factory.
    ExtensionFactory makeExtension{};
    /// How long an extension may take; zero or less: 30 seconds.
    std::chrono::milliseconds budget{30'000};
  };

  static std::shared_ptr<RemotePushDelivery> make(Options options);

  /// Takes one push: its dictionary, the JSON object the application server sent.
  void deliver(ValueMap userInfo);

  /// The factory of the kit's own extension (`OrvantaNotificationServiceExtension` over the kit's
  /// context), which the kit's entry hands over when it binds the platform; used for pushes
  /// delivered from then on when `makeExtension` is empty. Any thread.
  void setKitExtension(ExtensionFactory makeExtension);

 private:
  explicit RemotePushDelivery(Options options);
  Options options_;
  std::mutex mutex_;
  ExtensionFactory kitExtension_;  ///< guarded by mutex_
};

/// An application object that delivers remote pushes itself; `orvanta::deliverRemoteNotification`
/// hands a host's pushes to the same delivery.
class RemotePushReceiver {
 public:
  virtual ~RemotePushReceiver() = default;
  /// The delivery of the application's pushes; none when it has none.
  virtual std::shared_ptr<RemotePushDelivery> remotePushDelivery() const = 0;
};

}  // namespace orvanta::linux_platform
