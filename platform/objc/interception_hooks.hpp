#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "orvanta/port/notification_center.hpp"

namespace orvanta::objc {

/// How the interceptors of the host's delegate callbacks reach the kit. Plain C++, so that the
/// code that connects them to the push facade needs no Objective-C.
///
/// Every hook runs on the thread the platform calls the delegate on, inside the host's callback;
/// an exception thrown by a hook is dropped. A missing hook is skipped.
struct InterceptionHooks {
  /// The auto-configuration switch, read on every intercepted call; when it is false (or missing)
  /// the kit's handling is skipped and only the host's own implementation runs.
  std::function<bool()> isAutoConfigurationEnabled;
  /// The device token arrived, as raw bytes.
  std::function<void(const std::vector<std::uint8_t>& deviceToken)>
      didRegisterForRemoteNotifications;
  /// A notification is about to be shown in front; called with `port::kPresentationOptionAlert`
  /// and answers the options the platform's completion handler is called with. Missing: the
  /// completion gets the options unchanged.
  std::function<port::PresentationOptions(const port::Notification& notification,
                                          port::PresentationOptions options)>
      willPresentNotification;
  /// The user acted on a notification; the completion handler is called right after it.
  std::function<void(const port::NotificationResponse& response)> didReceiveNotificationResponse;
};

/// The hooks that reach the kit's push facade (`Orvanta::push()`, which the first intercepted call
/// creates) and its automatic-configuration switch. They are in force until replaced.
InterceptionHooks kitInterceptionHooks();

/// Replaces the hooks of every interceptor in the process. Any thread; calls that already
/// started finish with the hooks they started with.
void setInterceptionHooks(InterceptionHooks hooks);

}  // namespace orvanta::objc
