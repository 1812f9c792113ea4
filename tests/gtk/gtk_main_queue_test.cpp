#include "linux/gtk/gtk_main_queue.hpp"

#include <glib.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "gtk_test_support.hpp"

namespace orvanta::gtk_platform {
namespace {

using namespace std::chrono_literals;
using gtk_testing::iterateUntil;

// Each test runs the queue on a context of its own, iterated by the test's thread.
class GtkMainQueueTest : public ::testing::Test {
 protected:
  void SetUp() override {
    context_ = g_main_context_new();
    g_main_context_push_thread_default(context_);
    queue_ = std::make_unique<GtkMainQueue>(context_);
  }
  void TearDown() override {
    queue_.reset();
    while (g_main_context_iteration(context_, FALSE)) {
    }
    g_main_context_pop_thread_default(context_);
    g_main_context_unref(context_);
  }
  bool iterateUntil(const std::function<bool()>& condition) {
    return gtk_testing::iterateUntil(condition, gtk_testing::kDeadline, context_);
  }

  GMainContext* context_ = nullptr;
  std::unique_ptr<GtkMainQueue> queue_;
};

TEST_F(GtkMainQueueTest, RunsWorkInOrderOfDueTimeNeverInsideThePostingCall) {
  std::vector<std::string> ran;
  queue_->asyncAfter(60ms, [&] { ran.push_back("60ms"); });
  queue_->asyncAfter(20ms, [&] { ran.push_back("20ms"); });
  queue_->async([&] {
    ran.push_back("first");
    queue_->async([&] { ran.push_back("posted by first"); });
    ran.push_back("first, still");
  });
  queue_->async([&] { ran.push_back("second"); });
  EXPECT_TRUE(ran.empty()) << "nothing runs inside the call that posts it";

  ASSERT_TRUE(iterateUntil([&] { return ran.size() == 6; }));
  auto at = [&](const std::string& name) { return std::find(ran.begin(), ran.end(), name); };
  EXPECT_EQ(std::vector<std::string>(ran.begin(), ran.begin() + 3),
            (std::vector<std::string>{"first", "first, still", "second"}));
  EXPECT_LT(at("20ms"), at("60ms")) << "delayed work runs in order of due time, not of posting";
  EXPECT_NE(at("posted by first"), ran.end());
}

TEST_F(GtkMainQueueTest, CancelledWorkNeverRunsAndIsReleased) {
  auto captured = std::make_shared<int>(0);
  std::weak_ptr<int> watch = captured;
  bool cancelledRan = false;
  bool laterRan = false;
  auto token = queue_->asyncAfter(10ms, [&cancelledRan, captured] { cancelledRan = true; });
  captured.reset();
  auto later = queue_->asyncAfter(30ms, [&] { laterRan = true; });
  token->cancel();
  EXPECT_TRUE(token->isCancelled());
  EXPECT_TRUE(watch.expired()) << "a cancelled item lets go of what it captured at once";

  ASSERT_TRUE(iterateUntil([&] { return laterRan; }));
  EXPECT_FALSE(cancelledRan);
  later->cancel();  // after it ran: nothing happens
  EXPECT_TRUE(later->isCancelled());
}

TEST_F(GtkMainQueueTest, WorkFromOtherThreadsRunsOnTheContextsThread) {
  constexpr int kThreads = 4;
  constexpr int kPerThread = 200;
  std::vector<std::vector<int>> seen(kThreads);
  int total = 0;
  bool allOnThread = true;
  const auto contextThread = std::this_thread::get_id();
  bool currentElsewhere = true;
  {
    std::vector<std::thread> producers;
    for (int t = 0; t < kThreads; ++t) {
      producers.emplace_back([&, t] {
        if (t == 0) {
          currentElsewhere = queue_->isCurrent();
        }
        for (int i = 0; i < kPerThread; ++i) {
          queue_->async([&, t, i] {
            allOnThread =
                allOnThread && std::this_thread::get_id() == contextThread && queue_->isCurrent();
            seen[t].push_back(i);
            ++total;
          });
        }
      });
    }
    for (auto& producer : producers) {
      producer.join();
    }
  }
  EXPECT_FALSE(currentElsewhere);
  ASSERT_TRUE(iterateUntil([&] { return total == kThreads * kPerThread; }));
  EXPECT_TRUE(allOnThread);
  for (const auto& perThread : seen) {
    ASSERT_EQ(perThread.size(), static_cast<std::size_t>(kPerThread));
    for (int i = 0; i < kPerThread; ++i) {
      EXPECT_EQ(perThread[i], i) << "each producer's work runs in the order it was posted";
    }
  }
}

TEST_F(GtkMainQueueTest, DestroyingTheQueueDropsWorkNotStarted) {
  auto captured = std::make_shared<int>(0);
  std::weak_ptr<int> watch = captured;
  bool ran = false;
  queue_->async([&ran, captured] { ran = true; });
  auto token = queue_->asyncAfter(10ms, [&ran, captured] { ran = true; });
  captured.reset();
  queue_.reset();
  EXPECT_TRUE(watch.expired());
  bool tick = false;
  GSource* later = g_timeout_source_new(30);
  g_source_set_callback(
      later,
      [](gpointer data) -> gboolean {
        *static_cast<bool*>(data) = true;
        return G_SOURCE_REMOVE;
      },
      &tick, nullptr);
  g_source_attach(later, context_);
  g_source_unref(later);
  ASSERT_TRUE(iterateUntil([&] { return tick; }));
  EXPECT_FALSE(ran);
  token->cancel();  // the queue is gone: nothing happens
}

}  // namespace
}  // namespace orvanta::gtk_platform
