// The kit's root class, the two donor classes and the load-time set-up live in this one file on
// purpose: the runtime registers the classes of a file together, so whenever a host's `+load`
// can run (its classes' superclass, the root, is registered), the donors are there too.
#include "objc/delegate_interception.h"

#include <map>
#include <memory>
#include <mutex>
#include <utility>

#include "objc/swizzling.h"

/// The two members the set-up uses on the platform's notification centre.
@protocol OrvantaDelegateHolder
- (id)delegate;
- (void)setDelegate:(id)delegate;
@end

namespace orvanta::objc {
namespace {

/// What the interceptors share across the process. Reached through a function so that it is
/// constructed on first use, even from a `+load` that runs before static initialisers.
struct Registry {
  std::mutex mutex;
  std::shared_ptr<const InterceptionHooks> hooks =
      std::make_shared<InterceptionHooks>(kitInterceptionHooks());
  std::shared_ptr<const ObjectAccessors> accessors = std::make_shared<ObjectAccessors>();
  /// The delegate protocol of each class whose `setDelegate:` was patched.
  std::map<Class, Protocol*> protocols;
};

Registry& registry() {
  static Registry* const instance = new Registry();  // never destroyed: used until exit
  return *instance;
}

std::shared_ptr<const InterceptionHooks> currentHooks() {
  std::lock_guard lock(registry().mutex);
  return registry().hooks;
}

std::shared_ptr<const ObjectAccessors> currentAccessors() {
  std::lock_guard lock(registry().mutex);
  return registry().accessors;
}

/// The hooks when the kit's handling is on, else null.
std::shared_ptr<const InterceptionHooks> enabledHooks() {
  auto hooks = currentHooks();
  try {
    if (hooks->isAutoConfigurationEnabled && hooks->isAutoConfigurationEnabled()) {
      return hooks;
    }
  } catch (...) {  // NOLINT(bugprone-empty-catch): a failing switch reads as off
  }
  return nullptr;
}

/// The delegate protocol registered for the class of `object` or its nearest ancestor.
Protocol* delegateProtocolOf(id object) {
  std::lock_guard lock(registry().mutex);
  for (Class cls = object_getClass(object); cls != nullptr; cls = class_getSuperclass(cls)) {
    auto found = registry().protocols.find(cls);
    if (found != registry().protocols.end()) {
      return found->second;
    }
  }
  return nullptr;
}

bool responds(id object, SEL selector) {
  return object != nullptr && class_respondsToSelector(object_getClass(object), selector);
}

/// Patches the class of `delegate` that implements `platformSelector`.
void interceptCallback(id delegate, Protocol* protocol, SEL sdkSelector, SEL platformSelector,
                       Class donor) {
  Class protocolClass = getClassWithProtocolInHierarchy(object_getClass(delegate), protocol);
  ClassList candidates = ClassGetSubclasses(protocolClass);
  exchangeImplementationsInProperClass(sdkSelector, platformSelector, candidates, donor,
                                       protocolClass);
}

}  // namespace

void setInterceptionHooks(InterceptionHooks hooks) {
  auto shared = std::make_shared<const InterceptionHooks>(std::move(hooks));
  std::lock_guard lock(registry().mutex);
  registry().hooks = std::move(shared);
}

void setObjectAccessors(ObjectAccessors accessors) {
  auto shared = std::make_shared<const ObjectAccessors>(std::move(accessors));
  std::lock_guard lock(registry().mutex);
  registry().accessors = std::move(shared);
}

bool installInterception(const InterceptionSetup& setup) {
  if (setup.applicationClass == nullptr ||
      checkIfOriginalClassHasAlreadyImplementedSelector(setup.applicationClass,
                                                        @selector(setOrvantaDelegate:))) {
    return false;
  }
  {
    std::lock_guard lock(registry().mutex);
    registry().protocols[setup.applicationClass] = setup.applicationDelegateProtocol;
    if (setup.notificationCenterClass != nullptr) {
      registry().protocols[setup.notificationCenterClass] =
          setup.notificationCenterDelegateProtocol;
    }
  }
  exchangeImplementations([OrvantaAppDelegate class], @selector(setOrvantaDelegate:),
                          setup.applicationClass, @selector(setDelegate:));
  [OrvantaNotificationCenterInterceptor startSwizzlingOnClass:setup.notificationCenterClass];

  id center = setup.currentNotificationCenter;
  if (center != nullptr && setup.entryObject != nullptr && [center delegate] == nullptr) {
    [center setDelegate:setup.entryObject];
  }
  return true;
}

}  // namespace orvanta::objc

namespace {

using orvanta::objc::currentAccessors;
using orvanta::objc::delegateProtocolOf;
using orvanta::objc::enabledHooks;
using orvanta::objc::interceptCallback;
using orvanta::objc::responds;

}  // namespace

