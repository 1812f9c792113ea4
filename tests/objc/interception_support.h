// Stand-ins for the platform's objects and a journal of who ran, for the interception tests.
#pragma once

#include <gtest/gtest.h>
#include <objc/runtime.h>

#include <string>
#include <vector>

#include "objc/delegate_interception.h"

/// The platform's delegate protocols, as the stand-ins below use them.
@protocol TestApplicationDelegate
@optional
- (void)application:(id)application
    didRegisterForRemoteNotificationsWithDeviceToken:(id)deviceToken;
@end

@protocol TestNotificationCenterDelegate
@optional
- (void)userNotificationCenter:(id)center
       willPresentNotification:(id)notification
         withCompletionHandler:(OrvantaPresentationCompletionHandler)completionHandler;
- (void)userNotificationCenter:(id)center
    didReceiveNotificationResponse:(id)response
             withCompletionHandler:(OrvantaResponseCompletionHandler)completionHandler;
@end

/// The application object: a delegate it holds and the token callback it makes.
@interface TestApplication : OrvantaObjcObject {
  id delegate_;
}
- (void)setDelegate:(id)delegate;
- (id)delegate;
/// Calls the delegate's token callback, as the platform does when a token arrives.
- (void)receiveDeviceToken:(id)deviceToken;
@end

/// The notification centre: a delegate it holds and the two callbacks it makes.
@interface TestNotificationCenter : OrvantaObjcObject {
  id delegate_;
}
/// The current centre, made by the load-time set-up.
+ (TestNotificationCenter*)current;
- (void)setDelegate:(id)delegate;
- (id)delegate;
- (void)presentNotification:(id)notification
                 completion:(OrvantaPresentationCompletionHandler)completionHandler;
- (void)deliverResponse:(id)response completion:(OrvantaResponseCompletionHandler)completionHandler;
@end

@interface TestDeviceToken : OrvantaObjcObject {
 @public
  unsigned char bytes[4];
}
@end

@interface TestNotification : OrvantaObjcObject {
 @public
  const char* identifier;
}
@end

@interface TestNotificationResponse : OrvantaObjcObject {
 @public
  TestNotification* notification;
  const char* actionIdentifier;
}
@end

/// The kit's shared entry object: implements neither centre callback.
@interface TestEntryObject : OrvantaObjcObject <TestNotificationCenterDelegate>
@end

namespace orvanta::objc::testing {

/// What the load-time set-up (a `+load` of the tests' application class) answered.
bool loadTimeSetUpRan();

/// Records who ran: "kit ...", "completion ...", "host <class> ...".
void record(std::string entry);

/// Puts hooks and accessors in place that record into a fresh journal.
class InterceptionTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  void setAutoConfiguration(bool enabled);

  /// The token 0a0b0c0d reaches the application's delegate; what ran, in order.
  std::vector<std::string> deliverToken(TestApplication* application);
  /// A notification with this identifier is about to be shown; what ran, in order.
  std::vector<std::string> presentNotification(TestNotificationCenter* center,
                                               const char* identifier);
  /// The user acted on a notification; what ran, in order.
  std::vector<std::string> deliverResponse(TestNotificationCenter* center, const char* identifier,
                                           const char* actionIdentifier);

  /// Installs a fresh instance of `delegateClass` on the object (through its patched setter);
  /// the object keeps the instance until the test ends.
  id install(id owner, Class delegateClass);

 private:
  std::vector<id> objects_;
};

}  // namespace orvanta::objc::testing

/// Host implementations of the callbacks: each records its class's name and, for the centre's,
/// completes the request once more (with 1), as a host's own handler does.
// clang-format off
#define ORVANTA_TEST_HOST_TOKEN(name)                                              \
  - (void)application:(id)application                                              \
      didRegisterForRemoteNotificationsWithDeviceToken:(id)deviceToken {           \
    (void)application;                                                             \
    (void)deviceToken;                                                             \
    orvanta::objc::testing::record("host " name " token");                         \
  }

#define ORVANTA_TEST_HOST_CENTER(name)                                             \
  - (void)userNotificationCenter:(id)center                                        \
         willPresentNotification:(id)notification                                  \
           withCompletionHandler:(OrvantaPresentationCompletionHandler)handler {   \
    (void)center;                                                                  \
    (void)notification;                                                            \
    orvanta::objc::testing::record("host " name " will present");                  \
    orvanta::objc::callCompletionHandler(handler, 1);                              \
  }                                                                                \
  - (void)userNotificationCenter:(id)center                                        \
      didReceiveNotificationResponse:(id)response                                  \
               withCompletionHandler:(OrvantaResponseCompletionHandler)handler {   \
    (void)center;                                                                  \
    (void)response;                                                                \
    orvanta::objc::testing::record("host " name " did receive");                   \
    orvanta::objc::callCompletionHandler(handler);                                 \
  }
// clang-format on
