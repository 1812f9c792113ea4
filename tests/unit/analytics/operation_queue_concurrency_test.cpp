#include "analytics/operation_queue.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace orvanta {
namespace {

constexpr auto kPatience = std::chrono::seconds(30);

/// Records which operations started and lets the test finish them, from any thread.
class Board {
 public:
  void started(int id) {
    std::lock_guard lock(mutex_);
    started_.push_back(id);
    ++running_;
    maxRunning_ = std::max(maxRunning_, running_);
    changed_.notify_all();
  }
  void ended() {
    std::lock_guard lock(mutex_);
    --running_;
  }
  bool waitForStarted(std::size_t count) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, kPatience, [&] { return started_.size() >= count; });
  }
  std::vector<int> startedIds() {
    std::lock_guard lock(mutex_);
    return started_;
  }
  int maxRunning() {
    std::lock_guard lock(mutex_);
    return maxRunning_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<int> started_;
  int running_ = 0;
  int maxRunning_ = 0;
};

/// Starts, then waits for the test to finish it, like a post waiting for its answer.
class HeldOperation : public AsynchronousOperation {
 public:
  HeldOperation(int id, Board& board) : id_(id), board_(board) {}
  void complete() {
    board_.ended();
    finish();
  }
  int id() const { return id_; }
  bool executed() const { return executed_; }

 protected:
  void execute() override {
    executed_ = true;
    board_.started(id_);
  }

 private:
  int id_;
  Board& board_;
  std::atomic<bool> executed_{false};
};

TEST(AsynchronousOperationTest, MovesThroughItsStatesOnceAndSkipsWorkWhenCancelledFirst) {
  Board board;
  auto operation = std::make_shared<HeldOperation>(1, board);
  int completions = 0;
  operation->setCompletionBlock([&] { ++completions; });
  EXPECT_TRUE(operation->isReady());
  operation->start();
  EXPECT_TRUE(operation->isExecuting());
  operation->start();  // no second execution
  operation->complete();
  operation->complete();
  EXPECT_TRUE(operation->isFinished());
  EXPECT_EQ(board.startedIds(), std::vector<int>{1});
  EXPECT_EQ(completions, 1);

  auto cancelled = std::make_shared<HeldOperation>(2, board);
  cancelled->setCompletionBlock([&] { ++completions; });
  cancelled->cancel();
  cancelled->start();
  EXPECT_TRUE(cancelled->isFinished());
  EXPECT_FALSE(cancelled->executed());
  EXPECT_EQ(completions, 2);
}

TEST(OperationQueueTest, RunsInOrderNeverMoreThanTheCapAndMakesBatchItemsOnDemand) {
  Board board;
  OperationQueue queue("test", 3);
  std::mutex mutex;
  std::map<int, std::shared_ptr<HeldOperation>> byId;
  byId[100] = std::make_shared<HeldOperation>(100, board);
  queue.addOperation(byId[100]);
  queue.addOperations(7, [&](std::size_t index) -> std::shared_ptr<AsynchronousOperation> {
    if (index == 2) {
      return nullptr;  // skipped
    }
    auto operation = std::make_shared<HeldOperation>(static_cast<int>(index), board);
    std::lock_guard lock(mutex);
    byId[operation->id()] = operation;
    return operation;
  });
  EXPECT_EQ(queue.operationCount(), 8u);
  ASSERT_TRUE(board.waitForStarted(3));
  {
    std::lock_guard lock(mutex);
    EXPECT_EQ(byId.size(), 3u);  // made only as room appears
  }

  // Finish the oldest running one from another thread, as an HTTP completion would.
  for (std::size_t k = 0; k < 7; ++k) {
    ASSERT_TRUE(board.waitForStarted(std::min<std::size_t>(k + 3, 7)));
    std::shared_ptr<HeldOperation> oldest;
    {
      std::lock_guard lock(mutex);
      oldest = byId.at(board.startedIds()[k]);
    }
    std::thread([oldest] { oldest->complete(); }).join();
  }
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_EQ(board.startedIds(), (std::vector<int>{100, 0, 1, 3, 4, 5, 6}));
  EXPECT_EQ(board.maxRunning(), 3);
  EXPECT_EQ(queue.operationCount(), 0u);
}

