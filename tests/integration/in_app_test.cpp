#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "entry/components.hpp"
#include "testing/fake_presenter.hpp"
#include "testing/fake_push_platform.hpp"
#include "testing/inbox.hpp"
#include "testing/sandbox_test.hpp"

namespace orvanta {
namespace {

using testing::awaitLinesContaining;
using ::testing::ElementsAre;
using testing::FakeScreen;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

nlohmann::json withoutTime(nlohmann::json report) {
  report.erase("occurred_at");
  return report;
}

nlohmann::json reaction(const std::string& pushId, nlohmann::json extra) {
  nlohmann::json body = {
      {"id", pushId}, {"status", 1}, {"type", "IOS"}, {"registration_id", "00ab0f"}};
  body.update(extra);
  return body;
}

// The in-app side of the kit over the sandbox: its alerts, their buttons and reports, action
// handling, and the last-push catch-up on launch and return to the foreground. The host's
// screens: a navigation stack whose top screen has a modal screen over it.
class InAppTest : public testing::SandboxTest {
 protected:
  void SetUp() override {
    SandboxTest::SetUp();
    queue_ = std::make_shared<testing::WatchedMainQueue>(mainQueue());
    auto top = FakeScreen::plain("top");
    modal_ = FakeScreen::plain("modal");
    top->presented = modal_;
    presenter_->root = FakeScreen::navigation("navigation", {FakeScreen::plain("first"), top});

    auto platformCopy = std::make_shared<Platform>(*platform());
    platformCopy->presenter = presenter_;
    platformCopy->application = application_;
    platformCopy->mainQueue = queue_;
    context_ = std::make_shared<detail::KitContext>(platformCopy);
    push_ = detail::makePushComponents(context_);
    handler_ = detail::makeInAppPushHandler(context_, push_);
  }

  void TearDown() override {
    handler_.reset();
    push_ = {};
    context_.reset();
    SandboxTest::TearDown();
  }

  void giveToken() {
    auto device = context_->authData()->device();
    device.deviceToken = "00ab0f";
    context_->authData()->setDevice(device);
  }

  /// Shows `payload` as the in-app alert and runs the main queue until it is up; its index.
  std::size_t showAlert(const ValueMap& data) {
    auto payload = OrvantaNotificationPayload::fromUserInfo({{"data", data}});
    EXPECT_TRUE(payload);
    push_.inAppInteraction->presentInAppPushAlert(nullptr, *payload);
    EXPECT_TRUE(queue_->runOncePosted(++posted_));
    return presenter_->alerts().size() - 1;
  }

  std::vector<nlohmann::json> reports(std::size_t count) {
    EXPECT_TRUE(
        sandbox().waitFor([&] { return sandbox().reports().size() >= count; }, testing::kPatience));
    std::vector<nlohmann::json> bodies;
    for (const auto& report : sandbox().reports()) {
      bodies.push_back(withoutTime(report.body));
    }
    return bodies;
  }

