#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "inapp/orvanta_in_app_interaction_impl.hpp"
#include "linux/folder_bundle.hpp"
#include "push/orvanta_push_impl.hpp"
#include "push/push_interception.hpp"
#include "testing/fake_push_platform.hpp"
#include "testing/mock_auth_data.hpp"
#include "testing/mock_devices_service.hpp"
#include "testing/platform_test.hpp"
#include "testing/temporary_directory.hpp"

namespace orvanta {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using Factory = OrvantaPushNotificationCategoriesFactory;
using Status = OrvantaNotificationStatus;

/// A push of the service: a body tap opens a browser page, the ACCEPT button a deep link.
ValueMap kitPush() {
  return {{"aps", ValueMap{{"alert", ValueMap{{"title", "Hi"}, {"body", "Deal"}}}}},
          {"data",
           ValueMap{{"id", "p-17"},
                    {"action", ValueMap{{"type", "BROWSER"}, {"url", "https://x.example/a"}}},
                    {"action_buttons",
                     ValueMap{{"category_id", "ORVANTA_PUSH_CATEGORY_ACCEPTANCE"},
                              {"items", ValueArray{ValueMap{{"id", "ORVANTA_PUSH_ACTION_ACCEPT"},
                                                            {"type", "DEEPLINK"},
                                                            {"url", "myapp://accept"}}}}}}}}};
}

port::NotificationResponse response(const ValueMap& userInfo, std::string action) {
  port::NotificationResponse result;
  result.notification.request.content.userInfo = userInfo;
  result.actionIdentifier = std::move(action);
  return result;
}

class PushTest : public testing::PlatformTest {
 protected:
  void SetUp() override {
    PlatformTest::SetUp();
    enableLogging();
    auto queue = platform()->mainQueue;
    center_ = std::make_shared<testing::RecordingNotificationCenter>(queue);
    authData_ = MockAuthData::make(testing::makeDevice("u"), authDataDependencies(devices_));
    auto reporter = std::make_shared<OrvantaNotificationStatusReporter>(
        OrvantaNotificationStatusReporter::Dependencies{pushes_, context().commonData(),
                                                        platform()->clock});
    auto inApp =
        std::make_shared<OrvantaInAppInteraction::Impl>(OrvantaInAppInteraction::Impl::Dependencies{
            platform()->presenter, application_, queue, platform()->bundle, reporter, authData_});
    auto impl = std::make_shared<OrvantaPush::Impl>(OrvantaPush::Impl::Dependencies{
        .authData = authData_,
        .notificationCenter = center_,
        .application = application_,
        .mainQueue = queue,
        .categoriesFactory = std::make_shared<Factory>(platform()->bundle),
        .statusReporter = reporter,
        .actionHandler = inApp,
    });
    push_ = std::make_unique<OrvantaPush>(impl);
    interception_ = std::make_shared<PushInterception>(impl);
  }

  void giveToken() {
    auto device = authData_->device();
    device.deviceToken = "00ab0f";
    authData_->setDevice(device);
  }

