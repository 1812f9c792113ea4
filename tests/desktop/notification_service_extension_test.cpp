// The notification service extension in the Linux delivery path: what is reported, what is shown
// (through a notification server of our own that shows body images), the attachment's name, and
// the time budget.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>

#include "core/health.hpp"
#include "linux/gio/gio_notification_center.hpp"
#include "linux/remote_push_delivery.hpp"
#include "push/orvanta_notification_service_extension_impl.hpp"
#include "push/remote_push_message.hpp"
#include "testing/dbus/fake_notification_server.hpp"
#include "testing/dbus/private_session_bus.hpp"
#include "testing/fake_push_platform.hpp"
#include "testing/loopback_http_server.hpp"
#include "testing/platform_test.hpp"
#include "testing/sandbox_test.hpp"
#include "unified_push_support.hpp"

namespace orvanta {
namespace {

using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using namespace std::chrono_literals;

constexpr const char* kUuid = "[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}";

// The test's own temporary folder, so that attachments can be found and counted.
class FolderLocations : public port::FileLocations {
 public:
  explicit FolderLocations(std::string folder) : folder_(std::move(folder)) {}
  port::DirectoryLookup documentsDirectory() override { return {folder_, {}}; }
  std::string temporaryDirectory() override { return folder_; }

 private:
  std::string folder_;
};

class NotificationServiceExtensionTest : public testing::PlatformTest {
 protected:
  testing::TestPlatformOptions platformOptions() const override {
    testing::TestPlatformOptions options;
    options.threadedMainQueue = true;
    return options;
  }

  void SetUp() override {
    PlatformTest::SetUp();
    enableLogging();
    ASSERT_TRUE(bus_.started()) << bus_.failure();
    server_ = std::make_unique<testing::FakeNotificationServer>(
        bus_.address(), std::vector<std::string>{"actions", "body", "body-images"});
    ASSERT_TRUE(server_->started()) << server_->failure();
    centre_ = linux_platform::makeGioNotificationCenter(
        {bus_.address(), "Orvanta test", "Show", platform()->mainQueue});
    std::filesystem::create_directories(attachments_.path());
  }

  void TearDown() override {
    centre_.reset();
    server_.reset();
    PlatformTest::TearDown();
  }

  /// The kit's work for one push. Made on the test's thread: the factories that get it run on the
  /// main queue.
  std::shared_ptr<OrvantaNotificationServiceExtension::Impl> makeImpl() {
    return std::make_shared<OrvantaNotificationServiceExtension::Impl>(
        OrvantaNotificationServiceExtension::Impl::Dependencies{
            std::make_shared<OrvantaNotificationStatusReporter>(
                OrvantaNotificationStatusReporter::Dependencies{pushes_, context().commonData(),
                                                                platform()->clock}),
            platform()->httpClient, std::make_shared<FolderLocations>(attachments_.path())});
  }

  /// Hands the push to a delivery as the connector does, and waits for it to be shown.
  testing::RecordedNotification deliverAndWait(
      const ValueMap& userInfo, linux_platform::RemotePushDelivery::ExtensionFactory factory = {},
      std::chrono::milliseconds budget = 60s) {
    if (!factory) {
      factory = [impl = makeImpl()] {
        return std::make_shared<OrvantaNotificationServiceExtension>(impl);
      };
    }
    const std::size_t before = server_->notifications().size();
    linux_platform::RemotePushDelivery::make(
        {centre_, platform()->mainQueue, std::move(factory), budget})
        ->deliver(userInfo);
    // Well within the budget, unless the test shortened it: a push that waits for the budget to
    // end is not "delivered at once".
    EXPECT_TRUE(server_->waitForNotifications(before + 1, 20s));
    const auto shown = server_->notifications();
    return shown.size() > before ? shown[before] : testing::RecordedNotification{};
  }

  static ValueMap push(std::optional<std::string> image, bool withRegistration = true) {
    ValueMap data{{"id", "p-7"}};
    if (withRegistration) {
      data["registration_id"] = "00ab0f";
    }
    if (image) {
      data["image"] = *image;
    }
    return {{"aps", ValueMap{{"alert", ValueMap{{"title", "Sale"}, {"body", "Today"}}}}},
            {"data", std::move(data)}};
  }

