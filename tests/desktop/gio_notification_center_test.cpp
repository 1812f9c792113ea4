#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "linux/gio/gio_notification_center.hpp"
#include "testing/dbus/fake_notification_server.hpp"
#include "testing/dbus/private_session_bus.hpp"
#include "testing/inbox.hpp"
#include "testing/platform_test.hpp"

namespace orvanta {
namespace {

using port::kPresentationOptionAlert;
using port::kPresentationOptionSound;
using port::Notification;
using port::NotificationRequest;
using port::NotificationResponse;
using port::PresentationOptions;
using testing::currentThreadName;
using ::testing::ElementsAre;
using testing::FakeNotificationServer;
using ::testing::HasSubstr;
using testing::Inbox;
using ::testing::IsEmpty;
using testing::PrivateSessionBus;
using testing::RecordedNotification;

constexpr std::uint64_t kAllAuthorizationOptions = 7;
const std::string kAppName = "Orvanta Test";

struct Presented {
  Notification notification;
  std::function<void(PresentationOptions)> answer;
  std::string thread;
};

struct Received {
  NotificationResponse response;
  std::string thread;
};

struct AddOutcome {
  std::string identifier;
  std::optional<Error> error;
  std::string thread;
};

// Answers each notification with `answerFor` at once, or keeps the handler for the test to answer
// when `answerFor` is empty.
class RecordingDelegate : public port::NotificationCenterDelegate {
 public:
  std::function<PresentationOptions(const Notification&)> answerFor = [](const Notification&) {
    return kPresentationOptionAlert;
  };

  void willPresentNotification(const Notification& notification,
                               std::function<void(PresentationOptions)> handler) override {
    presented.push({notification, handler, currentThreadName()});
    if (answerFor) {
      handler(answerFor(notification));
    }
  }
  void didReceiveNotificationResponse(const NotificationResponse& response,
                                      std::function<void()> handler) override {
    received.push({response, currentThreadName()});
    handler();
  }

  Inbox<Presented> presented;
  Inbox<Received> received;
};

port::NotificationCategory category(const std::string& identifier,
                                    std::vector<std::pair<std::string, std::string>> buttons) {
  port::NotificationCategory result{identifier, {}};
  for (auto& [id, title] : buttons) {
    result.actions.push_back({id, title, port::kNotificationActionOptionForeground});
  }
  return result;
}

NotificationRequest request(const std::string& identifier, const std::string& title,
                            const std::string& category = "") {
  NotificationRequest result;
  result.identifier = identifier;
  result.content.title = title;
  result.content.body = "Body of " + title;
  result.content.categoryIdentifier = category;
  result.content.userInfo = ValueMap{{"pushId", identifier}, {"data", ValueMap{{"n", 2}}}};
  return result;
}

class GioNotificationCenterTest : public testing::PlatformTest {
 protected:
  void SetUp() override {
    PlatformTest::SetUp();
    enableLogging();
    bus_ = std::make_unique<PrivateSessionBus>();
    ASSERT_TRUE(bus_->started()) << bus_->failure();
  }

  void TearDown() override {
    center_.reset();
    server_.reset();
    bus_.reset();
    PlatformTest::TearDown();
  }

  FakeNotificationServer& startServer(std::vector<std::string> capabilities = {"actions", "body"}) {
    server_.reset();
    server_ = std::make_unique<FakeNotificationServer>(bus_->address(), std::move(capabilities));
    EXPECT_TRUE(server_->started()) << server_->failure();
    return *server_;
  }

  void stopServer() { server_.reset(); }

  port::NotificationCenter& center(std::string busAddress = "", bool resident = false) {
    if (!center_) {
      linux_platform::GioNotificationCenterOptions options;
      options.busAddress = busAddress.empty() ? bus_->address() : busAddress;
      options.applicationName = kAppName;
      options.defaultActionLabel = "Open it";
      options.desktopEntry = "com.example.Shop";
      options.residentNotifications = resident;
      center_ = linux_platform::makeGioNotificationCenter(options);
    }
    return *center_;
  }

