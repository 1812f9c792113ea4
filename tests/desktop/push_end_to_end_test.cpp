#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "desktop_test_support.hpp"
#include "entry/components.hpp"
#include "linux/gio/gio_notification_center.hpp"
#include "linux/thread_main_queue.hpp"
#include "push/orvanta_push_impl.hpp"
#include "push/remote_notification.hpp"
#include "testing/dbus/fake_notification_server.hpp"
#include "testing/dbus/private_session_bus.hpp"
#include "testing/fake_push_platform.hpp"
#include "testing/sandbox_test.hpp"

namespace orvanta {
namespace {

using ::testing::ElementsAre;

// A push handled the whole way on a desktop: the kit's stack over the notification server of a
// private session bus and the sandbox; taps come from the server, reports land at the sandbox.
class PushEndToEndTest : public testing::SandboxTest {
 protected:
  void SetUp() override {
    SandboxTest::SetUp();
    ASSERT_TRUE(bus_.started()) << bus_.failure();
    server_ = std::make_unique<testing::FakeNotificationServer>(bus_.address());
    ASSERT_TRUE(server_->started()) << server_->failure();

    auto desktop = std::make_shared<Platform>(*platform());
    desktop->notificationCenter = linux_platform::makeGioNotificationCenter(
        {bus_.address(), "Orvanta test", "Show", mainQueue_});
    desktop->application = application_;
    context_ = std::make_shared<detail::KitContext>(desktop);
    stack_ = detail::makePushComponents(context_);
    center_ = desktop->notificationCenter;

    // The device is registered with its token, as at every launch.
    stack_.push->didRegisterForRemoteNotifications({0x00, 0xab, 0x0f});
    ASSERT_TRUE(
        sandbox().waitFor([&] { return sandbox().devices().size() == 1; }, testing::kPatience));
  }

  void TearDown() override {
    stack_ = {};
    center_.reset();
    context_.reset();
    server_.reset();
    SandboxTest::TearDown();
  }

  ValueMap push() const {
    return {{"aps", ValueMap{{"alert", ValueMap{{"title", "Flash sale"}, {"body", "Two hours"}}}}},
            {"data",
             ValueMap{{"id", "p-17"},
                      {"registration_id", "00ab0f"},
                      {"action_buttons",
                       ValueMap{{"category_id", "ORVANTA_PUSH_CATEGORY_ACCEPTANCE"},
                                {"items", ValueArray{ValueMap{{"id", "ORVANTA_PUSH_ACTION_ACCEPT"},
                                                              {"type", "DEEPLINK"},
                                                              {"url", "myapp://accept"}}}}}}}}};
  }

  /// Shows the push and waits for the server to have it; its server id.
  std::uint32_t show() {
    const std::size_t before = server_->notifications().size();
    center_->add(notificationRequestFromUserInfo(push()), nullptr);
    EXPECT_TRUE(server_->waitForNotifications(before + 1));
    return server_->notifications().back().id;
  }

  bool waitForReports(std::size_t count) {
    return sandbox().waitFor([&] { return sandbox().reports().size() >= count; },
                             testing::kPatience);
  }

  testing::PrivateSessionBus bus_;
  std::unique_ptr<testing::FakeNotificationServer> server_;
  std::shared_ptr<port::MainQueue> mainQueue_ = std::make_shared<linux_platform::ThreadMainQueue>();
  std::shared_ptr<testing::RecordingApplication> application_ =
      std::make_shared<testing::RecordingApplication>();
  std::shared_ptr<detail::KitContext> context_;
  detail::PushComponents stack_;
  std::shared_ptr<port::NotificationCenter> center_;
};

TEST_F(PushEndToEndTest, ATapAndAButtonPressAreReportedWithTheExactBodies) {
  const std::uint32_t id = show();
  const auto shown = server_->notifications().back();
  EXPECT_EQ(shown.summary, "Flash sale");
  EXPECT_EQ(shown.body, "Two hours");
  EXPECT_THAT(shown.actions,
              ElementsAre("ORVANTA_PUSH_ACTION_ACCEPT", "Accept", "ORVANTA_PUSH_ACTION_DECLINE",
                          "Decline", "default", "Show"));

  server_->emitActionInvoked(id, "default");
  ASSERT_TRUE(waitForReports(1));
  server_->emitActionInvoked(id, "ORVANTA_PUSH_ACTION_ACCEPT");
  ASSERT_TRUE(waitForReports(2));

  auto reports = sandbox().reports();
  ASSERT_EQ(reports.size(), 2u);
  EXPECT_EQ(reports[0].pushId, "p-17");
  auto tap = reports[0].body;
  ASSERT_TRUE(tap.contains("occurred_at"));
  tap.erase("occurred_at");
  EXPECT_EQ(tap, (nlohmann::json{{"id", "p-17"},
                                 {"status", 1},
                                 {"type", "IOS"},
                                 {"registration_id", "00ab0f"},
                                 {"details", "NOTIFICATION_CLICK_ACTION"}}));
  auto button = reports[1].body;
  button.erase("occurred_at");
  EXPECT_EQ(button, (nlohmann::json{{"id", "p-17"},
                                    {"status", 1},
                                    {"type", "IOS"},
                                    {"registration_id", "00ab0f"},
                                    {"actionId", "ORVANTA_PUSH_ACTION_ACCEPT"}}));
  // Without a delegate the kit followed the button's deep link itself.
  EXPECT_THAT(application_->opened(), ElementsAre("myapp://accept"));
  EXPECT_TRUE(sandbox().violations().empty()) << sandbox().violationsJson().dump();
}

TEST_F(PushEndToEndTest, AHostDelegateTakesTheTapAndTheReportStillLands) {
  testing::Inbox<std::string> opened;
  auto delegate = std::make_shared<OrvantaPushDelegate>();
  delegate->didOpenNotificationWithUserInfo = [&](const ValueMap& userInfo) {
    auto data = userInfo.at("data").map();
    opened.push(*data->at("id").string());
  };
  stack_.push->setDelegate(delegate);

  server_->emitActionInvoked(show(), "default");
  ASSERT_TRUE(opened.waitFor(1));
  EXPECT_THAT(opened.items(), ElementsAre("p-17"));
  ASSERT_TRUE(waitForReports(1));
  EXPECT_EQ(sandbox().reports()[0].body["details"], "NOTIFICATION_CLICK_ACTION");
  EXPECT_TRUE(application_->opened().empty());
}

}  // namespace
}  // namespace orvanta
