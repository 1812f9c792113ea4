// The will-present and did-receive callbacks of notification-centre delegates of every shape,
// and the load-time set-up that patches the setters.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "objc/interception_support.h"

/// Conforms, implements neither callback.
@interface CenterWithoutCallbacks : OrvantaObjcObject <TestNotificationCenterDelegate>
@end
/// Conforms and implements both.
@interface CenterWithCallbacks : OrvantaObjcObject <TestNotificationCenterDelegate>
@end
/// The callbacks live in the conforming superclass.
@interface CenterCallbacksBase : OrvantaObjcObject <TestNotificationCenterDelegate>
@end
@interface CenterCallbacksChild : CenterCallbacksBase
@end
/// No conforming ancestor, no callbacks.
@interface CenterLooseBase : OrvantaObjcObject
@end
@interface CenterLoose : CenterLooseBase
@end
/// For the switch.
@interface CenterSwitched : OrvantaObjcObject <TestNotificationCenterDelegate>
@end
/// Installed after the load-time set-up was asked to run a second time.
@interface CenterAfterSecondSetUp : OrvantaObjcObject <TestNotificationCenterDelegate>
@end

@implementation CenterWithoutCallbacks
@end
@implementation CenterWithCallbacks
ORVANTA_TEST_HOST_CENTER("CenterWithCallbacks")
@end
@implementation CenterCallbacksBase
ORVANTA_TEST_HOST_CENTER("CenterCallbacksBase")
@end
@implementation CenterCallbacksChild
@end
@implementation CenterLooseBase
@end
@implementation CenterLoose
@end
@implementation CenterSwitched
ORVANTA_TEST_HOST_CENTER("CenterSwitched")
@end
@implementation CenterAfterSecondSetUp
ORVANTA_TEST_HOST_CENTER("CenterAfterSecondSetUp")
@end

namespace orvanta::objc::testing {
namespace {

using ::testing::ElementsAreArray;
using Journal = std::vector<std::string>;

class NotificationCenterDelegateInterception : public InterceptionTest {
 protected:
  void TearDown() override {
    InterceptionTest::TearDown();
    [center dispose];
  }

  // The kit is asked with alert only (4) and answers alert and sound (6); a host's own handler
  // completes the same request again with 1. `host` names the class whose handlers run, if any.
  void expectKitThenHost(TestNotificationCenter* on, const char* host, bool kit = true) {
    Journal present;
    Journal receive;
    if (kit) {
      present = {"kit will present n1 with 4", "completion 6"};
      receive = {"kit did receive n1 open", "completion"};
    }
    if (host != nullptr) {
      present.insert(present.end(),
                     {std::string("host ") + host + " will present", "completion 1"});
      receive.insert(receive.end(), {std::string("host ") + host + " did receive", "completion"});
    }
    const char* shape = host != nullptr ? host : "no host callbacks";
    EXPECT_THAT(presentNotification(on, "n1"), ElementsAreArray(present)) << shape;
    EXPECT_THAT(deliverResponse(on, "n1", "open"), ElementsAreArray(receive)) << shape;
  }

  TestNotificationCenter* center = [[TestNotificationCenter alloc] init];
};

TEST_F(NotificationCenterDelegateInterception, TheKitRunsFirstThenTheHostWhereverItsCallbacksAre) {
  id delegate = install(center, [CenterWithoutCallbacks class]);
  EXPECT_EQ([center delegate], delegate);
  expectKitThenHost(center, nullptr);
  install(center, [CenterWithCallbacks class]);
  expectKitThenHost(center, "CenterWithCallbacks");
  // Inherited callbacks are patched where they are implemented.
  install(center, [CenterCallbacksChild class]);
  expectKitThenHost(center, "CenterCallbacksBase");
  // With no conforming ancestor, the class just below the root gets them.
  install(center, [CenterLoose class]);
  expectKitThenHost(center, nullptr);
  EXPECT_TRUE(class_respondsToSelector([CenterLooseBase class],
                                       @selector(userNotificationCenter:
                                                willPresentNotification:withCompletionHandler:)));

  // Each further installation of a class toggles its patch; where the first one only added the
  // callbacks, a second one changes nothing.
  install(center, [CenterWithCallbacks class]);
  expectKitThenHost(center, "CenterWithCallbacks", false);
  install(center, [CenterWithCallbacks class]);
  expectKitThenHost(center, "CenterWithCallbacks");
  install(center, [CenterWithoutCallbacks class]);
  expectKitThenHost(center, nullptr);
}

TEST_F(NotificationCenterDelegateInterception, WithTheSwitchOffOnlyTheHostRunsAndCompletes) {
  install(center, [CenterSwitched class]);
  setAutoConfiguration(false);
  expectKitThenHost(center, "CenterSwitched", false);
}

TEST_F(NotificationCenterDelegateInterception, LoadTimeSetUpRanOnceAndGaveTheCentreTheEntryObject) {
  ASSERT_TRUE(loadTimeSetUpRan());
  TestNotificationCenter* current = [TestNotificationCenter current];
  ASSERT_NE([current delegate], nullptr);
  EXPECT_EQ(object_getClass([current delegate]), [TestEntryObject class]);
  expectKitThenHost(current, nullptr);

  // Run again, it does nothing: the setters stay patched once (a second exchange would have
  // undone them) and the centre keeps its delegate.
  EXPECT_FALSE(installInterception({
    .applicationClass = [TestApplication class],
    .applicationDelegateProtocol = @protocol(TestApplicationDelegate),
    .notificationCenterClass = [TestNotificationCenter class],
    .notificationCenterDelegateProtocol = @protocol(TestNotificationCenterDelegate),
    .currentNotificationCenter = center, .entryObject = [current delegate],
  }));
  EXPECT_EQ([center delegate], nullptr);
  install(center, [CenterAfterSecondSetUp class]);
  expectKitThenHost(center, "CenterAfterSecondSetUp");
}

}  // namespace
}  // namespace orvanta::objc::testing