  /// The attachment's file name, or "" when the notification shows none.
  static std::string attachmentName(const testing::RecordedNotification& shown) {
    auto hint = shown.hints.find("image-path");
    if (hint == shown.hints.end()) {
      return {};
    }
    gchar* path = g_filename_from_uri(hint->second.c_str(), nullptr, nullptr);
    std::string name = path != nullptr ? std::filesystem::path(path).filename().string() : "?";
    g_free(path);
    return name;
  }

  std::size_t filesIn(const std::string& folder) const {
    std::size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder)) {
      ++count;
    }
    return count;
  }

  testing::PrivateSessionBus bus_;
  std::unique_ptr<testing::FakeNotificationServer> server_;
  std::shared_ptr<port::NotificationCenter> centre_;
  std::shared_ptr<testing::RecordingPushesService> pushes_ =
      std::make_shared<testing::RecordingPushesService>();
  testing::TemporaryDirectory attachments_;
  /// What the image server answers from now on.
  void answerImages(int status, port::HttpHeaders headers,
                    std::chrono::milliseconds delay = std::chrono::milliseconds(0)) {
    std::lock_guard lock(imageMutex_);
    image_ = {status, std::move(headers), testing::kTinyPng, delay};
  }

  std::mutex imageMutex_;
  testing::LoopbackResponse image_{200, {{"Content-Type", "image/png"}}, testing::kTinyPng, {}};
  testing::LoopbackHttpServer images_{[this](const testing::LoopbackRequest&) {
    std::lock_guard lock(imageMutex_);
    return image_;
  }};
};

TEST_F(NotificationServiceExtensionTest, WhatIsReportedAndShownFollowsThePayload) {
  const auto closedPort = [] {
    testing::LoopbackHttpServer gone;
    return gone.port();
  }();
  struct Case {
    const char* name;
    ValueMap push;
    int imageStatus;
    const char* contentType;
    std::size_t reports;    // received reports sent
    bool image;             // shown with the image
    const char* errorLine;  // the one error line, if any
  };
  const std::vector<Case> cases = {
      {"no registration id: unchanged, not reported, no image fetched",
       push(images_.url("/sale.png"), false), 200, "image/png", 0, false, nullptr},
      {"no image: reported and shown at once", push(std::nullopt), 200, "image/png", 1, false,
       nullptr},
      {"an image", push(images_.url("/sale.png")), 200, "image/png", 1, true, nullptr},
      {"a download answered 404", push(images_.url("/sale.png")), 404, "text/plain", 1, false,
       "Download file error: Not Found"},
      {"nothing answers the image URL",
       push("http://127.0.0.1:" + std::to_string(closedPort) + "/sale.png"), 200, "image/png", 1,
       false, "Download file error: "},
      {"a file that is no picture", push(images_.url("/terms.txt")), 200, "text/plain", 1, false,
       "Create attachment error: "},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.name);
    logSink().clear();
    answerImages(each.imageStatus, {{"Content-Type", each.contentType}});
    const std::size_t reportsBefore = pushes_->reported().size();
    const std::size_t downloadsBefore = images_.requestCount();

    const auto shown = deliverAndWait(each.push);
    EXPECT_EQ(shown.summary, "Sale");
    EXPECT_EQ(shown.body, "Today");
    EXPECT_EQ(!attachmentName(shown).empty(), each.image);

    // The report is made before the content is handed over, so the count is final here.
    const auto reported = pushes_->reported();
    ASSERT_EQ(reported.size() - reportsBefore, each.reports);
    if (each.reports == 1) {
      EXPECT_EQ(reported.back().id, "p-7");
      EXPECT_EQ(reported.back().status, OrvantaNotificationStatus::PushReportStatus::received);
      EXPECT_EQ(reported.back().deviceToken, "00ab0f");
      EXPECT_FALSE(reported.back().details);
      EXPECT_FALSE(reported.back().actionId);
    }
    if (!each.reports) {
      EXPECT_EQ(images_.requestCount(), downloadsBefore);
    }
    const auto errors = logSink().linesContaining("error: ");
    if (each.errorLine != nullptr) {
      ASSERT_EQ(testing::awaitLinesContaining(logSink(), each.errorLine, 1).size(), 1U);
    } else {
      EXPECT_TRUE(errors.empty()) << errors.front();
    }
  }
  // Only the shown picture stayed in the temporary folder.
  EXPECT_EQ(filesIn(attachments_.path()), 1U);
}

