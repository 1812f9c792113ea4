#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <thread>
#include <vector>

#include "core/future.hpp"

namespace orvanta {
namespace {

// Completion on one thread and registration on another, started together many times: every
// handler must run exactly once, whichever side wins.
TEST(FutureConcurrencyTest, CompletionAndRegistrationRaceWithoutLosingOrRepeatingCalls) {
  constexpr int kRounds = 2000;
  constexpr int kRegistrars = 3;
  std::atomic<int> calls{0};
  for (int round = 0; round < kRounds; ++round) {
    Promise<int> promise;
    auto chained =
        promise.flatMap([](const int& value) { return Future<int>::resolved(value + 1); });
    std::latch start(kRegistrars + 1);
    std::vector<std::thread> threads;
    for (int r = 0; r < kRegistrars; ++r) {
      threads.emplace_back([&] {
        start.arrive_and_wait();
        promise.then([&](const int& value) { calls.fetch_add(value); });
      });
    }
    threads.emplace_back([&] {
      start.arrive_and_wait();
      promise.resolve(1);
    });
    for (auto& thread : threads) {
      thread.join();
    }
    ASSERT_EQ(chained.result()->value(), 2);
  }
  EXPECT_EQ(calls.load(), kRounds * kRegistrars);
}

TEST(FutureConcurrencyTest, CompetingCompletionsReportExactlyOnce) {
  constexpr int kRounds = 1000;
  for (int round = 0; round < kRounds; ++round) {
    Promise<int> promise;
    std::atomic<int> successes{0};
    std::atomic<int> failures{0};
    promise.then([&](const int&) { successes.fetch_add(1); },
                 [&](const Error&) { failures.fetch_add(1); });
    std::latch start(2);
    std::thread resolver([&] {
      start.arrive_and_wait();
      promise.resolve(1);
    });
    std::thread rejecter([&] {
      start.arrive_and_wait();
      promise.reject(Error::custom("lost"));
    });
    resolver.join();
    rejecter.join();
    ASSERT_EQ(successes.load() + failures.load(), 1);
  }
}

}  // namespace
}  // namespace orvanta