  std::shared_ptr<MockDevicesService> devices_ = std::make_shared<MockDevicesService>();
  std::shared_ptr<testing::RecordingPushesService> pushes_ =
      std::make_shared<testing::RecordingPushesService>();
  std::shared_ptr<testing::RecordingApplication> application_ =
      std::make_shared<testing::RecordingApplication>();
  std::shared_ptr<testing::RecordingNotificationCenter> center_;
  std::shared_ptr<MockAuthData> authData_;
  std::unique_ptr<OrvantaPush> push_;
  std::shared_ptr<PushInterception> interception_;
};

TEST(PushCategoriesTest, TwentyNineCategoriesOfThirteenButtonsTitledInTheUsersLanguage) {
  testing::TemporaryDirectory bundle;
  auto english = std::make_shared<linux_platform::FolderBundle>(
      bundle.path(), testing::TestPlatform::kitResourcesDirectory());
  auto german = std::make_shared<linux_platform::FolderBundle>(
      bundle.path(), testing::TestPlatform::kitResourcesDirectory(),
      std::vector<std::string>{"de_AT", "fr"});

  Factory factory(english);
  const auto& categories = factory.categories();
  ASSERT_EQ(categories.size(), 29u);
  std::size_t actions = 0;
  for (const auto& category : categories) {
    actions += category.actions.size();
    for (const auto& action : category.actions) {
      EXPECT_EQ(action.options, port::kNotificationActionOptionForeground);
      EXPECT_NE(action.title, Factory::titleKey(*Factory::action(action.identifier.substr(20))))
          << action.identifier << " has no English title";
    }
  }
  EXPECT_EQ(actions, 45u);
  EXPECT_EQ(&factory.categories(), &categories);  // built once

  // Inverted categories swap their base's two buttons; single-button categories hold one.
  auto sharingInverted = Factory::categoryFromId("ORVANTA_PUSH_CATEGORY_SHARING_INVERTED");
  ASSERT_TRUE(sharingInverted);
  EXPECT_THAT(Factory::actions(*sharingInverted),
              ElementsAre(Factory::PushNotificationActions::close,
                          Factory::PushNotificationActions::share));
  EXPECT_EQ(Factory::categoryFromId("SHARING"), Factory::PushNotificationCategories::sharing);
  EXPECT_EQ(Factory::categoryFromId("ORVANTA_PUSH_CATEGORY_ORVANTA_PUSH_CATEGORY_CLOSE"),
            Factory::PushNotificationCategories::close);
  EXPECT_EQ(Factory::categoryFromId("ORVANTA_PUSH_CATEGORY_sharing"), std::nullopt);
  auto close = Factory::notificationCategory(Factory::PushNotificationCategories::close, *english);
  EXPECT_EQ(close.identifier, "ORVANTA_PUSH_CATEGORY_CLOSE");
  ASSERT_EQ(close.actions.size(), 1u);
  EXPECT_EQ(close.actions[0].identifier, "ORVANTA_PUSH_ACTION_CLOSE");
  EXPECT_EQ(close.actions[0].title, "Close");

  // "de_AT" finds the German table; a key without translation shows as the key.
  auto decision =
      Factory::notificationCategory(Factory::PushNotificationCategories::decision, *german);
  EXPECT_EQ(decision.actions[0].title, "Ja");
  EXPECT_EQ(decision.actions[1].title, "Nein");
  EXPECT_EQ(german->localizedString("loc_cancel", "Localizable"), "Abbrechen");
  EXPECT_EQ(german->localizedString("loc_missing", "Localizable"), "loc_missing");
}

TEST_F(PushTest, RegisteringAsksPermissionEachTimeAndRegistersOnTheMainQueue) {
  push_->registerForPushNotifications(OrvantaPushOptions::defaultOptions());
  auto second = std::make_shared<OrvantaPushOptions>(port::kAuthorizationOptionAlert, false);
  push_->registerForPushNotifications(second);
  EXPECT_THAT(center_->authorizationRequests(), ElementsAre(7u, 4u));
  EXPECT_EQ(push_->options(), second);
  EXPECT_EQ(application_->registrations(), 0);  // only ever on the main queue
  mainQueue().runUntilIdle();
  EXPECT_EQ(application_->registrations(), 2);
  EXPECT_EQ(logSink().linesContaining("Successfully registered for Push Notifications").size(), 2u);

  center_->grant(false);  // refused: silent, nothing registered
  push_->registerForPushNotifications(second);
  mainQueue().runUntilIdle();
  EXPECT_EQ(application_->registrations(), 2);
  EXPECT_EQ(logLines().size(), 2u);

  push_->unregisterForPushNotifications();
  EXPECT_EQ(application_->unregistrations(), 0);
  mainQueue().runUntilIdle();
  EXPECT_EQ(application_->unregistrations(), 1);
}

TEST_F(PushTest, EveryTokenIsRegisteredAndReinstallsTheCategories) {
  interception_->didRegisterForRemoteNotifications({0x00, 0xAB, 0x0F});
  EXPECT_EQ(authData_->device().deviceToken, "00ab0f");
  ASSERT_EQ(devices_->registeredDevices().size(), 1u);
  EXPECT_EQ(logSink().linesContaining("APNs token retrieved: 00ab0f").size(), 1u);
  interception_->didRegisterForRemoteNotifications({0x00, 0xAB, 0x0F});
  ASSERT_EQ(center_->installedCategories().size(), 2u);
  EXPECT_EQ(center_->installedCategories()[1].size(), 29u);

  interception_->didFailToRegisterForRemoteNotifications(Error::custom("no distributor"));
  EXPECT_EQ(logSink()
                .linesContaining("Failed to register for remote notifications with error: "
                                 "no distributor")
                .size(),
            1u);

  // Without automatic configuration the platform's callbacks pass the kit by.
  push_->options()->setUseAutomaticConfiguration(false);
  interception_->didRegisterForRemoteNotifications({0x01});
  EXPECT_EQ(authData_->device().deviceToken, "00ab0f");
  EXPECT_EQ(devices_->registeredDevices().size(), 2u);
}

TEST_F(PushTest, TheRegistrationObserverHearsEachStepOnTheMainQueueInOrder) {
  std::vector<std::string> heard;
  auto observer = std::make_shared<OrvantaRegistrationObserver>();
  observer->didReceiveToken = [&](const std::string& token) { heard.push_back("token " + token); };
  observer->didRegisterWithService = [&](const std::optional<std::string>& token) {
    heard.push_back("registered " + token.value_or("-"));
  };
  observer->didFailToRegister = [&](const Error& error) {
    heard.push_back("failed " + error.localizedDescription());
  };
  push_->setRegistrationObserver(observer);
  auto delegate = std::make_shared<OrvantaPushDelegate>();
  push_->setDelegate(delegate);

  devices_->scriptRegistrations({std::nullopt, Error::statusCode(503)});
  interception_->didRegisterForRemoteNotifications({0x00, 0xAB, 0x0F});
  interception_->didRegisterForRemoteNotifications({0x01});  // refused: retried in 60 s
  push_->didFailToRegisterForRemoteNotifications(Error::custom("no distributor"));
  EXPECT_TRUE(heard.empty());  // only ever on the main queue
  mainQueue().runUntilIdle();
  EXPECT_THAT(heard, ElementsAre("token 00ab0f", "registered 00ab0f", "token 01",
                                 "failed Service Unavailable", "failed no distributor"));
  EXPECT_EQ(push_->delegate(), delegate);  // the delegate is a separate listener

  // Held weakly: a released observer is not called, also for work already queued.
  heard.clear();
  interception_->didRegisterForRemoteNotifications({0x02});
  observer.reset();
  mainQueue().runUntilIdle();
  EXPECT_TRUE(heard.empty());
}

TEST_F(PushTest, WillPresentLogsTheUserInfoAndAnswersWhatItWasGiven) {
  std::vector<ValueMap> seen;
  auto delegate = std::make_shared<OrvantaPushDelegate>();
  delegate->didRecieveNotificationWithUserInfo = [&](const ValueMap& info) {
    seen.push_back(info);
  };
  push_->setDelegate(delegate);

  port::Notification notification;
  notification.request.content.userInfo = {{"data", ValueMap{{"id", "p-1"}}}};
  EXPECT_EQ(push_->willPresentNotification(notification, 4), 4u);
  EXPECT_EQ(push_->willPresentNotification(notification, 0), 0u);
  ASSERT_EQ(seen.size(), 2u);
  EXPECT_EQ(seen[0], notification.request.content.userInfo);
  auto lines = logSink().linesContaining(":love_letter: Notification Recived: {\n");
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_THAT(lines[0], HasSubstr("{\n  \"data\": {\n    \"id\": \"p-1\"\n  }\n}\n"));

  // Through the platform's callback, the notification shows as an alert.
  std::vector<port::PresentationOptions> answers;
  interception_->willPresentNotification(notification,
                                         [&](auto options) { answers.push_back(options); });
  EXPECT_THAT(answers, ElementsAre(port::kPresentationOptionAlert));
}

TEST_F(PushTest, ResponsesReachWhicheverDelegateMethodsExistElseTheKitsActionsAndAreReported) {
  giveToken();
  // Every subset of the three optional delegate methods.
  for (int subset = 0; subset < 8; ++subset) {
    SCOPED_TRACE("delegate methods " + std::to_string(subset));
    std::vector<std::string> calls;
    auto delegate = std::make_shared<OrvantaPushDelegate>();
    if (subset & 1) {
      delegate->didRecieveNotificationWithUserInfo = [&](const ValueMap&) {
        calls.push_back("receive");
      };
    }
    if (subset & 2) {
      delegate->didOpenNotificationWithUserInfo = [&](const ValueMap& info) {
        EXPECT_EQ(info, kitPush());
        calls.push_back("open");
      };
    }
    if (subset & 4) {
      delegate->didClickOnActionButtonWithIdentifier = [&](const std::string& id, const ValueMap&) {
        calls.push_back("click " + id);
      };
    }
    push_->setDelegate(delegate);
    const auto openedBefore = application_->opened();
    const auto reportedBefore = pushes_->reported().size();

    push_->didReceiveNotificationResponse(response(kitPush(), "default"));
    push_->didReceiveNotificationResponse(response(kitPush(), "ORVANTA_PUSH_ACTION_ACCEPT"));

    std::vector<std::string> expectedCalls;
    std::vector<std::string> expectedOpened = openedBefore;
    (subset & 2) ? expectedCalls.push_back("open")
                 : expectedOpened.push_back("https://x.example/a");
    (subset & 4) ? expectedCalls.push_back("click ORVANTA_PUSH_ACTION_ACCEPT")
                 : expectedOpened.push_back("myapp://accept");
    EXPECT_EQ(calls, expectedCalls);
    EXPECT_EQ(application_->opened(), expectedOpened);

    auto reported = pushes_->reported();
    ASSERT_EQ(reported.size(), reportedBefore + 2);
    const Status& tap = reported[reportedBefore];
    EXPECT_EQ(tap.id, "p-17");
    EXPECT_EQ(tap.status, Status::PushReportStatus::reactedOn);
    EXPECT_EQ(tap.deviceToken, "00ab0f");
    EXPECT_EQ(tap.details, Status::DetailsType::click);
    EXPECT_EQ(tap.actionId, std::nullopt);
    const Status& button = reported[reportedBefore + 1];
    EXPECT_EQ(button.details, std::nullopt);
    EXPECT_EQ(button.actionId, "ORVANTA_PUSH_ACTION_ACCEPT");
  }
  EXPECT_EQ(context().commonData()->lastOpenedPushId(), "p-17");
  EXPECT_EQ(logSink()
                .linesContaining("Did click on notification action with id: "
                                 "\"ORVANTA_PUSH_ACTION_ACCEPT\"")
                .size(),
            8u);
}

TEST_F(PushTest, ResponsesBeforeATokenOrToPushesOfOthersAndReleasedDelegatesStayQuiet) {
  bool called = false;
  auto delegate = std::make_shared<OrvantaPushDelegate>();
  delegate->didOpenNotificationWithUserInfo = [&](const ValueMap&) { called = true; };
  push_->setDelegate(delegate);

  push_->didReceiveNotificationResponse(response(kitPush(), "default"));  // no token yet
  giveToken();
  push_->didReceiveNotificationResponse(response({{"aps", ValueMap{}}}, "default"));  // not ours
  EXPECT_FALSE(called);
  EXPECT_TRUE(pushes_->reported().empty());
  EXPECT_TRUE(logLines().empty());

  // The host let its delegate go: the kit acts on its own and still reports.
  delegate.reset();
  push_->didReceiveNotificationResponse(response(kitPush(), "default"));
  EXPECT_FALSE(called);
  EXPECT_THAT(application_->opened(), ElementsAre("https://x.example/a"));
  EXPECT_EQ(pushes_->reported().size(), 1u);
}

}  // namespace
}  // namespace orvanta
