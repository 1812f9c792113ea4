// The event pipeline against the sandbox: facade, queue, database and the real HTTP client.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <set>
#include <string>

#include <sqlite3.h>

#include "analytics/orvanta_analytics_impl.hpp"
#include "core/health.hpp"
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

// The service takes 64 KiB of event body. A larger event is refused where it is tracked, with one
// line that does not print it. Rows stored by an earlier version: one the size of the limit is
// delivered (the sandbox agrees), one a byte over is set aside at the next fetch, kept for
// diagnosis and never posted, while the rows beside it are delivered.
TEST_F(AnalyticsTest, EventsOverTheServiceLimitAreRefusedOrSetAsideNeverPostedForEver) {
  givePushToken();
  enableLogging();
  analytics_->trackEvent(std::string(1 << 20, 'n'), {{"k", "v"}});
  EXPECT_EQ(storedRows(), 0u);
  auto refused = logSink().linesContaining("not recorded: its body is ");
  ASSERT_EQ(refused.size(), 1u);
  EXPECT_LT(refused[0].size(), 300u);
  EXPECT_NE(refused[0].find("over the 65536 the service takes"), std::string::npos);

  // One string parameter padded so that the body is exactly the limit, or a byte more.
  auto event = [&](const std::string& name, std::size_t bodySize) {
    OrvantaEvent probe("a1b2c3", sandbox().credentials().appId, name, 1700000000.5,
                       {{"pad", std::string()}});
    std::string body;
    probe.writeBody(body);
    return std::make_shared<const OrvantaEvent>(
        "a1b2c3", sandbox().credentials().appId, name, 1700000000.5,
        ValueMap{{"pad", std::string(bodySize - body.size(), 'p')}});
  };
  handler_->addEventToDatabase(event("before", 1000));
  handler_->addEventToDatabase(event("over", OrvantaAnalytics::kMaxEventSize + 1));
  handler_->addEventToDatabase(event("at-limit", OrvantaAnalytics::kMaxEventSize));
  handler_->postEventsFromDatabase();
  ASSERT_TRUE(sandbox().waitForEventCount(2, testing::kPatience));
  settle();
  EXPECT_EQ(storedRows(), 0u);
  EXPECT_EQ(logSink().linesContaining(" set aside, not sent: body of 65537 bytes").size(), 1u);
  handler_->postEventsFromDatabase();
  settle();
  EXPECT_EQ(sandbox().requestCount(), 2u);
  EXPECT_TRUE(sandbox().violations().empty());

  // Kept beside the table, with its reason.
  sqlite3* connection = nullptr;
  ASSERT_EQ(sqlite3_open((testPlatform().dataDirectory() + "/events-under-test.sqlite").c_str(),
                         &connection),
            SQLITE_OK);
  sqlite3_stmt* statement = nullptr;
  ASSERT_EQ(
      sqlite3_prepare_v2(connection, "SELECT \"eventName\", \"reason\" FROM \"orvantaevent_aside\"",
                         -1, &statement, nullptr),
      SQLITE_OK);
  ASSERT_EQ(sqlite3_step(statement), SQLITE_ROW);
  EXPECT_STREQ(reinterpret_cast<const char*>(sqlite3_column_text(statement, 0)), "over");
  EXPECT_THAT(reinterpret_cast<const char*>(sqlite3_column_text(statement, 1)),
              ::testing::HasSubstr("over the 65536 the service takes"));
  EXPECT_EQ(sqlite3_step(statement), SQLITE_DONE);
  sqlite3_finalize(statement);
  sqlite3_close(connection);
}

