#include "orvanta/host_lifecycle.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "testing/platform_test.hpp"

namespace orvanta {
namespace {

using port::LifecycleEvent;
using namespace std::chrono_literals;

class HostLifecycleTest : public testing::PlatformTest {
 protected:
  testing::TestPlatformOptions platformOptions() const override {
    testing::TestPlatformOptions options;
    options.backgroundTaskBudget = 30s;
    return options;
  }
  HostLifecycle& lifecycle() { return *testPlatform().lifecycle(); }
};

TEST_F(HostLifecycleTest, ObserversHearTheirEventInOrderUntilReleased) {
  std::vector<std::string> calls;
  auto first =
      lifecycle().observe(LifecycleEvent::willEnterForeground, [&] { calls.push_back("first"); });
  auto second =
      lifecycle().observe(LifecycleEvent::willEnterForeground, [&] { calls.push_back("second"); });
  auto other = lifecycle().observe(LifecycleEvent::didEnterBackground,
                                   [&] { calls.push_back("background"); });

  postLifecycleEvent(LifecycleEvent::willEnterForeground);
  EXPECT_EQ(calls, (std::vector<std::string>{"first", "second"}));

  first.reset();
  calls.clear();
  postLifecycleEvent(LifecycleEvent::willEnterForeground);
  postLifecycleEvent(LifecycleEvent::didFinishLaunching);
  EXPECT_EQ(calls, (std::vector<std::string>{"second"}));
}

TEST_F(HostLifecycleTest, BackgroundTasksExpireAtSuspensionOrWhenTheBudgetRunsOut) {
  int expiredBySuspension = 0;
  int expiredByBudget = 0;
  int ended = 0;
  auto suspended = lifecycle().beginBackgroundTask([&] { ++expiredBySuspension; });
  auto finished = lifecycle().beginBackgroundTask([&] { ++ended; });
  EXPECT_NE(suspended, port::kInvalidBackgroundTask);
  EXPECT_NE(suspended, finished);
  lifecycle().endBackgroundTask(finished);

  postWillSuspend();
  EXPECT_EQ(expiredBySuspension, 1);
  EXPECT_EQ(lifecycle().runningBackgroundTasks(), 0u);

  lifecycle().beginBackgroundTask([&] { ++expiredByBudget; });
  mainQueue().advance(29s);
  EXPECT_EQ(expiredByBudget, 0);
  mainQueue().advance(1s);
  EXPECT_EQ(expiredByBudget, 1);

  // Nothing runs twice, and an ended task never expires.
  postWillSuspend();
  mainQueue().advance(60s);
  EXPECT_EQ(expiredBySuspension, 1);
  EXPECT_EQ(expiredByBudget, 1);
  EXPECT_EQ(ended, 0);
  lifecycle().endBackgroundTask(finished);  // ending twice is harmless
}

}  // namespace
}  // namespace orvanta
