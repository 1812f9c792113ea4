// The token callback of application delegates of every shape, intercepted through the
// application's patched `setDelegate:`.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "objc/interception_support.h"
#include "objc/swizzling.h"

/// Conforms, but has no token callback.
@interface AppWithoutToken : OrvantaObjcObject <TestApplicationDelegate>
@end
/// Conforms and has its own token callback.
@interface AppWithToken : OrvantaObjcObject <TestApplicationDelegate>
@end
/// The callback lives in the superclass, which conforms.
@interface AppTokenBase : OrvantaObjcObject <TestApplicationDelegate>
@end
@interface AppTokenChild : AppTokenBase
@end
/// Neither the class nor its superclass conforms, nor implements the callback.
@interface AppLooseBase : OrvantaObjcObject
@end
@interface AppLoose : AppLooseBase
@end
@interface AppLooseSibling : AppLooseBase
@end
/// For the switch: its own callback.
@interface AppSwitched : OrvantaObjcObject <TestApplicationDelegate>
@end

@implementation AppWithoutToken
@end
@implementation AppWithToken
ORVANTA_TEST_HOST_TOKEN("AppWithToken")
@end
@implementation AppTokenBase
ORVANTA_TEST_HOST_TOKEN("AppTokenBase")
@end
@implementation AppTokenChild
@end
@implementation AppLooseBase
@end
@implementation AppLoose
@end
@implementation AppLooseSibling
@end
@implementation AppSwitched
ORVANTA_TEST_HOST_TOKEN("AppSwitched")
@end

namespace orvanta::objc::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const SEL kPlatformToken = @selector(application:didRegisterForRemoteNotificationsWithDeviceToken:);
const SEL kKitToken = @selector(orvantaApplication:
    didRegisterForRemoteNotificationsWithDeviceToken:);
const char* const kKit = "kit token 0a0b0c0d";  // the kit heard the token

class ApplicationDelegateInterception : public InterceptionTest {
 protected:
  void TearDown() override {
    InterceptionTest::TearDown();
    [application dispose];
  }
  TestApplication* application = [[TestApplication alloc] init];
};

TEST_F(ApplicationDelegateInterception, TheKitRunsFirstThenTheHostWhereverItsCallbackIs) {
  id delegate = install(application, [AppWithoutToken class]);
  EXPECT_EQ([application delegate], delegate) << "the platform's setter still installs it";
  EXPECT_THAT(deliverToken(application), ElementsAre(kKit));
  EXPECT_EQ(class_getInstanceMethod([AppWithoutToken class], kKitToken), nullptr);
  install(application, [AppWithToken class]);
  EXPECT_THAT(deliverToken(application), ElementsAre(kKit, "host AppWithToken token"));
  // An inherited callback is patched where it is implemented.
  install(application, [AppTokenChild class]);
  EXPECT_THAT(deliverToken(application), ElementsAre(kKit, "host AppTokenBase token"));
  EXPECT_TRUE(checkIfInstanceOverridesSelector([AppTokenBase class], kKitToken));
  EXPECT_FALSE(checkIfInstanceOverridesSelector([AppTokenChild class], kKitToken));
  // With no conforming ancestor, the class just below the root is patched, for its siblings too.
  install(application, [AppLoose class]);
  EXPECT_THAT(deliverToken(application), ElementsAre(kKit));
  EXPECT_TRUE(class_respondsToSelector([AppLooseSibling class], kPlatformToken));
  install(application, [AppLooseSibling class]);
  EXPECT_THAT(deliverToken(application), ElementsAre(kKit));

  // Each further installation of a class toggles its patch; where the first one only added the
  // callback, a second one changes nothing.
  install(application, [AppWithToken class]);
  EXPECT_THAT(deliverToken(application), ElementsAre("host AppWithToken token"));
  install(application, [AppWithToken class]);
  EXPECT_THAT(deliverToken(application), ElementsAre(kKit, "host AppWithToken token"));
  install(application, [AppWithoutToken class]);
  EXPECT_THAT(deliverToken(application), ElementsAre(kKit));
}

TEST_F(ApplicationDelegateInterception, WithTheSwitchOffOnlyTheHostsCallbackRuns) {
  install(application, [AppSwitched class]);
  setAutoConfiguration(false);
  EXPECT_THAT(deliverToken(application), ElementsAre("host AppSwitched token"));
  install(application, [AppWithoutToken class]);
  EXPECT_THAT(deliverToken(application), IsEmpty());

  setAutoConfiguration(true);
  EXPECT_THAT(deliverToken(application), ElementsAre(kKit));
  // Removing the delegate is harmless.
  [application setDelegate:nullptr];
  EXPECT_EQ([application delegate], nullptr);
  EXPECT_THAT(deliverToken(application), IsEmpty());
}

}  // namespace
}  // namespace orvanta::objc::testing
