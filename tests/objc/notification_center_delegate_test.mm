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

using ::testing::ElementsAre;

// The kit is asked with alert only (4) and answers alert and sound (6); the hosts complete the
// same request again with 1.
const char* const kKitPresents = "kit will present n1 with 4";
const char* const kKitCompletes = "completion 6";
const char* const kKitReceives = "kit did receive n1 open";

class NotificationCenterDelegateInterception : public InterceptionTest {
 protected:
  void TearDown() override {
    InterceptionTest::TearDown();
    [center dispose];
  }
  TestNotificationCenter* center = [[TestNotificationCenter alloc] init];
};

TEST_F(NotificationCenterDelegateInterception, ADelegateWithoutCallbacksGetsTheKitsOnly) {
  id delegate = install(center, [CenterWithoutCallbacks class]);
  EXPECT_EQ([center delegate], delegate);
  EXPECT_THAT(presentNotification(center, "n1"), ElementsAre(kKitPresents, kKitCompletes));
  EXPECT_THAT(deliverResponse(center, "n1", "open"), ElementsAre(kKitReceives, "completion"));

  install(center, [CenterWithoutCallbacks class]);
  EXPECT_THAT(presentNotification(center, "n1"), ElementsAre(kKitPresents, kKitCompletes));
  EXPECT_THAT(deliverResponse(center, "n1", "open"), ElementsAre(kKitReceives, "completion"));
}

TEST_F(NotificationCenterDelegateInterception, KitAndCompletionFirstThenTheHostWithTheSameHandler) {
  install(center, [CenterWithCallbacks class]);
  EXPECT_THAT(presentNotification(center, "n1"),
              ElementsAre(kKitPresents, kKitCompletes, "host CenterWithCallbacks will present",
                          "completion 1"));
  EXPECT_THAT(deliverResponse(center, "n1", "open"),
              ElementsAre(kKitReceives, "completion", "host CenterWithCallbacks did receive",
                          "completion"));

  install(center, [CenterWithCallbacks class]);
  EXPECT_THAT(presentNotification(center, "n1"),
              ElementsAre("host CenterWithCallbacks will present", "completion 1"))
      << "the second installation undoes the patch";
  EXPECT_THAT(deliverResponse(center, "n1", "open"),
              ElementsAre("host CenterWithCallbacks did receive", "completion"));

  install(center, [CenterWithCallbacks class]);
  EXPECT_THAT(presentNotification(center, "n1"),
              ElementsAre(kKitPresents, kKitCompletes, "host CenterWithCallbacks will present",
                          "completion 1"));
}

TEST_F(NotificationCenterDelegateInterception, InheritedCallbacksArePatchedWhereImplemented) {
  install(center, [CenterCallbacksChild class]);
  EXPECT_THAT(presentNotification(center, "n1"),
              ElementsAre(kKitPresents, kKitCompletes, "host CenterCallbacksBase will present",
                          "completion 1"));
  EXPECT_THAT(deliverResponse(center, "n1", "open"),
              ElementsAre(kKitReceives, "completion", "host CenterCallbacksBase did receive",
                          "completion"));
}

TEST_F(NotificationCenterDelegateInterception,
       WithNoConformingAncestorTheClassBelowTheRootGetsThem) {
  install(center, [CenterLoose class]);
  EXPECT_THAT(presentNotification(center, "n1"), ElementsAre(kKitPresents, kKitCompletes));
  EXPECT_THAT(deliverResponse(center, "n1", "open"), ElementsAre(kKitReceives, "completion"));
  EXPECT_TRUE(class_respondsToSelector([CenterLooseBase class],
                                       @selector(userNotificationCenter:
                                                willPresentNotification:withCompletionHandler:)));
}

TEST_F(NotificationCenterDelegateInterception, WithTheSwitchOffOnlyTheHostRunsAndCompletes) {
  install(center, [CenterSwitched class]);
  setAutoConfiguration(false);
  EXPECT_THAT(presentNotification(center, "n1"),
              ElementsAre("host CenterSwitched will present", "completion 1"));
  EXPECT_THAT(deliverResponse(center, "n1", "open"),
              ElementsAre("host CenterSwitched did receive", "completion"));
}

TEST_F(NotificationCenterDelegateInterception, LoadTimeSetUpRanOnceAndGaveTheCentreTheEntryObject) {
  ASSERT_TRUE(loadTimeSetUpRan());
  TestNotificationCenter* current = [TestNotificationCenter current];
  ASSERT_NE([current delegate], nullptr);
  EXPECT_EQ(object_getClass([current delegate]), [TestEntryObject class]);
  EXPECT_THAT(presentNotification(current, "n1"), ElementsAre(kKitPresents, kKitCompletes));
  EXPECT_THAT(deliverResponse(current, "n1", "open"), ElementsAre(kKitReceives, "completion"));

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
  EXPECT_THAT(presentNotification(center, "n1"),
              ElementsAre(kKitPresents, kKitCompletes, "host CenterAfterSecondSetUp will present",
                          "completion 1"));
}

}  // namespace
}  // namespace orvanta::objc::testing
