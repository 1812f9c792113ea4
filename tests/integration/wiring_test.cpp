#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "networking/auth_data.hpp"
#include "orvanta/orvanta.hpp"
#include "orvanta/orvanta_push_interception.hpp"
#include "testing/fake_push_platform.hpp"
#include "testing/sandbox_test.hpp"

namespace orvanta {
namespace {

using testing::awaitLinesContaining;

// The kit as a host meets it: the shared instance over the installed (test) platform.
using WiringTest = testing::SandboxTest;

class NoDocuments : public port::FileLocations {
 public:
  port::DirectoryLookup documentsDirectory() override { return {std::nullopt, "no home"}; }
  std::string temporaryDirectory() override { return "/tmp"; }
};

TEST_F(WiringTest, TheFirstTouchBuildsTheWholeKitWithLoggingOff) {
  OrvantaPush& push = Orvanta::push();
  EXPECT_FALSE(Orvanta::shared().configuration()->isLoggingEnabled());
  EXPECT_EQ(push.options()->authorizationOptions(), 7u);
  EXPECT_TRUE(Orvanta::isAutoConfigurationForPushNotificationsEnabled());

  // Every component is in place: the in-app handler watches the launch, the user facade and the
  // analytics stack answer.
  enableLogging();
  postLifecycleEvent(port::LifecycleEvent::didFinishLaunching);
  EXPECT_EQ(
      logSink().linesContaining("Unable to fetch lastPush, deviceToken doesn't not exists.").size(),
      1u);
  EXPECT_EQ(Orvanta::user().email(), std::nullopt);

  // The switch is the push options' flag, nothing of its own.
  Orvanta::setIsAutoConfigurationForPushNotificationsEnabled(false);
  EXPECT_FALSE(Orvanta::isAutoConfigurationForPushNotificationsEnabled());
  EXPECT_FALSE(push.options()->useAutomaticConfiguration());
  push.options()->setUseAutomaticConfiguration(true);
  EXPECT_TRUE(Orvanta::isAutoConfigurationForPushNotificationsEnabled());
}

TEST_F(WiringTest, WithoutADocumentsDirectoryTheKitRegistersAndTracksOnATemporaryDatabase) {
  auto homeless = std::make_shared<Platform>(*platform());
  homeless->fileLocations = std::make_shared<NoDocuments>();
  installPlatform(homeless);
  auto configuration = OrvantaConfiguration::defaultConfiguration();
  configuration->setIsLoggingEnabled(true);
  Orvanta::configure(configuration);

  // The host's token, registered at the service in hex, and an event tracked with it.
  Orvanta::push().didRegisterForRemoteNotifications({0x00, 0xc0, 0xff, 0xee});
  Orvanta::analytics().trackEvent("opened", {{"screen", "home"}});
  ASSERT_TRUE(sandbox().waitForEventCount(1, testing::kPatience));
  EXPECT_EQ(sandbox().events().front().body["eventName"], "opened");
  EXPECT_EQ(logSink().linesContaining("APNs token retrieved: 00c0ffee").size(), 1u);
  EXPECT_EQ(awaitLinesContaining(logSink(), "Successfully registered deviceToken", 1).size(), 1u);
  auto registered = sandbox().device(kitContext()->authData()->device().deviceUUID);
  ASSERT_TRUE(registered);
  EXPECT_EQ(registered->registrationId, "00c0ffee");
  EXPECT_TRUE(sandbox().violations().empty()) << sandbox().violationsJson().dump();
}

TEST_F(WiringTest, APushTheHostReceivedItselfGoesThroughTheKitsOwnExtension) {
  auto withCentre = std::make_shared<Platform>(*platform());
  auto centre = std::make_shared<testing::RecordingNotificationCenter>(platform()->mainQueue);
  withCentre->notificationCenter = centre;
  ASSERT_TRUE(installPlatform(withCentre));

  deliverRemoteNotification(
      {{"aps", ValueMap{{"alert", ValueMap{{"title", "Sale"}, {"body", "Today"}}}}},
       {"data", ValueMap{{"id", "p-9"}, {"registration_id", "00c0ffee"}}}});
  mainQueue().runUntilIdle();  // the extension gets the push on the main queue

  // The kit's extension reported it received and handed it to the centre unchanged.
  ASSERT_TRUE(sandbox().waitFor([&] { return !sandbox().reports().empty(); }, testing::kPatience));
  EXPECT_EQ(sandbox().reports().front().pushId, "p-9");
  const auto shown = centre->added();
  ASSERT_EQ(shown.size(), 1u);
  EXPECT_EQ(shown.front().content.title, "Sale");
  EXPECT_EQ(shown.front().content.body, "Today");
  EXPECT_TRUE(sandbox().violations().empty()) << sandbox().violationsJson().dump();
}

TEST_F(WiringTest, ForwardedCallbacksReachTheKitFirstThenTheHost) {
  auto configuration = OrvantaConfiguration::defaultConfiguration();
  configuration->setIsLoggingEnabled(true);
  Orvanta::configure(configuration);

  std::vector<std::string> order;
  port::Notification notification;
  notification.request.content.userInfo = {{"data", ValueMap{{"id", "p-1"}}}};
  auto completion = [&](port::PresentationOptions options) {
    order.push_back("completion " + std::to_string(options));
  };
  auto host = [&](const port::Notification&, std::function<void(port::PresentationOptions)>) {
    order.push_back("host");
  };
  OrvantaPushInterception::willPresentNotification(notification, completion, host);
  EXPECT_EQ(order, (std::vector<std::string>{"completion 4", "host"}));
  EXPECT_EQ(logSink().linesContaining(":love_letter: Notification Recived: ").size(), 1u);

  OrvantaPushInterception::didRegisterForRemoteNotifications(
      {0x0a}, [&](const std::vector<std::uint8_t>&) { order.push_back("host token"); });
  EXPECT_EQ(logSink().linesContaining("APNs token retrieved: 0a").size(), 1u);
  EXPECT_EQ(order.back(), "host token");

  // Switched off: only the host's own handlers run, and the kit completes nothing.
  order.clear();
  Orvanta::setIsAutoConfigurationForPushNotificationsEnabled(false);
  OrvantaPushInterception::willPresentNotification(notification, completion, host);
  port::NotificationResponse response{notification, "default"};
  OrvantaPushInterception::didReceiveNotificationResponse(
      response, [&] { order.push_back("response completion"); },
      [&](const port::NotificationResponse&, std::function<void()>) {
        order.push_back("host response");
      });
  EXPECT_EQ(order, (std::vector<std::string>{"host", "host response"}));
  EXPECT_EQ(logSink().linesContaining(":love_letter: Notification Recived: ").size(), 1u);
}

}  // namespace
}  // namespace orvanta