TEST_F(NotificationServiceExtensionTest,
       TheAttachmentIsAFreshUuidWithTheSuggestedNameAndItsExtension) {
  struct Case {
    const char* path;
    port::HttpHeaders headers;
    std::string expected;  // after the UUID
  };
  const std::vector<Case> cases = {
      // The server's suggested file name wins.
      {"/img/x",
       {{"Content-Type", "image/png"}, {"Content-Disposition", "inline; filename=\"banner.jpg\""}},
       "-banner\\.jpg"},
      {"/img/x", {{"Content-Disposition", "attachment; filename=../../evil.gif"}}, "-evil\\.gif"},
      // Without one, the URL's last path component, extension kept.
      {"/images/sale.png?size=2", {{"Content-Type", "image/png"}}, "-sale\\.png"},
      // A name without an extension takes the one the content type implies.
      {"/image", {{"Content-Type", "image/jpeg"}}, "-image\\.jpg"},
  };
  std::set<std::string> names;
  for (const auto& each : cases) {
    SCOPED_TRACE(each.path);
    answerImages(200, each.headers);
    const std::string name = attachmentName(deliverAndWait(push(images_.url(each.path))));
    EXPECT_THAT(name, MatchesRegex(std::string(kUuid) + each.expected));
    EXPECT_TRUE(std::filesystem::exists(attachments_.file(name)));
    names.insert(name);
  }
  EXPECT_EQ(names.size(), cases.size());  // unique per download
}

TEST_F(NotificationServiceExtensionTest, ADownloadSlowerThanTheBudgetIsShownWithoutTheImage) {
  // The image answers only when the server stops.
  answerImages(200, {{"Content-Type", "image/png"}}, 10min);
  struct Watching : OrvantaNotificationServiceExtension {
    Watching(std::shared_ptr<Impl> impl, std::atomic<int>& expiries)
        : OrvantaNotificationServiceExtension(std::move(impl)), expiries_(expiries) {}
    void serviceExtensionTimeWillExpire() override {
      ++expiries_;
      OrvantaNotificationServiceExtension::serviceExtensionTimeWillExpire();
    }
    std::atomic<int>& expiries_;
  };
  std::atomic<int> expiries{0};
  const auto shown = deliverAndWait(
      push(images_.url("/slow.png")),
      [&expiries, impl = makeImpl()] { return std::make_shared<Watching>(impl, expiries); }, 300ms);
  EXPECT_EQ(attachmentName(shown), "");
  EXPECT_EQ(shown.summary, "Sale");
  EXPECT_EQ(expiries.load(), 1);
  EXPECT_EQ(pushes_->reported().size(), 1U);
  EXPECT_TRUE(images_.waitForRequests(1));
  EXPECT_TRUE(logSink().linesContaining("handed no content over in time").empty());
}

