#include "analytics/orvanta_analytics_operations_handler.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "testing/platform_test.hpp"

namespace orvanta {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

/// An events service whose posts wait until the test answers them.
class HeldEventsService : public EventsServiceProtocol {
 public:
  struct Post {
    OrvantaEvent event;
    CompletionHandler<Void> handler;
  };

  void addEvent(const OrvantaEvent& event, CompletionHandler<Void> handler) override {
    std::lock_guard lock(mutex_);
    posts_.push_back({event, std::move(handler)});
    changed_.notify_all();
  }

  bool waitForPosts(std::size_t count) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, std::chrono::seconds(30),
                             [&] { return posts_.size() >= count; });
  }
  std::size_t postCount() {
    std::lock_guard lock(mutex_);
    return posts_.size();
  }
  std::vector<std::string> postedNames() {
    std::lock_guard lock(mutex_);
    std::vector<std::string> names;
    for (const auto& post : posts_) {
      names.push_back(post.event.name);
    }
    return names;
  }
  /// Answers post number `index`, on the calling thread.
  void answer(std::size_t index, bool success) {
    CompletionHandler<Void> handler;
    {
      std::lock_guard lock(mutex_);
      handler = posts_.at(index).handler;
    }
    if (success) {
      handler.onNext();
    } else {
      handler.onError(Error::statusCode(503));
    }
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Post> posts_;
};

class OperationsHandlerTest : public testing::PlatformTest {
 protected:
  void SetUp() override {
    PlatformTest::SetUp();
    enableLogging();
    std::filesystem::create_directories(testPlatform().dataDirectory());
    database_ = std::make_shared<Database<OrvantaEvent>>(testPlatform().dataDirectory() +
                                                         "/events-under-test.sqlite");
    handler_ = OrvantaAnalyticsOperationsHandler::make(
        {database_, [service = service_] { return service; }});
  }

  void track(const std::string& name, const ValueMap& parameters = {}) {
    handler_->addEventToDatabase(
        std::make_shared<const OrvantaEvent>("token", "app", name, 1700000000.0, parameters));
  }
  std::vector<std::string> storedNames() {
    std::vector<std::string> names;
    for (const auto& row : database_->allRows()) {
      names.push_back(row->record().name);
    }
    return names;
  }
  std::string databasePath() {
    return testPlatform().dataDirectory() + "/events-under-test.sqlite";
  }
  void settle() { handler_->waitUntilIdle(); }

  std::shared_ptr<HeldEventsService> service_ = std::make_shared<HeldEventsService>();
  std::shared_ptr<Database<OrvantaEvent>> database_;
  std::shared_ptr<OrvantaAnalyticsOperationsHandler> handler_;
};

TEST_F(OperationsHandlerTest, EachFlushPostsEveryRowAndOnlySuccessDeletesItsOwnRow) {
  track("a", {{"qty", 2}});
  track("b");
  track("c");
  EXPECT_EQ(service_->postCount(), 0u);  // storing posts nothing

  handler_->postEventsFromDatabase();
  ASSERT_TRUE(service_->waitForPosts(3));
  // A second flush while the first posts are in flight posts them all again.
  handler_->postEventsFromDatabase();
  ASSERT_TRUE(service_->waitForPosts(6));
  EXPECT_THAT(service_->postedNames(), ElementsAre("a", "b", "c", "a", "b", "c"));

  service_->answer(0, true);   // a
  service_->answer(1, false);  // b fails: stays
  service_->answer(3, true);   // a again: its row is already gone, not an error
  handler_->waitForDeletions();
  EXPECT_THAT(storedNames(), ElementsAre("b", "c"));
  service_->answer(2, false);
  service_->answer(4, false);
  service_->answer(5, true);  // c
  settle();
  EXPECT_THAT(storedNames(), ElementsAre("b"));

  EXPECT_EQ(logSink().linesContaining("Successfully sent event: a, parameters: {\"qty\":2}").size(),
            2u);
  EXPECT_EQ(logSink().linesContaining("Successfully sent event: c\n").size(), 1u);
  auto failures = logSink().linesContaining("Failed to send event: {\"uuidId\":\"");
  EXPECT_EQ(failures.size(), 3u);
  EXPECT_TRUE(logSink().linesContaining("Could not").empty());

  // The failed row goes out again at the next flush.
  handler_->postEventsFromDatabase();
  ASSERT_TRUE(service_->waitForPosts(7));
  service_->answer(6, true);
  settle();
  EXPECT_TRUE(storedNames().empty());
}