  // Adds the request and records the outcome in `outcomes`.
  void add(NotificationRequest request) {
    const std::string identifier = request.identifier;
    center().add(std::move(request), [this, identifier](std::optional<Error> error) {
      outcomes_.push({identifier, std::move(error), currentThreadName()});
    });
  }

  // The server's record of the notification titled `summary`, once it has arrived.
  RecordedNotification shown(const std::string& summary) {
    std::optional<RecordedNotification> found;
    server_->waitFor([&](const std::vector<RecordedNotification>& all) {
      for (const auto& each : all) {
        if (each.summary == summary) {
          found = each;
        }
      }
      return found.has_value();
    });
    EXPECT_TRUE(found) << "no notification titled " << summary;
    return found.value_or(RecordedNotification{});
  }

  std::unique_ptr<PrivateSessionBus> bus_;
  std::unique_ptr<FakeNotificationServer> server_;
  std::shared_ptr<port::NotificationCenter> center_;
  Inbox<AddOutcome> outcomes_;
};

TEST_F(GioNotificationCenterTest, ShowsTitleBodyAndTheCategoryButtonsInOrderThenDefault) {
  auto& server = startServer();
  center().setNotificationCategories(
      {category("CAT_SHARE", {{"ACTION_SHARE", "Share"}, {"ACTION_CLOSE", "Close"}}),
       category("CAT_YES", {{"ACTION_YES", "Yes"}})});
  add(request("r1", "First", "CAT_SHARE"));
  add(request("r2", "Second", "CAT_UNKNOWN"));
  // The whole set is replaced: CAT_SHARE is gone afterwards.
  center().setNotificationCategories({category("CAT_YES", {{"ACTION_YES", "Yes"}})});
  add(request("r3", "Third", "CAT_SHARE"));
  add(request("r4", "Fourth", "CAT_YES"));
  // Same identifier as an earlier request still on screen: it replaces that notification.
  add(request("r1", "First again"));

  ASSERT_TRUE(server.waitForNotifications(5));
  const auto first = shown("First");
  EXPECT_EQ(first.appName, kAppName);
  EXPECT_EQ(first.body, "Body of First");
  EXPECT_EQ(first.replacesId, 0u);
  EXPECT_EQ(first.expireTimeout, -1);
  EXPECT_THAT(first.actions,
              ElementsAre("ACTION_SHARE", "Share", "ACTION_CLOSE", "Close", "default", "Open it"));
  EXPECT_THAT(first.hints, (std::map<std::string, std::string>{
                               {"desktop-entry", "com.example.Shop"}, {"urgency", "0x01"}}));
  EXPECT_THAT(shown("Second").actions, ElementsAre("default", "Open it"));
  EXPECT_THAT(shown("Third").actions, ElementsAre("default", "Open it"));
  EXPECT_THAT(shown("Fourth").actions, ElementsAre("ACTION_YES", "Yes", "default", "Open it"));
  const auto again = shown("First again");
  EXPECT_EQ(again.replacesId, first.id);
  EXPECT_EQ(again.id, first.id);

  ASSERT_TRUE(outcomes_.waitFor(5));
  for (const auto& outcome : outcomes_.items()) {
    EXPECT_FALSE(outcome.error) << outcome.identifier << ": "
                                << outcome.error->localizedDescription();
    EXPECT_EQ(outcome.thread, "orvanta-dbus");
  }
  EXPECT_THAT(logSink().lines(), IsEmpty());
}

TEST_F(GioNotificationCenterTest, BodyClickAndButtonReachTheDelegateWithTheRequestAsAdded) {
  auto& server = startServer();
  auto delegate = std::make_shared<RecordingDelegate>();
  center().setDelegate(delegate);
  EXPECT_EQ(center().delegate(), delegate);
  center().setNotificationCategories(
      {category("CAT_ACCEPT", {{"ORVANTA_PUSH_ACTION_ACCEPT", "Accept"}})});
  auto tapped = request("push-1", "Tapped", "CAT_ACCEPT");
  tapped.content.attachments.push_back({"image", "/tmp/picture.png"});
  add(tapped);
  add(request("push-2", "Buttoned", "CAT_ACCEPT"));
  const auto body = shown("Tapped");
  const auto button = shown("Buttoned");

  // Both were offered to the delegate first, on the centre's thread.
  ASSERT_TRUE(delegate->presented.waitFor(2));
  const auto offered = delegate->presented.items();
  EXPECT_EQ(offered[0].notification.request.identifier, "push-1");
  EXPECT_EQ(offered[0].thread, "orvanta-dbus");

  server.emitActionInvoked(body.id, "default");
  server.emitActionInvoked(button.id, "ORVANTA_PUSH_ACTION_ACCEPT");
  ASSERT_TRUE(delegate->received.waitFor(2));
  const auto received = delegate->received.items();
  ASSERT_EQ(received.size(), 2u);

  const auto& tap = received[0].response;
  EXPECT_EQ(tap.actionIdentifier, port::kDefaultActionIdentifier);
  EXPECT_EQ(tap.notification.request.identifier, "push-1");
  EXPECT_EQ(tap.notification.request.content.title, "Tapped");
  EXPECT_EQ(tap.notification.request.content.categoryIdentifier, "CAT_ACCEPT");
  EXPECT_EQ(tap.notification.request.content.userInfo, tapped.content.userInfo);
  ASSERT_EQ(tap.notification.request.content.attachments.size(), 1u);
  EXPECT_EQ(tap.notification.request.content.attachments[0].path, "/tmp/picture.png");
  EXPECT_EQ(tap.notification.date, offered[0].notification.date);
  EXPECT_EQ(received[0].thread, "orvanta-dbus");

  const auto& press = received[1].response;
  EXPECT_EQ(press.actionIdentifier, "ORVANTA_PUSH_ACTION_ACCEPT");
  EXPECT_EQ(press.notification.request.identifier, "push-2");
  EXPECT_EQ(press.notification.request.content.userInfo,
            (ValueMap{{"pushId", "push-2"}, {"data", ValueMap{{"n", 2}}}}));

  // Held weakly: once the host lets it go, the centre has no delegate.
  auto other = std::make_shared<RecordingDelegate>();
  center().setDelegate(other);
  other.reset();
  EXPECT_EQ(center().delegate(), nullptr);
}

TEST_F(GioNotificationCenterTest, ClosedNotificationsAndForeignIdsGetNoResponse) {
  auto& server = startServer();
  auto delegate = std::make_shared<RecordingDelegate>();
  center().setDelegate(delegate);
  add(request("a", "Closed one"));
  add(request("b", "Open one"));
  const auto closed = shown("Closed one");
  const auto open = shown("Open one");

  server.emitNotificationClosed(closed.id, 2);
  server.emitActionInvoked(closed.id, "default");      // the centre forgot it when it was closed
  server.emitActionInvoked(open.id + 100, "default");  // never ours
  server.emitActionInvoked(open.id, "default");

  // Signals are handled in order: anything the first three caused would come before this one.
  ASSERT_TRUE(delegate->received.waitFor(1));
  const auto received = delegate->received.items();
  ASSERT_EQ(received.size(), 1u);
  EXPECT_EQ(received[0].response.notification.request.identifier, "b");

  // Handled, the notification is closed (the server leaves that to its client) and forgotten:
  // a second press on it, still on a slow server's screen, is nobody's.
  ASSERT_TRUE(server.waitForCloseRequests(1));
  EXPECT_THAT(server.closeRequests(), ElementsAre(open.id));
  server.emitActionInvoked(open.id, "default");
  add(request("c", "Later one"));
  const auto later = shown("Later one");
  server.emitActionInvoked(later.id, "default");
  ASSERT_TRUE(delegate->received.waitFor(2));
  EXPECT_EQ(delegate->received.items().size(), 2u);
  EXPECT_EQ(delegate->received.items()[1].response.notification.request.identifier, "c");
}

TEST_F(GioNotificationCenterTest, ResidentNotificationsStayAfterTheyWereHandled) {
  auto& server = startServer();
  auto delegate = std::make_shared<RecordingDelegate>();
  center("", true).setDelegate(delegate);
  add(request("a", "Stays"));
  const auto stays = shown("Stays");
  EXPECT_EQ(stays.hints.at("resident"), "true");
  server.emitActionInvoked(stays.id, "default");
  server.emitActionInvoked(stays.id, "default");
  ASSERT_TRUE(delegate->received.waitFor(2));
  EXPECT_THAT(server.closeRequests(), IsEmpty());
}

TEST_F(GioNotificationCenterTest, TheDelegateDecidesFromAnyThreadAndOnlyAlertsAreShown) {
  auto& server = startServer();
  auto delegate = std::make_shared<RecordingDelegate>();
  delegate->answerFor = nullptr;  // the test answers
  center().setDelegate(delegate);
  add(request("silent", "Silent"));
  add(request("twice", "Twice"));
  add(request("last", "Last"));
  ASSERT_TRUE(delegate->presented.waitFor(3));
  const auto offered = delegate->presented.items();

  // Answered from this thread, not the centre's.
  offered[0].answer(0);
  offered[1].answer(kPresentationOptionAlert);
  offered[1].answer(kPresentationOptionAlert);  // a second answer is ignored
  offered[2].answer(kPresentationOptionAlert | kPresentationOptionSound);

  shown("Last");
  std::vector<std::string> titles;
  for (const auto& each : server.notifications()) {
    titles.push_back(each.summary);
  }
  EXPECT_THAT(titles, ElementsAre("Twice", "Last"));
  ASSERT_TRUE(outcomes_.waitFor(3));
  for (const auto& outcome : outcomes_.items()) {
    EXPECT_FALSE(outcome.error) << outcome.identifier;  // not shown is not a failure
  }
}

TEST_F(GioNotificationCenterTest, TheServerCapabilitiesDecideImageAndMarkup) {
  const std::string picture = bus_->directory().file("picture.png");
  testing::writeFile(picture, "not really a picture");
  const std::string pictureUri = "file://" + picture;
  struct Case {
    std::vector<std::string> capabilities;
    bool image;
    bool markup;
  };
  const std::vector<Case> cases = {
      {{"actions", "body"}, false, false},
      {{"actions", "body", "body-images"}, true, false},
      {{"body", "icon-static", "body-markup"}, true, true},
  };
  int index = 0;
  for (const auto& each : cases) {
    SCOPED_TRACE("capabilities case " + std::to_string(index));
    // A new server each time: the centre asks the one in place, not a remembered answer.
    auto& server = startServer(each.capabilities);
    auto withPicture = request("p" + std::to_string(index), "Picture " + std::to_string(index));
    withPicture.content.body = "Fish & chips <b>now</b>";
    withPicture.content.attachments.push_back({"image", picture});
    add(withPicture);
    const auto notification = shown(withPicture.content.title);
    if (each.image) {
      EXPECT_EQ(notification.hints.count("image-path"), 1u);
      EXPECT_EQ(notification.hints.at("image-path"), pictureUri);
    } else {
      EXPECT_EQ(notification.hints.count("image-path"), 0u);
    }
    EXPECT_EQ(notification.body,
              each.markup ? "Fish &amp; chips &lt;b&gt;now&lt;/b&gt;" : "Fish & chips <b>now</b>");
    EXPECT_GE(server.capabilityRequests(), 1u);
    ++index;
  }
}

TEST_F(GioNotificationCenterTest, AuthorizationAndPresentingSucceedWhileAServerAnswers) {
  Inbox<std::pair<bool, std::optional<Error>>> answers;
  Inbox<std::string> threads;
  auto ask = [&] {
    center().requestAuthorization(kAllAuthorizationOptions,
                                  [&](bool granted, std::optional<Error> error) {
                                    threads.push(currentThreadName());
                                    answers.push({granted, std::move(error)});
                                  });
  };

  // A bus without a server: refused, with one line saying why; presenting fails and the reason
  // is logged once.
  ask();
  ASSERT_TRUE(answers.waitFor(1));
  EXPECT_FALSE(answers.items()[0].first);
  ASSERT_TRUE(answers.items()[0].second);
  EXPECT_THAT(answers.items()[0].second->localizedDescription(),
              HasSubstr("no notification server"));
  ASSERT_EQ(logSink().lines().size(), 1u);
  EXPECT_THAT(logSink().lines()[0], HasSubstr("Permission to show notifications refused: no "
                                              "notification server on the session D-Bus"));
  add(request("a", "Nobody sees this"));
  add(request("b", "Nor this"));
  ASSERT_TRUE(outcomes_.waitFor(2));
  for (const auto& outcome : outcomes_.items()) {
    ASSERT_TRUE(outcome.error);
    EXPECT_THAT(outcome.error->localizedDescription(), HasSubstr("no notification server"));
  }
  const auto logged = logSink().linesContaining("Notifications can't be shown");
  ASSERT_EQ(logged.size(), 1u);
  EXPECT_THAT(logged[0], HasSubstr("no notification server on the session D-Bus"));

  // A server that turns up later is used.
  startServer();
  ask();
  add(request("c", "Seen"));
  shown("Seen");
  ASSERT_TRUE(answers.waitFor(2));
  EXPECT_TRUE(answers.items()[1].first);
  EXPECT_FALSE(answers.items()[1].second);
  ASSERT_TRUE(outcomes_.waitFor(3));
  EXPECT_FALSE(outcomes_.items()[2].error);

  // A later outage is refused again and logged again, once.
  stopServer();
  ask();
  add(request("d", "Lost"));
  add(request("e", "Lost too"));
  ASSERT_TRUE(answers.waitFor(3));
  EXPECT_FALSE(answers.items()[2].first);
  EXPECT_TRUE(answers.items()[2].second);
  ASSERT_TRUE(outcomes_.waitFor(5));
  EXPECT_EQ(logSink().linesContaining("Notifications can't be shown").size(), 2u);
  EXPECT_THAT(threads.items(), ElementsAre("orvanta-dbus", "orvanta-dbus", "orvanta-dbus"));
}

TEST_F(GioNotificationCenterTest, WithoutABusNothingIsShownAndTheKitCarriesOn) {
  const std::string nowhere = "unix:path=" + bus_->directory().file("no-bus-here");
  Inbox<std::pair<bool, std::optional<Error>>> answers;
  center(nowhere).requestAuthorization(kAllAuthorizationOptions,
                                       [&](bool granted, std::optional<Error> error) {
                                         answers.push({granted, std::move(error)});
                                       });
  add(request("a", "Nowhere"));
  add(request("b", "Nowhere either"));
  ASSERT_TRUE(answers.waitFor(1));
  ASSERT_TRUE(outcomes_.waitFor(2));

  EXPECT_FALSE(answers.items()[0].first);
  ASSERT_TRUE(answers.items()[0].second);
  EXPECT_THAT(answers.items()[0].second->localizedDescription(), HasSubstr("no session D-Bus"));
  for (const auto& outcome : outcomes_.items()) {
    ASSERT_TRUE(outcome.error);
    EXPECT_THAT(outcome.error->localizedDescription(), HasSubstr("no session D-Bus"));
  }
  const auto logged = logSink().linesContaining("Notifications can't be shown");
  ASSERT_EQ(logged.size(), 1u);
  EXPECT_THAT(logged[0], HasSubstr("no session D-Bus"));
  const auto refused = logSink().linesContaining("Permission to show notifications refused: ");
  ASSERT_EQ(refused.size(), 1u);
  EXPECT_THAT(refused[0], HasSubstr("no session D-Bus"));
}

TEST_F(GioNotificationCenterTest, TheCentreMayBeReleasedFromItsOwnCallback) {
  startServer();
  std::promise<std::string> released;
  auto future = released.get_future();
  {
    auto centre = std::shared_ptr<port::NotificationCenter>(
        linux_platform::makeGioNotificationCenter({bus_->address(), kAppName, "Open", nullptr}));
    auto* raw = centre.get();
    // The completion holds the last reference; dropping it there stops the centre's own thread.
    raw->requestAuthorization(kAllAuthorizationOptions,
                              [centre, &released](bool, std::optional<Error>) mutable {
                                centre.reset();
                                released.set_value(currentThreadName());
                              });
  }
  ASSERT_EQ(future.wait_for(std::chrono::seconds(20)), std::future_status::ready);
  EXPECT_EQ(future.get(), "orvanta-dbus");

  // A centre made and released afterwards works as usual (and joins the earlier thread).
  startServer();
  add(request("after", "After"));
  shown("After");
}

}  // namespace
}  // namespace orvanta
