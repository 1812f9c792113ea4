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
#include "testing/storage_faults.hpp"

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

  /// Rows in the file, read through a connection of the test's own (the handler's thread may be
  /// using the kit's at any time).
  std::size_t rowsInFile(const std::string& table = "orvantaevent") {
    sqlite3* raw = nullptr;
    sqlite3_stmt* statement = nullptr;
    std::size_t count = 0;
    if (sqlite3_open(databasePath().c_str(), &raw) == SQLITE_OK &&
        sqlite3_prepare_v2(raw, ("SELECT count(*) FROM " + table).c_str(), -1, &statement,
                           nullptr) == SQLITE_OK &&
        sqlite3_step(statement) == SQLITE_ROW) {
      count = static_cast<std::size_t>(sqlite3_column_int64(statement, 0));
    }
    sqlite3_finalize(statement);
    sqlite3_close(raw);
    return count;
  }
  void execute(const std::string& sql) {
    sqlite3* raw = nullptr;
    ASSERT_EQ(sqlite3_open(databasePath().c_str(), &raw), SQLITE_OK);
    sqlite3_busy_timeout(raw, 5000);
    EXPECT_EQ(sqlite3_exec(raw, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(raw);
  }
  std::size_t lines(const std::string& text) { return logSink().linesContaining(text).size(); }

  testing::FaultyDisk disk_;  // first: every connection of the test goes through it
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

  EXPECT_EQ(handler_->eventsHeldInMemory(), 0u);  // refused for its key: stored already
  EXPECT_EQ(lines("The event database can't be written"), 0u);
}

// A fetch that meets rows that do not decode says so, sets each aside with one line, and posts
// the others in the same flush.
TEST_F(OperationsHandlerTest, RowsThatDoNotDecodeAreSetAsideAndTheOthersPostedInTheSameFlush) {
  track("first");
  track("garbled");
  track("misshapen");
  track("last");
  handler_->postEventsFromDatabase();
  ASSERT_TRUE(service_->waitForPosts(4));
  // Another program damages two rows the kit has already read.
  execute(
      "UPDATE orvantaevent SET additionalStringFields = '{' WHERE eventName = 'garbled';"
      "UPDATE orvantaevent SET additionalNumericFields = '{\"n\":\"text\"}' "
      "WHERE eventName = 'misshapen'");
  handler_->postEventsFromDatabase();
  ASSERT_TRUE(service_->waitForPosts(6));
  EXPECT_THAT(service_->postedNames(),
              ElementsAre("first", "garbled", "misshapen", "last", "first", "last"));
  EXPECT_EQ(lines("Unable to fetch all events from database - "), 1u);
  EXPECT_EQ(lines(" set aside, not sent: it does not decode: The data couldn"), 2u);
  EXPECT_EQ(rowsInFile(), 2u);
  EXPECT_EQ(rowsInFile("orvantaevent_aside"), 2u);  // kept whole, with why, never read again

  handler_->postEventsFromDatabase();
  ASSERT_TRUE(service_->waitForPosts(8));
  EXPECT_EQ(lines("Unable to fetch all events from database - "), 1u);
}

// While the disk is full nothing tracked is lost: events wait in memory, in order, are stored
// once the disk takes them again, and only then posted. Memory is bounded: beyond it the oldest
// go, said at the 1st, 10th and 100th.
TEST_F(OperationsHandlerTest, EventsThatCannotBeStoredWaitInMemoryAndArePostedOnceStored) {
  disk_.setFault(testing::FaultyDisk::Fault::full);
  track("a");
  track("b");
  handler_->postEventsFromDatabase();
  EXPECT_EQ(handler_->eventsHeldInMemory(), 2u);
  EXPECT_EQ(handler_->flush(std::chrono::steady_clock::now()), 2u);  // left, though not stored
  EXPECT_EQ(service_->postCount(), 0u);
  EXPECT_EQ(lines("Could not add Event - "), 2u);
  EXPECT_EQ(lines("The event database can't be written (database or disk is full (code: 13)): "
                  "events are held in memory until it can, at most 1000 events or 1 MiB"),
            1u);

  disk_.setFault(testing::FaultyDisk::Fault::none);
  track("c");
  EXPECT_THAT(storedNames(), ElementsAre("a", "b", "c"));
  EXPECT_EQ(lines("The event database can be written again: the 3 events held in memory are "
                  "stored\n"),
            1u);
  handler_->postEventsFromDatabase();
  ASSERT_TRUE(service_->waitForPosts(3));
  EXPECT_THAT(service_->postedNames(), ElementsAre("a", "b", "c"));

  disk_.setFault(testing::FaultyDisk::Fault::full);
  for (int i = 0; i < 1100; ++i) {
    track("x" + std::to_string(i));
  }
  EXPECT_EQ(handler_->eventsHeldInMemory(),
            OrvantaAnalyticsOperationsHandler::kMaxEventsHeldInMemory);
  EXPECT_EQ(lines("dropped, the oldest first"), 3u);
  EXPECT_EQ(lines("100 events held in memory were dropped"), 1u);
  disk_.setFault(testing::FaultyDisk::Fault::none);
  handler_->checkpoint();  // stores them too
  EXPECT_EQ(lines("the 1000 events held in memory are stored, 100 older ones were dropped"), 1u);
  auto stored = storedNames();
  ASSERT_EQ(stored.size(), 1003u);
  EXPECT_EQ(stored[3], "x100");
  EXPECT_EQ(stored.back(), "x1099");
}

// A deletion that fails (the disk turned read-only) is tried again once writing works, and its row
// is not posted again meanwhile: a recovered disk does not bring back what was delivered.
TEST_F(OperationsHandlerTest, FailedDeletionsAreTriedAgainAndTheirRowsAreNotPostedMeanwhile) {
  track("a");
  track("b");
  handler_->postEventsFromDatabase();
  ASSERT_TRUE(service_->waitForPosts(2));
  disk_.setFault(testing::FaultyDisk::Fault::readOnly);
  service_->answer(0, true);
  service_->answer(1, true);
  handler_->waitForDeletions();  // tried, failed, waiting to be tried again
  EXPECT_GE(lines("Could not remove event - "), 2u);
  EXPECT_EQ(lines("The event database can't be written"), 1u);
  handler_->postEventsFromDatabase();
  EXPECT_EQ(service_->postCount(), 2u);  // both left out
  EXPECT_EQ(rowsInFile(), 2u);

  disk_.setFault(testing::FaultyDisk::Fault::none);
  track("c");  // a write works again: the failed deletions go now
  handler_->waitForDeletions();
  EXPECT_EQ(rowsInFile(), 1u);
  EXPECT_EQ(lines("The event database can be written again"), 1u);
  handler_->postEventsFromDatabase();
  ASSERT_TRUE(service_->waitForPosts(3));
  EXPECT_THAT(service_->postedNames(), ElementsAre("a", "b", "c"));
  service_->answer(2, true);
  settle();
  EXPECT_EQ(rowsInFile(), 0u);
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