@implementation OrvantaObjcObject
+ (id)alloc {
  return class_createInstance(self, 0);
}
+ (Class)class {
  return self;
}
- (id)init {
  return self;
}
- (Class)class {
  return object_getClass(self);
}
- (void)dispose {
  object_dispose(self);
}
@end

@implementation OrvantaAppDelegate

- (void)setOrvantaDelegate:(id)delegate {
  interceptCallback(delegate, delegateProtocolOf(self),
                    @selector(orvantaApplication:didRegisterForRemoteNotificationsWithDeviceToken:),
                    @selector(application:didRegisterForRemoteNotificationsWithDeviceToken:),
                    [OrvantaAppDelegate class]);
  if (responds(self, @selector(setOrvantaDelegate:))) {
    [self setOrvantaDelegate:delegate];  // the platform's own setter, after the exchange
  }
}

- (void)orvantaApplication:(id)application
    didRegisterForRemoteNotificationsWithDeviceToken:(id)deviceToken {
  if (auto hooks = enabledHooks()) {
    try {
      auto accessors = currentAccessors();
      if (hooks->didRegisterForRemoteNotifications) {
        hooks->didRegisterForRemoteNotifications(accessors->deviceToken
                                                     ? accessors->deviceToken(deviceToken)
                                                     : std::vector<std::uint8_t>{});
      }
    } catch (...) {  // NOLINT(bugprone-empty-catch): the host's callback still runs
    }
  }
  if (responds(self, @selector(orvantaApplication:
                         didRegisterForRemoteNotificationsWithDeviceToken:))) {
    [self orvantaApplication:application
        didRegisterForRemoteNotificationsWithDeviceToken:deviceToken];
  }
}

@end

@implementation OrvantaNotificationCenterInterceptor

+ (void)startSwizzlingOnClass:(Class)centerClass {
  orvanta::objc::exchangeImplementations([OrvantaNotificationCenterInterceptor class],
                                         @selector(setOrvantaDelegate:), centerClass,
                                         @selector(setDelegate:));
}

- (void)setOrvantaDelegate:(id)delegate {
  Protocol* protocol = delegateProtocolOf(self);
  Class donor = [OrvantaNotificationCenterInterceptor class];
  interceptCallback(
      delegate, protocol,
      @selector(orvantaUserNotificationCenter:willPresentNotification:withCompletionHandler:),
      @selector(userNotificationCenter:willPresentNotification:withCompletionHandler:), donor);
  interceptCallback(delegate, protocol,
                    @selector(orvantaUserNotificationCenter:
                             didReceiveNotificationResponse:withCompletionHandler:),
                    @selector(userNotificationCenter:
                        didReceiveNotificationResponse:withCompletionHandler:),
                    donor);
  if (responds(self, @selector(setOrvantaDelegate:))) {
    [self setOrvantaDelegate:delegate];  // the platform's own setter, after the exchange
  }
}

- (void)orvantaUserNotificationCenter:(id)center
              willPresentNotification:(id)notification
                withCompletionHandler:(OrvantaPresentationCompletionHandler)completionHandler {
  if (auto hooks = enabledHooks()) {
    orvanta::port::PresentationOptions options = orvanta::port::kPresentationOptionAlert;
    try {
      auto accessors = currentAccessors();
      if (hooks->willPresentNotification) {
        options = hooks->willPresentNotification(accessors->notification
                                                     ? accessors->notification(notification)
                                                     : orvanta::port::Notification{},
                                                 options);
      }
    } catch (...) {  // NOLINT(bugprone-empty-catch): the request is still completed
    }
    orvanta::objc::callCompletionHandler(completionHandler,
                                         static_cast<OrvantaPresentationOptionsValue>(options));
  }
  if (responds(self, @selector(orvantaUserNotificationCenter:
                                     willPresentNotification:withCompletionHandler:))) {
    [self orvantaUserNotificationCenter:center
                willPresentNotification:notification
                  withCompletionHandler:completionHandler];
  }
}

- (void)orvantaUserNotificationCenter:(id)center
       didReceiveNotificationResponse:(id)response
                withCompletionHandler:(OrvantaResponseCompletionHandler)completionHandler {
  if (auto hooks = enabledHooks()) {
    try {
      auto accessors = currentAccessors();
      if (hooks->didReceiveNotificationResponse) {
        hooks->didReceiveNotificationResponse(accessors->notificationResponse
                                                  ? accessors->notificationResponse(response)
                                                  : orvanta::port::NotificationResponse{});
      }
    } catch (...) {  // NOLINT(bugprone-empty-catch): the request is still completed
    }
    orvanta::objc::callCompletionHandler(completionHandler);
  }
  if (responds(self, @selector(orvantaUserNotificationCenter:
                              didReceiveNotificationResponse:withCompletionHandler:))) {
    [self orvantaUserNotificationCenter:center
         didReceiveNotificationResponse:response
                  withCompletionHandler:completionHandler];
  }
}

@end
