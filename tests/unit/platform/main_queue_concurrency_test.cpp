#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "linux/thread_main_queue.hpp"

namespace orvanta::linux_platform {
namespace {

using namespace std::chrono_literals;

// Waits for a number of signals, with a generous deadline so a broken queue fails instead of
// hanging.
class Countdown {
 public:
  explicit Countdown(int count) : count_(count) {}
  void signal() {
    std::lock_guard lock(mutex_);
    --count_;
    done_.notify_all();
  }
  bool wait() {
    std::unique_lock lock(mutex_);
    return done_.wait_for(lock, 10s, [&] { return count_ <= 0; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable done_;
  int count_;
};

TEST(ThreadMainQueueTest, RunsWorkFromManyThreadsSeriallyOnItsOwnThread) {
  ThreadMainQueue queue;
  constexpr int kThreads = 4;
  constexpr int kPerThread = 500;
  Countdown finished(kThreads * kPerThread);
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
          finished.signal();
        });
      }
    });
  }
  for (auto& producer : producers) {
    producer.join();
  }
  ASSERT_TRUE(finished.wait());
  EXPECT_FALSE(overlapped);
  EXPECT_FALSE(offThread);
  EXPECT_FALSE(queue.isCurrent());
  // Each producer's work ran in the order it was submitted.
  Countdown drained(1);
  queue.async([&] { drained.signal(); });
  ASSERT_TRUE(drained.wait());
  for (const auto& items : seen) {
    ASSERT_EQ(items.size(), static_cast<std::size_t>(kPerThread));
    for (int i = 0; i < kPerThread; ++i) {
      EXPECT_EQ(items[static_cast<std::size_t>(i)], i);
    }
  }
}

TEST(ThreadMainQueueTest, DelayedWorkRunsByDueTimeAndCancelledWorkNever) {
  ThreadMainQueue queue;
  std::mutex mutex;
  std::vector<int> order;
  Countdown finished(3);
  auto record = [&](int value) {
    return [&, value] {
      {
        std::lock_guard lock(mutex);
        order.push_back(value);
      }
      finished.signal();
    };
  };
  queue.asyncAfter(30ms, record(3));
  auto cancelled = queue.asyncAfter(10ms, record(99));
  queue.asyncAfter(10ms, record(2));
  queue.async(record(1));
  cancelled->cancel();
  EXPECT_TRUE(cancelled->isCancelled());
  ASSERT_TRUE(finished.wait());
  std::lock_guard lock(mutex);
  EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
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
  Countdown released(1);
  auto* raw = queue.get();
  raw->async([queue = std::move(queue), &released]() mutable {
    queue.reset();  // the last owner goes away on the queue's own thread
    released.signal();
  });
  ASSERT_TRUE(released.wait());
  // The next queue destroyed elsewhere joins the finished thread.
  ThreadMainQueue other;
}

}  // namespace
}  // namespace orvanta::linux_platform