TEST(OperationQueueTest, CancellingDropsWaitingWorkAndLetsRunningWorkEnd) {
  Board board;
  OperationQueue queue("test", 2);
  std::vector<std::shared_ptr<HeldOperation>> single;
  for (int id = 0; id < 3; ++id) {
    single.push_back(std::make_shared<HeldOperation>(id, board));
    queue.addOperation(single.back());
  }
  std::atomic<int> made{0};
  queue.addOperations(50, [&](std::size_t index) -> std::shared_ptr<AsynchronousOperation> {
    ++made;
    return std::make_shared<HeldOperation>(1000 + static_cast<int>(index), board);
  });
  ASSERT_TRUE(board.waitForStarted(2));
  queue.cancelAllOperations();
  EXPECT_TRUE(single[0]->isCancelled());
  EXPECT_TRUE(single[0]->isExecuting());  // running work is only told

  single[0]->complete();
  single[1]->complete();
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_EQ(queue.operationCount(), 0u);
  EXPECT_TRUE(single[2]->isFinished());
  EXPECT_FALSE(single[2]->executed());
  EXPECT_EQ(made.load(), 0);
  EXPECT_EQ(board.startedIds(), (std::vector<int>{0, 1}));

  // The queue keeps working after a cancellation.
  auto later = std::make_shared<HeldOperation>(7, board);
  queue.addOperation(later);
  ASSERT_TRUE(board.waitForStarted(3));
  later->complete();
  queue.waitUntilAllOperationsAreFinished();
}

/// Finishes operations on a thread of its own, as the HTTP client's thread does.
class Finisher {
 public:
  Finisher()
      : thread_([this] {
          std::unique_lock lock(mutex_);
          while (true) {
            changed_.wait(lock, [&] { return stop_ || !work_.empty(); });
            if (work_.empty()) {
              return;
            }
            auto next = std::move(work_.front());
            work_.pop_front();
            lock.unlock();
            next();
            lock.lock();
          }
        }) {}
  ~Finisher() {
    {
      std::lock_guard lock(mutex_);
      stop_ = true;
      changed_.notify_all();
    }
    thread_.join();
  }
  void post(std::function<void()> work) {
    std::lock_guard lock(mutex_);
    work_.push_back(std::move(work));
    changed_.notify_all();
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::function<void()>> work_;
  bool stop_ = false;
  std::thread thread_;
};

TEST(OperationQueueTest, ManyProducersAndFinishersOnOtherThreads) {
  class Quick : public AsynchronousOperation {
   public:
    Quick(std::atomic<int>& count, Finisher& finisher) : count_(count), finisher_(finisher) {}

   protected:
    void execute() override {
      ++count_;
      finisher_.post([self = shared_from_this()] { static_cast<Quick&>(*self).finish(); });
    }

   private:
    std::atomic<int>& count_;
    Finisher& finisher_;
  };
  std::atomic<int> executed{0};
  Finisher finisher;
  {
    OperationQueue queue("test", 10);
    std::vector<std::thread> producers;
    for (int p = 0; p < 4; ++p) {
      producers.emplace_back([&] {
        for (int i = 0; i < 25; ++i) {
          queue.addOperation(std::make_shared<Quick>(executed, finisher));
          queue.addOperations(
              3, [&](std::size_t) { return std::make_shared<Quick>(executed, finisher); });
          if (i == 20) {
            queue.operationCount();
          }
        }
      });
    }
    for (auto& thread : producers) {
      thread.join();
    }
    queue.waitUntilAllOperationsAreFinished();
  }
  EXPECT_EQ(executed.load(), 400);
}

}  // namespace
}  // namespace orvanta
