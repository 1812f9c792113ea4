#include <gtest/gtest.h>

#include <latch>
#include <thread>
#include <vector>

#include "orvanta/orvanta.hpp"
#include "testing/platform_test.hpp"

namespace orvanta {
namespace {

using OrvantaSharedConcurrencyTest = testing::PlatformTest;

TEST_F(OrvantaSharedConcurrencyTest, ManyThreadsGetTheOneInstance) {
  constexpr int kThreads = 8;
  std::vector<Orvanta*> seen(kThreads, nullptr);
  std::latch start(kThreads);
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, i] {
      start.arrive_and_wait();
      seen[static_cast<std::size_t>(i)] = &Orvanta::shared();
      // Configuring and reading the configuration concurrently is safe too.
      Orvanta::configure(std::make_shared<OrvantaConfiguration>());
      EXPECT_NE(Orvanta::shared().configuration(), nullptr);
    });
  }
  for (auto& thread : threads) {
    thread.join();
  }
  for (auto* instance : seen) {
    EXPECT_EQ(instance, seen[0]);
  }
  EXPECT_NE(seen[0], nullptr);
}

}  // namespace
}  // namespace orvanta