// `flush` waits for delivery: through refused posts it tries again until the service takes them,
// and with the service down it gives up at its deadline and says how many are left.
TEST_F(AnalyticsTest, FlushWaitsUntilDeliveredOrTheDeadlineAndSaysWhatIsLeft) {
  givePushToken();
  sandbox().setFault(std::nullopt, refusing());
  analytics_->trackEvent("one");
  analytics_->trackEvent("two");
  settle();
  auto fault = refusing();
  fault.count = 3;
  sandbox().clearFaults();
  sandbox().setFault(Endpoint::event, fault);  // the next three posts are refused
  const auto deadline = std::chrono::steady_clock::now() + testing::kPatience;
  EXPECT_EQ(analytics_->impl()->flush(deadline), 0u);
  EXPECT_EQ(storedRows(), 0u);
  EXPECT_EQ(sandbox().eventCount(), 2u);

  sandbox().setFault(std::nullopt, refusing());
  analytics_->trackEvent("three");
  settle();
  sandbox().reset();
  sandbox().setFault(std::nullopt, refusing());
  EXPECT_EQ(
      analytics_->impl()->flush(std::chrono::steady_clock::now() + std::chrono::milliseconds(600)),
      1u);
  EXPECT_GE(sandbox().requestCount(), 2u);  // tried again before giving up
  EXPECT_EQ(storedRows(), 1u);
}

// The health counters follow an event's life: tracked without a device or over the limit
// (refused), stored, waiting while the service refuses or can't be reached (failures by kind, the
// queue and its oldest event's age), then posted.
TEST_F(AnalyticsTest, HealthCountersFollowAnEventsLife) {
  const auto delta = [before = health::snapshot()](const OrvantaHealth& now) {
    OrvantaHealth d = now;
    d.eventsTracked -= before.eventsTracked;
    d.eventsRefused -= before.eventsRefused;
    d.eventsStored -= before.eventsStored;
    d.eventsPosted -= before.eventsPosted;
    d.postFailuresNetwork -= before.postFailuresNetwork;
    d.postFailuresClientError -= before.postFailuresClientError;
    d.postFailuresServerError -= before.postFailuresServerError;
    return d;
  };
  const auto now = [&] {
    OrvantaHealth health = health::snapshot();
    analytics_->impl()->describeQueue(health);
    return delta(health);
  };

  analytics_->trackEvent("no-device");
  givePushToken();
  analytics_->trackEvent(std::string(1 << 17, 'n'));
  EXPECT_EQ(now().eventsTracked, 2u);
  EXPECT_EQ(now().eventsRefused, 2u);

  sandbox::Fault badRequest;
  badRequest.status = 400;
  sandbox().setFault(Endpoint::event, badRequest);
  analytics_->trackEvent("first");
  settle();
  sandbox().setFault(Endpoint::event, refusing());
  testPlatform().clock()->advance(std::chrono::seconds(90));
  analytics_->trackEvent("second");
  settle();
  sandbox().setFault(Endpoint::event, sandbox::Fault{.drop = true});
  analytics_->trackEvent("third");
  settle();
  OrvantaHealth waiting = now();
  EXPECT_EQ(waiting.eventsStored, 3u);
  EXPECT_EQ(waiting.eventsPosted, 0u);
  // Every flush posts every stored row: 1 + 2 + 3 posts, each refused its own way.
  EXPECT_EQ(waiting.postFailuresClientError, 1u);
  EXPECT_EQ(waiting.postFailuresServerError, 2u);
  EXPECT_EQ(waiting.postFailuresNetwork, 3u);
  EXPECT_EQ(waiting.rowsWaiting, 3u);
  EXPECT_GE(waiting.oldestWaiting, std::chrono::seconds(90));

  sandbox().clearFaults();
  const auto beforeDelivery = std::chrono::system_clock::now();
  EXPECT_EQ(analytics_->impl()->flush(std::chrono::steady_clock::now() + testing::kPatience), 0u);
  OrvantaHealth delivered = now();
  EXPECT_EQ(delivered.eventsPosted, 3u);
  EXPECT_EQ(delivered.rowsWaiting, 0u);
  EXPECT_EQ(delivered.oldestWaiting, std::chrono::milliseconds(0));
  EXPECT_GE(delivered.lastSuccessfulPost + std::chrono::seconds(1), beforeDelivery);
}

}  // namespace
}  // namespace orvanta
