#include "objc/interception_support.h"

#include <cstdio>
#include <utility>

#if defined(ORVANTA_SANITIZED)
// GCC's Objective-C runtime keeps start-up allocations of its own (class tables, method lists)
// that the leak checker cannot trace to a root; a program with one empty class shows them too.
// Built into the test program so that listing its tests is covered as well.
extern "C" const char* __lsan_default_suppressions() {
  return "leak:libobjc.so\n";
}
#endif

namespace orvanta::objc::testing {
namespace {

struct Journal {
  std::vector<std::string> entries;
  bool autoConfiguration = true;
  bool loadTimeSetUpRan = false;
};

// Constructed on first use: the `+load` below runs before static initialisers.
Journal& journal() {
  static Journal* const instance = new Journal();
  return *instance;
}

std::string hex(const std::vector<std::uint8_t>& bytes) {
  std::string text;
  for (std::uint8_t byte : bytes) {
    char digits[3];
    std::snprintf(digits, sizeof digits, "%02x", byte);
    text += digits;
  }
  return text;
}

port::Notification notificationOf(id object) {
  port::Notification notification;
  if (object != nullptr) {
    auto* stand = static_cast<TestNotification*>(object);
    notification.request.identifier = stand->identifier;
  }
  return notification;
}

}  // namespace

bool loadTimeSetUpRan() {
  return journal().loadTimeSetUpRan;
}

void record(std::string entry) {
  journal().entries.push_back(std::move(entry));
}

void InterceptionTest::SetUp() {
  journal().entries.clear();
  journal().autoConfiguration = true;
  setInterceptionHooks({
      .isAutoConfigurationEnabled = [] { return journal().autoConfiguration; },
      .didRegisterForRemoteNotifications =
          [](const std::vector<std::uint8_t>& token) { record("kit token " + hex(token)); },
      .willPresentNotification =
          [](const port::Notification& notification, port::PresentationOptions options) {
            record("kit will present " + notification.request.identifier + " with " +
                   std::to_string(options));
            return options | port::kPresentationOptionSound;
          },
      .didReceiveNotificationResponse =
          [](const port::NotificationResponse& response) {
            record("kit did receive " + response.notification.request.identifier + " " +
                   response.actionIdentifier);
          },
  });
  setObjectAccessors({
      .deviceToken =
          [](id object) {
            auto* token = static_cast<TestDeviceToken*>(object);
            return std::vector<std::uint8_t>(token->bytes, token->bytes + sizeof token->bytes);
          },
      .notification = notificationOf,
      .notificationResponse =
          [](id object) {
            auto* response = static_cast<TestNotificationResponse*>(object);
            return port::NotificationResponse{notificationOf(response->notification),
                                              response->actionIdentifier};
          },
  });
}

void InterceptionTest::TearDown() {
  setInterceptionHooks({});
  setObjectAccessors({});
  for (id object : objects_) {
    [object dispose];
  }
}

void InterceptionTest::setAutoConfiguration(bool enabled) {
  journal().autoConfiguration = enabled;
}

std::vector<std::string> InterceptionTest::deliverToken(TestApplication* application) {
  TestDeviceToken* token = [[TestDeviceToken alloc] init];
  const unsigned char bytes[4] = {0x0a, 0x0b, 0x0c, 0x0d};
  std::copy(bytes, bytes + 4, token->bytes);
  [application receiveDeviceToken:token];
  [token dispose];
  return std::exchange(journal().entries, {});
}

std::vector<std::string> InterceptionTest::presentNotification(TestNotificationCenter* center,
                                                               const char* identifier) {
  TestNotification* notification = [[TestNotification alloc] init];
  notification->identifier = identifier;
  const std::function<void(OrvantaPresentationOptionsValue)> completion =
      [](OrvantaPresentationOptionsValue options) {
        record("completion " + std::to_string(options));
      };
  [center presentNotification:notification completion:&completion];
  [notification dispose];
  return std::exchange(journal().entries, {});
}

std::vector<std::string> InterceptionTest::deliverResponse(TestNotificationCenter* center,
                                                           const char* identifier,
                                                           const char* actionIdentifier) {
  TestNotification* notification = [[TestNotification alloc] init];
  notification->identifier = identifier;
  TestNotificationResponse* response = [[TestNotificationResponse alloc] init];
  response->notification = notification;
  response->actionIdentifier = actionIdentifier;
  const std::function<void()> completion = [] { record("completion"); };
  [center deliverResponse:response completion:&completion];
  [response dispose];
  [notification dispose];
  return std::exchange(journal().entries, {});
}

id InterceptionTest::install(id owner, Class delegateClass) {
  id delegate = [class_createInstance(delegateClass, 0) init];
  objects_.push_back(delegate);
  [owner setDelegate:delegate];
  return delegate;
}

}  // namespace orvanta::objc::testing

namespace {

bool responds(id object, SEL selector) {
  return object != nullptr && class_respondsToSelector(object_getClass(object), selector);
}

}  // namespace

@implementation TestApplication
- (void)setDelegate:(id)delegate {
  delegate_ = delegate;
}
- (id)delegate {
  return delegate_;
}
- (void)receiveDeviceToken:(id)deviceToken {
  if (responds(delegate_, @selector(application:
                              didRegisterForRemoteNotificationsWithDeviceToken:))) {
    [delegate_ application:self didRegisterForRemoteNotificationsWithDeviceToken:deviceToken];
  }
}
@end

// What the kit does when it is loaded into a host: the set-up runs from a class-load hook,
// before `main`.
@interface TestApplication (LoadTimeSetUp)
@end

@implementation TestApplication (LoadTimeSetUp)
+ (void)load {
  orvanta::objc::testing::journal().loadTimeSetUpRan = orvanta::objc::installInterception({
    .applicationClass = [TestApplication class],
    .applicationDelegateProtocol = @protocol(TestApplicationDelegate),
    .notificationCenterClass = [TestNotificationCenter class],
    .notificationCenterDelegateProtocol = @protocol(TestNotificationCenterDelegate),
    .currentNotificationCenter = [TestNotificationCenter current],
    .entryObject = [[TestEntryObject alloc] init],
  });
}
@end

@implementation TestNotificationCenter
+ (TestNotificationCenter*)current {
  static TestNotificationCenter* current = [[TestNotificationCenter alloc] init];
  return current;
}
- (void)setDelegate:(id)delegate {
  delegate_ = delegate;
}
- (id)delegate {
  return delegate_;
}
- (void)presentNotification:(id)notification
                 completion:(OrvantaPresentationCompletionHandler)completionHandler {
  if (responds(delegate_, @selector(userNotificationCenter:
                                   willPresentNotification:withCompletionHandler:))) {
    [delegate_ userNotificationCenter:self
              willPresentNotification:notification
                withCompletionHandler:completionHandler];
  }
}
- (void)deliverResponse:(id)response
             completion:(OrvantaResponseCompletionHandler)completionHandler {
  if (responds(delegate_, @selector(userNotificationCenter:
                              didReceiveNotificationResponse:withCompletionHandler:))) {
    [delegate_ userNotificationCenter:self
        didReceiveNotificationResponse:response
                 withCompletionHandler:completionHandler];
  }
}
@end

@implementation TestDeviceToken
@end

@implementation TestNotification
@end

@implementation TestNotificationResponse
@end

@implementation TestEntryObject
@end
