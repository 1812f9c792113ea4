// The event pipeline against the sandbox: facade, queue, database and the real HTTP client.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <set>
#include <string>

#include "analytics/orvanta_analytics_impl.hpp"
#include "testing/sandbox_test.hpp"

namespace orvanta {
namespace {

using sandbox::Endpoint;

sandbox::Fault refusing() {
  sandbox::Fault fault;
  fault.status = 503;
  return fault;
}

sandbox::Fault delayed(std::chrono::milliseconds delay) {
  sandbox::Fault fault;
  fault.delay = delay;
  return fault;
}

class AnalyticsTest : public testing::SandboxTest {
 protected:
  testing::TestPlatformOptions platformOptions() const override {
    testing::TestPlatformOptions options;
    options.backgroundTaskBudget = std::chrono::milliseconds(0);  // tasks expire at willSuspend
    return options;
  }

  void SetUp() override {
    SandboxTest::SetUp();
    std::filesystem::create_directories(testPlatform().dataDirectory());
    database_ = std::make_shared<Database<OrvantaEvent>>(testPlatform().dataDirectory() +
                                                         "/events-under-test.sqlite");
    handler_ = OrvantaAnalyticsOperationsHandler::make(
        {database_,
         [this] { return std::make_shared<EventsService>(context().router<EventsEndPoint>()); }});
    authData_ = context().authData();
    analytics_ = std::make_unique<OrvantaAnalytics>(
        OrvantaAnalytics::Impl::make({handler_, authData_, testPlatform().lifecycle(),
                                      platform()->clock, context().configFile()}));
  }

  void TearDown() override {
    analytics_.reset();
    handler_.reset();
    SandboxTest::TearDown();
  }

  void givePushToken() {
    OrvantaDevice device = authData_->device();
    device.deviceToken = "a1b2c3";
    authData_->setDevice(device);
  }
  std::size_t storedRows() { return database_->allRows().size(); }
  void settle() { handler_->waitUntilIdle(); }
  void goToBackground() {
    testPlatform().lifecycle()->post(port::LifecycleEvent::didEnterBackground);
  }

