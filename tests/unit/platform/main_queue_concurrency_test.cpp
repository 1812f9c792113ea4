#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "linux/thread_main_queue.hpp"
#include "testing/inbox.hpp"

namespace orvanta::linux_platform {
namespace {

using namespace std::chrono_literals;

using Signals = testing::Inbox<int>;

TEST(ThreadMainQueueTest, RunsWorkFromManyThreadsSeriallyOnItsOwnThread) {
  ThreadMainQueue queue;
  constexpr int kThreads = 4;
  constexpr int kPerThread = 500;
  Signals finished;
  std::vector<std::vector<int>> seen(kThreads);  // touched only on the queue's thread
  std::atomic<int> running{0};
  std::atomic<bool> overlapped{false};
  std::atomic<bool> offThread{false};

  std::vector<std::thread> producers;
  for (int t = 0; t < kThreads; ++t) {
    producers.emplace_back([&, t] {
      for (int i = 0; i < kPerThread; ++i) {
        queue.async([&, t, i] {
          if (running.fetch_add(1) != 0) {
            overlapped = true;
          }
          if (!queue.isCurrent()) {
            offThread = true;
          }
          seen[t].push_back(i);
          running.fetch_sub(1);
          finished.push(0);
        });
      }
    });
  }
  for (auto& producer : producers) {
    producer.join();
  }
  ASSERT_TRUE(finished.waitFor(kThreads * kPerThread));
  EXPECT_FALSE(overlapped);
  EXPECT_FALSE(offThread);
  EXPECT_FALSE(queue.isCurrent());
  // Each producer's work ran in the order it was submitted.
  Signals drained;
  queue.async([&] { drained.push(0); });
  ASSERT_TRUE(drained.waitFor(1));
  for (const auto& items : seen) {
    ASSERT_EQ(items.size(), static_cast<std::size_t>(kPerThread));
    for (int i = 0; i < kPerThread; ++i) {
      EXPECT_EQ(items[static_cast<std::size_t>(i)], i);
    }
  }
}

// Half a second between due times: only a stall that long between two statements of this test
// could change the order, which no loaded or sanitized run comes near.
TEST(ThreadMainQueueTest, DelayedWorkRunsByDueTimeAndCancelledWorkNever) {
  ThreadMainQueue queue;
  Signals order;
  auto record = [&](int value) { return [&, value] { order.push(value); }; };
  queue.asyncAfter(1000ms, record(3));
  auto cancelled = queue.asyncAfter(500ms, record(99));
  queue.asyncAfter(500ms, record(2));
  queue.async(record(1));
  cancelled->cancel();
  EXPECT_TRUE(cancelled->isCancelled());
  ASSERT_TRUE(order.waitFor(3));
  // The cancelled item was due before the last one ran: had it run, it would be in the list.
  EXPECT_EQ(order.items(), (std::vector<int>{1, 2, 3}));
}

TEST(ThreadMainQueueTest, DestructionDropsWaitingWorkAndJoins) {
  std::atomic<bool> ran{false};
  auto owner = std::make_shared<int>(0);
  std::weak_ptr<int> watched = owner;
  {
    ThreadMainQueue queue;
    queue.asyncAfter(1h, [&ran, owner] { ran = true; });
    owner.reset();
  }
  EXPECT_FALSE(ran);
  EXPECT_TRUE(watched.expired());  // the dropped closure was released
}

TEST(ThreadMainQueueTest, AQueueReleasedByItsOwnWorkShutsDownCleanly) {
  auto queue = std::make_shared<ThreadMainQueue>();
  Signals released;
  auto* raw = queue.get();
  raw->async([queue = std::move(queue), &released]() mutable {
    queue.reset();  // the last owner goes away on the queue's own thread
    released.push(0);
  });
  ASSERT_TRUE(released.waitFor(1));
  // The next queue destroyed elsewhere joins the finished thread.
  ThreadMainQueue other;
}

}  // namespace
}  // namespace orvanta::linux_platform
