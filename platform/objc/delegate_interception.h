// Interception of the host's delegate callbacks through the Objective-C runtime. Objective-C++.
//
// At load time the kit patches the `setDelegate:` of the platform's application object and
// notification centre. When the host then installs a delegate, the kit finds the class that
// implements the callback it needs and swaps its own implementation in; the kit's code runs the
// kit's handling (through `InterceptionHooks`, gated by the auto-configuration switch), completes
// the platform's request, then calls the host's own implementation, which now lives under the
// kit's selector. The platform's classes, protocols and objects are parameters of the set-up.
//
// Everything here runs on the thread the platform uses for the application and its delegates.
#pragma once

#include <objc/runtime.h>

#include <cstdint>
#include <functional>
#include <vector>

#include "objc/interception_hooks.hpp"
#include "objc/runtime_compat.h"
#include "orvanta/port/notification_center.hpp"

/// The root of the kit's Objective-C classes: allocation and nothing else.
__attribute__((objc_root_class))
@interface OrvantaObjcObject {
  Class isa;
}
+ (id)alloc;
+ (Class)class;
- (id)init;
- (Class)class;
/// Frees the object.
- (void)dispose;
@end

/// Donor of the application-side methods: its `setOrvantaDelegate:` becomes the application
/// class's `setDelegate:`, its token method the host delegate's token callback.
@interface OrvantaAppDelegate : OrvantaObjcObject
/// Runs as the application's `setDelegate:` (`self` is the application): patches the class of
/// `delegate` that implements the token callback, then installs `delegate` through the
/// platform's own setter.
- (void)setOrvantaDelegate:(id)delegate;
/// Runs as the host delegate's `application:didRegisterForRemoteNotificationsWithDeviceToken:`.
- (void)orvantaApplication:(id)application
    didRegisterForRemoteNotificationsWithDeviceToken:(id)deviceToken;
@end

/// Donor of the notification-centre-side methods.
@interface OrvantaNotificationCenterInterceptor : OrvantaObjcObject
/// Patches `setDelegate:` of `centerClass` with this class's `setOrvantaDelegate:`.
+ (void)startSwizzlingOnClass:(Class)centerClass;
/// Runs as the centre's `setDelegate:`: patches the two callbacks (will present, then did
/// receive), then installs `delegate` through the platform's own setter.
- (void)setOrvantaDelegate:(id)delegate;
- (void)orvantaUserNotificationCenter:(id)center
              willPresentNotification:(id)notification
                withCompletionHandler:(OrvantaPresentationCompletionHandler)completionHandler;
- (void)orvantaUserNotificationCenter:(id)center
       didReceiveNotificationResponse:(id)response
                withCompletionHandler:(OrvantaResponseCompletionHandler)completionHandler;
@end

namespace orvanta::objc {

/// The platform's side of the interception.
struct InterceptionSetup {
  /// The application object's class (has `setDelegate:`) and its delegate protocol.
  Class applicationClass = nullptr;
  Protocol* applicationDelegateProtocol = nullptr;
  /// The notification centre's class (has `delegate` and `setDelegate:`) and its delegate
  /// protocol.
  Class notificationCenterClass = nullptr;
  Protocol* notificationCenterDelegateProtocol = nullptr;
  /// The current notification centre, and the kit's shared entry object that becomes its
  /// delegate when it has none (both may be nil).
  id currentNotificationCenter = nullptr;
  id entryObject = nullptr;
};

/// Turns the platform's objects handed to the delegate callbacks into the kit's values.
struct ObjectAccessors {
  std::function<std::vector<std::uint8_t>(id deviceToken)> deviceToken;
  std::function<port::Notification(id notification)> notification;
  std::function<port::NotificationResponse(id response)> notificationResponse;
};

/// Replaces the accessors of every interceptor in the process. A missing accessor gives an
/// empty value.
void setObjectAccessors(ObjectAccessors accessors);

/// The load-time set-up: patches the application's `setDelegate:`, then the centre's, then
/// gives the current centre the entry object as its delegate when it has none (through the
/// patched setter, so the entry object's class receives the interceptors as its own methods).
/// Runs once per application class: when that class already has `setOrvantaDelegate:`, nothing
/// happens and the answer is false. Meant for a `+load` method (it touches no static object that
/// could still be unconstructed) or the main thread before any delegate is installed.
bool installInterception(const InterceptionSetup& setup);

}  // namespace orvanta::objc