  std::shared_ptr<Database<OrvantaEvent>> database_;
  std::shared_ptr<OrvantaAnalyticsOperationsHandler> handler_;
  std::shared_ptr<AuthData> authData_;
  std::unique_ptr<OrvantaAnalytics> analytics_;
};

TEST_F(AnalyticsTest, NothingIsRecordedBeforeThereIsAPushToken) {
  analytics_->trackEvent("early", {{"k", "v"}});
  settle();
  EXPECT_EQ(storedRows(), 0u);
  EXPECT_EQ(sandbox().requestCount(), 0u);
  EXPECT_TRUE(logLines().empty());
}

TEST_F(AnalyticsTest, TrackedEventIsDeliveredWithItsTypedParametersAndForgotten) {
  givePushToken();
  analytics_->trackEvent("purchase", {{"sku", "A-1"},
                                      {"qty", 2},
                                      {"gift", false},
                                      {"boxed", Value::boxed(true)},
                                      {"price", 2.5},
                                      {"when", Date::sinceReferenceDate(722390400.5)}});
  ASSERT_TRUE(sandbox().waitForEventCount(1, testing::kPatience));
  settle();
  EXPECT_EQ(storedRows(), 0u);
  auto body = sandbox().events().at(0).body;
  EXPECT_EQ(body["eventName"], "purchase");
  EXPECT_EQ(body["pushId"], "a1b2c3|||" + sandbox().credentials().appId);
  EXPECT_EQ(body["additionalStringFields"], nlohmann::json({{"sku", "A-1"}}));
  EXPECT_EQ(body["additionalNumericFields"], nlohmann::json({{"boxed", 1}, {"qty", 2}}));
  EXPECT_EQ(body["additionalBoolFields"], nlohmann::json({{"gift", false}}));
  EXPECT_EQ(body["additionalDateFields"], nlohmann::json({{"when", 722390400.5}}));
  EXPECT_TRUE(sandbox().violations().empty());
  EXPECT_EQ(logSink()
                .linesContaining("Successfully sent event: purchase, parameters: "
                                 "{\"boxed\":1,\"gift\":false,\"qty\":2,\"sku\":\"A-1\","
                                 "\"when\":722390400.5}")
                .size(),
            1u);
}

// Host text that is not UTF-8 is repaired as it enters: the event is stored, delivered with its
// parameters, and its row deleted, like any other.
TEST_F(AnalyticsTest, TextThatIsNotUtf8IsRepairedAndDelivered) {
  givePushToken();
  enableLogging();
  analytics_->trackEvent("caf\xC3", {{"k\xFF", "v\xE2\x82"}, {"n", 1}});
  ASSERT_TRUE(sandbox().waitForEventCount(1, testing::kPatience));
  settle();
  EXPECT_EQ(storedRows(), 0u);
  auto body = sandbox().events().at(0).body;
  EXPECT_EQ(body["eventName"], "caf\uFFFD");
  EXPECT_EQ(body["additionalStringFields"], nlohmann::json({{"k\uFFFD", "v\uFFFD"}}));
  EXPECT_EQ(body["additionalNumericFields"], nlohmann::json({{"n", 1}}));
  EXPECT_TRUE(sandbox().violations().empty());
  EXPECT_EQ(logSink().linesContaining("Successfully sent event: caf\xEF\xBF\xBD").size(), 1u);
}

TEST_F(AnalyticsTest, OfflineEventsStayUntilABackgroundFlushDeliversThem) {
  givePushToken();
  sandbox().setFault(std::nullopt, refusing());
  analytics_->trackEvent("one");
  analytics_->trackEvent("two");
  analytics_->trackEvent("three");
  settle();
  EXPECT_EQ(storedRows(), 3u);
  // Every flush posts every stored row: 1 + 2 + 3 posts, all refused.
  EXPECT_EQ(sandbox().requestCount(), 6u);
  EXPECT_EQ(logSink().linesContaining("Failed to send event: ").size(), 6u);
  EXPECT_EQ(sandbox().eventCount(), 0u);

  sandbox().clearFaults();
  goToBackground();
  ASSERT_TRUE(sandbox().waitForEventCount(3, testing::kPatience));
  settle();
  EXPECT_EQ(storedRows(), 0u);
  for (const auto& event : sandbox().events()) {
    EXPECT_EQ(event.deliveries, 1);
  }
  // The background task is held until its time runs out, not given back after the flush.
  auto* impl = analytics_->impl().get();
  EXPECT_EQ(testPlatform().lifecycle()->runningBackgroundTasks(), 1u);
  EXPECT_NE(impl->backgroundTask(), port::kInvalidBackgroundTask);
  testPlatform().lifecycle()->willSuspend();
  EXPECT_EQ(testPlatform().lifecycle()->runningBackgroundTasks(), 0u);
  EXPECT_EQ(impl->backgroundTask(), port::kInvalidBackgroundTask);
}

TEST_F(AnalyticsTest, TenPostsAtMostAndExpiryCancelsTheRestWhoseRowsSurvive) {
  givePushToken();
  for (int i = 0; i < 25; ++i) {
    handler_->addEventToDatabase(std::make_shared<const OrvantaEvent>(
        "a1b2c3", sandbox().credentials().appId, "e" + std::to_string(i), 1700000000.0 + i,
        ValueMap{}));
  }
  sandbox().setFault(Endpoint::event, delayed(std::chrono::seconds(20)));
  goToBackground();
  ASSERT_TRUE(sandbox().waitFor([&] { return sandbox().inFlight(Endpoint::event).now == 10; },
                                testing::kPatience));

  testPlatform().lifecycle()->willSuspend();  // the background time is up
  sandbox().clearFaults();                    // the ten delayed answers go out now
  settle();
  EXPECT_EQ(sandbox().inFlight(Endpoint::event).max, 10);
  EXPECT_EQ(sandbox().requestCount(), 10u);
  EXPECT_EQ(sandbox().eventCount(), 10u);
  EXPECT_EQ(storedRows(), 15u);

  // The next tracked event sends the survivors and itself.
  analytics_->trackEvent("later");
  ASSERT_TRUE(sandbox().waitForEventCount(26, testing::kPatience));
  settle();
  EXPECT_EQ(storedRows(), 0u);
  EXPECT_LE(sandbox().inFlight(Endpoint::event).max, 10);
  std::set<std::string> names;
  for (const auto& event : sandbox().events()) {
    names.insert(event.body["eventName"].get<std::string>());
  }
  EXPECT_EQ(names.size(), 26u);
}

}  // namespace
}  // namespace orvanta
