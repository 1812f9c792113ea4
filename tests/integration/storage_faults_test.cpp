// The event pipeline against the sandbox while the disk refuses writes (testing::FaultyDisk): no
// event whose trackEvent returned is lost, in the same process, and a recovered disk does not
// bring back events already delivered.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <string>

#include "analytics/orvanta_analytics_impl.hpp"
#include "core/health.hpp"
#include "testing/sandbox_test.hpp"
#include "testing/storage_faults.hpp"

namespace orvanta {
namespace {

using Fault = testing::FaultyDisk::Fault;

class StorageFaultsTest : public testing::SandboxTest {
 protected:
  void SetUp() override {
    SandboxTest::SetUp();
    disk_ = std::make_unique<testing::FaultyDisk>();
    handler_ = OrvantaAnalyticsOperationsHandler::make(
        {context().eventStore(),
         [this] { return std::make_shared<EventsService>(context().router<EventsEndPoint>()); }});
    analytics_ =
        OrvantaAnalytics::Impl::make({handler_, context().authData(), testPlatform().lifecycle(),
                                      platform()->clock, context().configFile()});
    OrvantaDevice device = context().authData()->device();
    device.deviceToken = "a1b2c3";
    context().authData()->setDevice(device);
  }

  void TearDown() override {
    analytics_.reset();
    handler_.reset();
    SandboxTest::TearDown();  // the context, and with it the database, goes before the disk
    disk_.reset();
  }

  void track(const std::string& name) {
    analytics_->trackEvent(name, {{"n", 1}});
    tracked_.push_back(name);
  }
  void serviceDown() {
    sandbox::Fault fault;
    fault.status = 503;
    sandbox().setFault(std::nullopt, fault);
  }
  /// Deliveries of each tracked event at the sandbox.
  std::map<std::string, int> deliveries() {
    std::map<std::string, int> byName;
    for (const auto& event : sandbox().events()) {
      byName[event.body["eventName"].get<std::string>()] += event.deliveries;
    }
    return byName;
  }
  /// Checks that every tracked event reached the service, and prints the trial's figures.
  void expectEveryTrackedEventDelivered(const char* trial) {
    const auto byName = deliveries();
    std::size_t lost = 0;
    std::size_t duplicates = 0;
    for (const auto& name : tracked_) {
      const int count = byName.count(name) != 0 ? byName.at(name) : 0;
      EXPECT_GE(count, 1) << name << " was lost";
      lost += count == 0 ? 1 : 0;
      duplicates += count > 1 ? static_cast<std::size_t>(count - 1) : 0;
    }
    std::printf("%s: %zu events tracked, %zu lost, %zu duplicate deliveries\n", trial,
                tracked_.size(), lost, duplicates);
  }
  std::size_t lines(const std::string& text) { return logSink().linesContaining(text).size(); }

  std::unique_ptr<testing::FaultyDisk> disk_;
  std::shared_ptr<OrvantaAnalyticsOperationsHandler> handler_;
  std::shared_ptr<OrvantaAnalytics::Impl> analytics_;
  std::vector<std::string> tracked_;
};

TEST_F(StorageFaultsTest, ADiskFullWhileTheServiceIsDownLosesNothing) {
  // The database is opened before the disk fills, as by a running application.
  const OrvantaHealth before = health::snapshot();
  serviceDown();
  for (int i = 0; i < 10; ++i) {
    track("before-" + std::to_string(i));
  }
  disk_->setFault(Fault::full);
  for (int i = 0; i < 200; ++i) {
    track("full-" + std::to_string(i));
  }
  EXPECT_EQ(handler_->eventsHeldInMemory(), 200u);
  EXPECT_EQ(lines("The event database can't be written (database or disk is full"), 1u);
  // The health snapshot counts each refused write and sees the held events wait with the stored.
  OrvantaHealth full = health::snapshot();
  analytics_->describeQueue(full);
  EXPECT_GE(full.storageErrors - before.storageErrors, 200u);
  EXPECT_EQ(full.eventsStored - before.eventsStored, 10u);
  EXPECT_EQ(full.rowsWaiting, 210u);

  disk_->setFault(Fault::none);
  for (int i = 0; i < 10; ++i) {
    track("after-" + std::to_string(i));
  }
  EXPECT_EQ(lines("The event database can be written again: the 201 events held in memory are "
                  "stored"),
            1u);
  handler_->waitUntilIdle();  // the refused posts queued meanwhile are done
  sandbox().clearFaults();
  EXPECT_EQ(handler_->flush(std::chrono::steady_clock::now() + testing::kPatience), 0u);
  expectEveryTrackedEventDelivered("disk full while the service is down, then both back");
  OrvantaHealth back = health::snapshot();
  analytics_->describeQueue(back);
  EXPECT_EQ(back.eventsStored - before.eventsStored, tracked_.size());
  EXPECT_EQ(back.rowsWaiting, 0u);
  EXPECT_TRUE(sandbox().violations().empty());
}

// The disk turns read-only while stored events wait for the service: the posts that then succeed
// can't delete their rows, and those rows are not posted again; events tracked meanwhile wait in
// memory. Each event reaches the service once.
TEST_F(StorageFaultsTest, AReadOnlyWindowLosesNothingAndPostsEachEventOnce) {
  serviceDown();
  for (int i = 0; i < 20; ++i) {
    track("waiting-" + std::to_string(i));
    handler_->waitUntilIdle();
  }
  disk_->setFault(Fault::readOnly);
  sandbox().clearFaults();
  for (int i = 0; i < 40; ++i) {
    track("window-" + std::to_string(i));
    handler_->waitUntilIdle();
  }
  EXPECT_EQ(sandbox().eventCount(), 20u);  // the stored ones, once each; the others wait
  EXPECT_EQ(handler_->eventsHeldInMemory(), 40u);
  EXPECT_GE(lines("Could not remove event - "), 20u);

  disk_->setFault(Fault::none);
  for (int i = 0; i < 10; ++i) {
    track("after-" + std::to_string(i));
    handler_->waitUntilIdle();
  }
  EXPECT_EQ(handler_->flush(std::chrono::steady_clock::now() + testing::kPatience), 0u);
  expectEveryTrackedEventDelivered("read-only disk while stored events are delivered");
  for (const auto& [name, count] : deliveries()) {
    EXPECT_EQ(count, 1) << name;
  }
  EXPECT_EQ(lines("The event database can't be written"), 1u);
  EXPECT_EQ(lines("The event database can be written again"), 1u);
}

}  // namespace
}  // namespace orvanta