// A successful post deletes its row on the handler's own thread, a little later; a flush in
// between does not post the row again.
TEST_F(OperationsHandlerTest, ARowWhosePostSucceededIsNotPostedAgain) {
  track("a");
  track("b");
  handler_->postEventsFromDatabase();
  ASSERT_TRUE(service_->waitForPosts(2));
  service_->answer(0, true);  // a: delivered, its deletion asked for
  handler_->postEventsFromDatabase();
  ASSERT_TRUE(service_->waitForPosts(3));
  EXPECT_THAT(service_->postedNames(), ElementsAre("a", "b", "b"));
  service_->answer(1, false);
  service_->answer(2, true);
  settle();
  EXPECT_TRUE(storedNames().empty());
  EXPECT_TRUE(logSink().linesContaining("Could not").empty());
}

TEST_F(OperationsHandlerTest, NeverMoreThanTenPostsAtOnceAndCancellationLeavesRows) {
  for (int i = 0; i < 25; ++i) {
    track("e" + std::to_string(i));
  }
  handler_->postEventsFromDatabase();
  ASSERT_TRUE(service_->waitForPosts(10));
  EXPECT_EQ(service_->postCount(), 10u);
  EXPECT_EQ(handler_->operationQueue().operationCount(), 25u);

  handler_->cancelAllOperations();
  for (std::size_t i = 0; i < 10; ++i) {
    service_->answer(i, i % 2 == 0);  // running posts still end, and still delete on success
  }
  settle();
  EXPECT_EQ(service_->postCount(), 10u);
  EXPECT_EQ(storedNames().size(), 20u);
}

TEST_F(OperationsHandlerTest, DatabaseFailuresAreLoggedAndSwallowed) {
  auto event = std::make_shared<const OrvantaEvent>("token", "app", "dup", 1.0, ValueMap{});
  handler_->addEventToDatabase(event);
  handler_->addEventToDatabase(event);
  auto added = logSink().linesContaining("Could not add Event - {\"uuidId\":\"" + event->uuidId);
  ASSERT_EQ(added.size(), 1u);
  EXPECT_THAT(added[0], HasSubstr(" to database\nerror - UNIQUE constraint failed: "
                                  "orvantaevent.uuidId (code: 19)"));

  // Another connection damages the stored row.
  sqlite3* raw = nullptr;
  ASSERT_EQ(sqlite3_open(databasePath().c_str(), &raw), SQLITE_OK);
  sqlite3_busy_timeout(raw, 5000);
  EXPECT_EQ(sqlite3_exec(raw, "UPDATE orvantaevent SET additionalStringFields = '{'", nullptr,
                         nullptr, nullptr),
            SQLITE_OK);
  sqlite3_close(raw);
  handler_->postEventsFromDatabase();
  EXPECT_EQ(logSink().linesContaining("Unable to fetch all events from database - ").size(), 1u);
  EXPECT_EQ(service_->postCount(), 0u);
}

TEST_F(OperationsHandlerTest, WithoutDatabaseNothingIsStoredOrSent) {
  auto handler =
      OrvantaAnalyticsOperationsHandler::make({nullptr, [service = service_] { return service; }});
  handler->addEventToDatabase(
      std::make_shared<const OrvantaEvent>("t", "app", "x", 1.0, ValueMap{}));
  handler->postEventsFromDatabase();
  handler->operationQueue().waitUntilAllOperationsAreFinished();
  EXPECT_EQ(service_->postCount(), 0u);
  EXPECT_TRUE(logLines().empty());
}

}  // namespace
}  // namespace orvanta
