// The Objective-C part of the demo: a host application object whose delegate has a token callback
// of its own. The kit patches the delegate's class when the delegate is installed, so the token
// reaches the kit first, and the host's own callback still runs after it.
#include <objc/runtime.h>

#include <cstdio>
#include <utility>
#include <vector>

#include "objc/delegate_interception.h"

@protocol DemoApplicationDelegate
@optional
- (void)application:(id)application
    didRegisterForRemoteNotificationsWithDeviceToken:(id)deviceToken;
@end

@interface DemoApplication : OrvantaObjcObject {
  id delegate_;
}
- (void)setDelegate:(id)delegate;
- (void)receiveDeviceToken:(id)deviceToken;
@end

@implementation DemoApplication
- (void)setDelegate:(id)delegate {
  delegate_ = delegate;
}
- (void)receiveDeviceToken:(id)deviceToken {
  [delegate_ application:self didRegisterForRemoteNotificationsWithDeviceToken:deviceToken];
}
@end

@interface DemoDeviceToken : OrvantaObjcObject {
 @public
  unsigned char bytes[8];
}
@end

@implementation DemoDeviceToken
@end

@interface DemoHostDelegate : OrvantaObjcObject <DemoApplicationDelegate>
@end

@implementation DemoHostDelegate
- (void)application:(id)application
    didRegisterForRemoteNotificationsWithDeviceToken:(id)deviceToken {
  (void)application;
  (void)deviceToken;
  std::printf("host (Objective-C): its own token callback ran too\n");
}
@end

bool runObjectiveCHost() {
  orvanta::objc::ObjectAccessors accessors;
  accessors.deviceToken = [](id object) {
    auto* token = static_cast<DemoDeviceToken*>(object);
    return std::vector<std::uint8_t>(token->bytes, token->bytes + sizeof token->bytes);
  };
  orvanta::objc::setObjectAccessors(std::move(accessors));
  orvanta::objc::installInterception({
    .applicationClass = [DemoApplication class],
    .applicationDelegateProtocol = @protocol(DemoApplicationDelegate),
  });

  DemoApplication* application = [[DemoApplication alloc] init];
  DemoHostDelegate* delegate = [[DemoHostDelegate alloc] init];
  [application setDelegate:delegate];  // the kit patches the delegate's class here

  DemoDeviceToken* token = [[DemoDeviceToken alloc] init];
  for (unsigned i = 0; i < sizeof token->bytes; ++i) {
    token->bytes[i] = static_cast<unsigned char>(0xd0 + i);
  }
  [application receiveDeviceToken:token];
  [token dispose];
  [delegate dispose];
  [application dispose];
  return true;
}