  std::shared_ptr<testing::RecordingPresenter> presenter_ =
      std::make_shared<testing::RecordingPresenter>();
  std::shared_ptr<testing::RecordingApplication> application_ =
      std::make_shared<testing::RecordingApplication>();
  std::shared_ptr<testing::WatchedMainQueue> queue_;
  std::shared_ptr<FakeScreen> modal_;
  std::shared_ptr<detail::KitContext> context_;
  detail::PushComponents push_;
  std::shared_ptr<OrvantaInAppPushHandler> handler_;
  std::size_t posted_ = 0;
};

TEST_F(InAppTest, EachKindOfAlertHasItsButtonsAndEachButtonItsReport) {
  giveToken();
  const ValueMap accept{
      {"id", "ORVANTA_PUSH_ACTION_ACCEPT"}, {"type", "DEEPLINK"}, {"url", "myapp://accept"}};
  const ValueMap decline{
      {"id", "ORVANTA_PUSH_ACTION_DECLINE"}, {"type", "NONE"}, {"url", "https://x.example"}};
  const ValueMap single{
      {"id", "open-sale"}, {"type", "BROWSER"}, {"url", "https://x.example/sale"}};

  // A category: its buttons, titled and ordered as the notification's, each running its action.
  auto category = showAlert({{"id", "p-1"},
                             {"title", "Offer"},
                             {"body", "Take it?"},
                             {"action_buttons", ValueMap{{"category_id", "ACCEPTANCE"},
                                                         {"items", ValueArray{accept, decline}}}}});
  EXPECT_EQ(presenter_->alerts()[category].on, modal_);  // the modal over the navigation stack
  EXPECT_EQ(presenter_->alerts()[category].alert.title, "Offer");
  EXPECT_EQ(presenter_->alerts()[category].alert.message, "Take it?");
  EXPECT_THAT(presenter_->buttonTitles(category), ElementsAre("Accept", "Decline"));
  presenter_->press(category, 0);
  EXPECT_THAT(application_->opened(), ElementsAre("myapp://accept"));
  EXPECT_EQ(reports(1).back(), reaction("p-1", {{"actionId", "ORVANTA_PUSH_ACTION_ACCEPT"}}));

  // A category button whose action the push lacks: a log line, no report.
  auto partial =
      showAlert({{"id", "p-2"},
                 {"action_buttons", ValueMap{{"category_id", "ORVANTA_PUSH_CATEGORY_DECISION"},
                                             {"items", ValueArray{accept}}}}});
  EXPECT_THAT(presenter_->buttonTitles(partial), ElementsAre("Yes", "No"));
  presenter_->press(partial, 1);
  EXPECT_EQ(logSink()
                .linesContaining("Can't handle alert action, notificationPayload doesn't have "
                                 "action with id: ORVANTA_PUSH_ACTION_NO")
                .size(),
            1u);

  // A single action, also behind an unknown category: OK runs it, cancel reports a dismissal.
  for (const char* categoryId : {"", "NOT_OURS"}) {
    SCOPED_TRACE(categoryId);
    ValueMap data{{"id", *categoryId == '\0' ? "p-3" : "p-3b"}, {"action", single}};
    if (*categoryId != '\0') {
      data["action_buttons"] = ValueMap{{"category_id", categoryId}};
    }
    auto one = showAlert(data);
    EXPECT_THAT(presenter_->buttonTitles(one), ElementsAre("OK", "Cancel"));
    EXPECT_EQ(presenter_->alerts()[one].alert.buttons[1].style, port::AlertActionStyle::cancel);
    presenter_->press(one, 0);
    auto two = showAlert(data);
    presenter_->press(two, 1);
  }
  EXPECT_THAT(application_->opened(),
              ElementsAre("myapp://accept", "https://x.example/sale", "https://x.example/sale"));
  // Each report is a request of its own: they may land in any order.
  EXPECT_THAT(reports(5),
              UnorderedElementsAre(reaction("p-1", {{"actionId", "ORVANTA_PUSH_ACTION_ACCEPT"}}),
                                   reaction("p-3", {{"actionId", "open-sale"}}),
                                   reaction("p-3", {{"details", "DIALOG_DISMISS_ACTION"}}),
                                   reaction("p-3b", {{"actionId", "open-sale"}}),
                                   reaction("p-3b", {{"details", "DIALOG_DISMISS_ACTION"}})));

  // Neither: one OK button that only reports.
  auto plain = showAlert({{"id", "p-4"}});
  EXPECT_THAT(presenter_->buttonTitles(plain), ElementsAre("OK"));
  presenter_->press(plain, 0);
  EXPECT_EQ(reports(6).back(), reaction("p-4", nlohmann::json::object()));
  EXPECT_EQ(application_->opened().size(), 3u);
}

TEST_F(InAppTest, ActionsAreCheckedInOrderAndOpenedWhereThePlatformCan) {
  auto action = [](const ValueMap& fields) {
    return *OrvantaNotificationPayload::fromUserInfo(
                {{"data", ValueMap{{"id", "p"}, {"action", fields}}}})
                ->action;
  };
  auto& inApp = *push_.inAppInteraction;
  inApp.handleAction(action({{"url", "https://x.example"}}));
  inApp.handleAction(action({{"type", "NONE"}}));
  inApp.handleAction(action({{"type", "NONE"}, {"url", "https://x.example/none"}}));
  inApp.handleAction(action({{"type", "BROWSER"}, {"url", "https://x.example/page"}}));
  inApp.handleAction(action({{"type", "DEEPLINK"}, {"url", "unknown://item/7"}}));
  inApp.handleAction(action({{"type", "WEBVIEW"}, {"url", "https://x.example/web"}}));
  queue_->runOncePosted(1);

  EXPECT_EQ(logSink().linesContaining("Can't handle action, type is missing").size(), 1u);
  EXPECT_EQ(logSink().linesContaining("Can't handle action, URL is missing").size(), 1u);
  EXPECT_EQ(
      logSink().linesContaining("Unable to openURL: unknown://item/7 for type: deeplink").size(),
      1u);
  EXPECT_THAT(application_->opened(), ElementsAre("https://x.example/page"));
  ASSERT_EQ(presenter_->webViews().size(), 1u);
  EXPECT_EQ(presenter_->webViews()[0].on, modal_);
  EXPECT_EQ(presenter_->webViews()[0].surface->engine().loadedURLs,
            std::vector<std::string>{"https://x.example/web"});
}

TEST_F(InAppTest, TheLastPushIsFetchedOnLaunchAndOnEveryReturnToTheForeground) {
  auto& lifecycle = *testPlatform().lifecycle();
  // No token yet: one line, no request.
  lifecycle.post(port::LifecycleEvent::didFinishLaunching);
  EXPECT_EQ(
      logSink().linesContaining("Unable to fetch lastPush, deviceToken doesn't not exists.").size(),
      1u);
  EXPECT_EQ(sandbox().requestCount(), 0u);

  // The launch observer is gone; the service has nothing (404): one info line.
  giveToken();
  lifecycle.post(port::LifecycleEvent::didFinishLaunching);
  EXPECT_EQ(sandbox().requestCount(), 0u);
  lifecycle.post(port::LifecycleEvent::willEnterForeground);
  EXPECT_EQ(
      awaitLinesContaining(logSink(), "There is no unreached notification available to display", 1)
          .size(),
      1u);

  // A failing service: the error line.
  sandbox().setLastPush("00ab0f", {{"id", "p-9"}, {"title", "Missed"}});
  sandbox().setFault(sandbox::Endpoint::lastPush, sandbox::Fault{.status = 500});
  lifecycle.post(port::LifecycleEvent::willEnterForeground);
  EXPECT_EQ(awaitLinesContaining(logSink(), "Internal Server Error", 1).size(), 1u);
  sandbox().clearFaults();

  // No delegate: the push is shown as an alert.
  lifecycle.post(port::LifecycleEvent::willEnterForeground);
  ASSERT_TRUE(queue_->runOncePosted(1));
  ASSERT_EQ(presenter_->alerts().size(), 1u);
  EXPECT_EQ(presenter_->alerts()[0].alert.title, "Missed");

  // Already opened: one line, nothing shown.
  context_->commonData()->setLastOpenedPushId("p-9");
  lifecycle.post(port::LifecycleEvent::willEnterForeground);
  EXPECT_EQ(
      awaitLinesContaining(logSink(), "Fetched lastPush was already opened by user.", 1).size(),
      1u);
  EXPECT_EQ(presenter_->alerts().size(), 1u);
}

TEST_F(InAppTest, AHostDelegateGetsTheUnreachedPushAndReportsOnlyWhatItDisplayed) {
  giveToken();
  testing::Inbox<std::function<void(bool)>> offered;
  auto delegate = std::make_shared<OrvantaPushDelegate>();
  delegate->unreachedNotificationIsAvailableToDisplay =
      [&](const ValueMap&, std::function<void(bool)> done) { offered.push(std::move(done)); };
  push_.push->setDelegate(delegate);

  sandbox().setLastPush("00ab0f", {{"id", "p-5"}});
  testPlatform().lifecycle()->post(port::LifecycleEvent::willEnterForeground);
  ASSERT_TRUE(offered.waitFor(1));
  offered.items()[0](false);
  sandbox().setLastPush("00ab0f", {{"id", "p-6"}});
  testPlatform().lifecycle()->post(port::LifecycleEvent::willEnterForeground);
  ASSERT_TRUE(offered.waitFor(2));
  offered.items()[1](true);
  offered.items()[1](true);  // a second answer changes nothing

  EXPECT_THAT(reports(1), ElementsAre(reaction("p-6", {{"details", "DIALOG_DISMISS_ACTION"}})));
  EXPECT_EQ(sandbox().reports().size(), 1u);
  EXPECT_THAT(presenter_->alerts(), IsEmpty());
  EXPECT_EQ(context_->commonData()->lastOpenedPushId(), "p-6");
}

}  // namespace
}  // namespace orvanta
