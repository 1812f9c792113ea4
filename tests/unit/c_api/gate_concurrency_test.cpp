// The gate through which the C interface calls a host's callbacks (src/c_api/gate.hpp): once
// closing it has returned, no call runs and none starts, whatever other threads are doing; a call
// may close its own gate without waiting for itself.

#include "c_api/gate.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

namespace orvanta::c_api {
namespace {

TEST(CApiGateTest, OnceClosedNoCallRunsOrStartsWhileOtherThreadsKeepCalling) {
  Gate gate;
  std::atomic<bool> closeReturned{false};
  std::atomic<bool> stop{false};
  std::atomic<int> running{0};
  std::atomic<int> startedLate{0};
  std::mutex mutex;
  std::condition_variable enoughCalls;
  int calls = 0;

  std::vector<std::thread> callers;
  for (int i = 0; i < 4; ++i) {
    callers.emplace_back([&] {
      while (!stop.load()) {
        gate.run([&] {
          if (closeReturned.load()) {
            startedLate.fetch_add(1);
          }
          running.fetch_add(1);
          {
            std::lock_guard lock(mutex);
            ++calls;
          }
          enoughCalls.notify_all();
          std::this_thread::yield();
          running.fetch_sub(1);
        });
      }
    });
  }
  {
    std::unique_lock lock(mutex);
    enoughCalls.wait(lock, [&] { return calls >= 200; });
  }
  gate.close();
  EXPECT_EQ(running.load(), 0);  // every call that got through has returned
  closeReturned.store(true);     // the callers go on knocking: none may get through now
  stop.store(true);
  for (auto& caller : callers) {
    caller.join();
  }
  EXPECT_EQ(startedLate.load(), 0);
}

TEST(CApiGateTest, ACallClosesItsOwnGateButStillWaitsForCallsOnOtherThreads) {
  Gate gate;
  std::mutex mutex;
  std::condition_variable changed;
  bool otherEntered = false;
  bool otherMayLeave = false;
  bool otherLeft = false;

  std::thread other([&] {
    gate.run([&] {
      std::unique_lock lock(mutex);
      otherEntered = true;
      changed.notify_all();
      changed.wait(lock, [&] { return otherMayLeave; });
      otherLeft = true;
    });
  });
  {
    std::unique_lock lock(mutex);
    changed.wait(lock, [&] { return otherEntered; });
  }
  bool sawOtherLeft = false;
  gate.run([&] {
    std::thread release([&] {
      std::lock_guard lock(mutex);
      otherMayLeave = true;
      changed.notify_all();
    });
    gate.close();  // waits for the other thread's call, not for this one
    release.join();
    std::lock_guard lock(mutex);
    sawOtherLeft = otherLeft;
  });
  other.join();
  EXPECT_TRUE(sawOtherLeft);

  bool ranAfterwards = false;
  gate.run([&] { ranAfterwards = true; });
  EXPECT_FALSE(ranAfterwards);
}

}  // namespace
}  // namespace orvanta::c_api