TEST_F(NotificationServiceExtensionTest, AHostsExtensionDecidesWhatIsShownWithinTheBudget) {
  // One that changes the content and keeps the kit's work.
  struct Branded : OrvantaNotificationServiceExtension {
    using OrvantaNotificationServiceExtension::OrvantaNotificationServiceExtension;
    void didReceive(const port::NotificationRequest& request,
                    ContentHandler contentHandler) override {
      auto changed = request;
      changed.content.title = "[Shop] " + changed.content.title;
      OrvantaNotificationServiceExtension::didReceive(changed, std::move(contentHandler));
    }
  };
  auto shown = deliverAndWait(push(std::nullopt),
                              [impl = makeImpl()] { return std::make_shared<Branded>(impl); });
  EXPECT_EQ(shown.summary, "[Shop] Sale");
  EXPECT_EQ(pushes_->reported().size(), 1U);

  // One that never hands anything over: the push is shown as it came once the budget is spent.
  struct Silent : OrvantaNotificationServiceExtension {
    using OrvantaNotificationServiceExtension::OrvantaNotificationServiceExtension;
    void didReceive(const port::NotificationRequest&, ContentHandler) override {}
    void serviceExtensionTimeWillExpire() override {}
  };
  shown = deliverAndWait(
      push(std::nullopt), [impl = makeImpl()] { return std::make_shared<Silent>(impl); }, 200ms);
  EXPECT_EQ(shown.summary, "Sale");
  EXPECT_EQ(logSink()
                .linesContaining("handed no content over in time; the push is shown as it came")
                .size(),
            1U);

  // One that throws, and a factory that gives none: shown as they came.
  struct Throwing : OrvantaNotificationServiceExtension {
    using OrvantaNotificationServiceExtension::OrvantaNotificationServiceExtension;
    void didReceive(const port::NotificationRequest&, ContentHandler) override {
      throw std::runtime_error("host failure");
    }
  };
  EXPECT_EQ(deliverAndWait(
                push(std::nullopt),
                [impl = makeImpl()] { return std::make_shared<Throwing>(impl); }, 200ms)
                .summary,
            "Sale");
  EXPECT_EQ(deliverAndWait(push(std::nullopt), [] { return nullptr; }).summary, "Sale");
}

// The health counters follow a push's life: received and shown with its report sent, received
// but not the kit's format, a report the service refuses, and shown to a desktop that has no
// notification server any more.
TEST_F(NotificationServiceExtensionTest, HealthCountersFollowAPushsLife) {
  const OrvantaHealth before = health::snapshot();
  const auto counted = [&](std::uint64_t OrvantaHealth::*counter) {
    return health::snapshot().*counter - before.*counter;
  };
  // Shown or not is counted when the server has answered, just after it recorded the call.
  const auto reaches = [&](std::uint64_t OrvantaHealth::*counter, std::uint64_t value) {
    const auto deadline = std::chrono::steady_clock::now() + testing::kPatience;
    while (counted(counter) < value && std::chrono::steady_clock::now() < deadline) {
      std::this_thread::sleep_for(5ms);
    }
    return counted(counter) == value;
  };

  deliverAndWait(push(std::nullopt));
  EXPECT_FALSE(remotePushUserInfo("{\"aps\": "));
  struct Refusing : PushesServiceProtocol {
    void report(const OrvantaNotificationStatus&, CompletionHandler<Void> handler) override {
      handler.onError(Error::statusCode(500));
    }
  };
  auto refused = std::make_shared<OrvantaNotificationServiceExtension::Impl>(
      OrvantaNotificationServiceExtension::Impl::Dependencies{
          std::make_shared<OrvantaNotificationStatusReporter>(
              OrvantaNotificationStatusReporter::Dependencies{
                  std::make_shared<Refusing>(), context().commonData(), platform()->clock}),
          platform()->httpClient, std::make_shared<FolderLocations>(attachments_.path())});
  deliverAndWait(push(std::nullopt), [refused] {
    return std::make_shared<OrvantaNotificationServiceExtension>(refused);
  });
  EXPECT_EQ(counted(&OrvantaHealth::pushesReceived), 3u);
  EXPECT_EQ(counted(&OrvantaHealth::pushesDroppedInvalid), 1u);
  EXPECT_EQ(counted(&OrvantaHealth::reportsSent), 1u);
  EXPECT_EQ(counted(&OrvantaHealth::reportsFailed), 1u);
  EXPECT_TRUE(reaches(&OrvantaHealth::pushesShown, 2));

  server_.reset();
  linux_platform::RemotePushDelivery::make({centre_, platform()->mainQueue, {}, 60s})
      ->deliver(push(std::nullopt));
  EXPECT_TRUE(reaches(&OrvantaHealth::pushesDroppedNotShown, 1));
  EXPECT_EQ(counted(&OrvantaHealth::pushesShown), 2u);
}

}  // namespace
}  // namespace orvanta
