#include "analytics/operation_queue.hpp"

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <unordered_map>
#include <utility>

namespace orvanta {

struct OperationQueue::State {
  struct Batch {
    std::size_t count = 0;
    std::size_t next = 0;
    Factory make;
  };
  /// One entry of the waiting line: a single operation, or a batch made on demand.
  struct Entry {
    std::shared_ptr<AsynchronousOperation> operation;
    std::shared_ptr<Batch> batch;
  };

  explicit State(std::size_t limit) : maxConcurrent(limit) {}

  const std::size_t maxConcurrent;
  mutable std::mutex mutex;
  std::condition_variable wake;          ///< the starter: room and work, or stop
  mutable std::condition_variable idle;  ///< waiters: nothing waiting or running
  std::deque<Entry> waiting;
  std::size_t waitingCount = 0;  ///< operations in `waiting`, batches counted in full
  std::size_t starting = 0;      ///< taken from `waiting`, not yet running
  std::unordered_map<const AsynchronousOperation*, std::shared_ptr<AsynchronousOperation>> running;
  std::uint64_t cancelGeneration = 0;
  bool stopping = false;
  bool starterActive = false;  ///< a thread is in `startWhileRoom`

  bool busy() const { return waitingCount > 0 || starting > 0 || !running.empty(); }
  bool hasRoom() const { return starting + running.size() < maxConcurrent; }
  bool canStart() const { return !stopping && !starterActive && waitingCount > 0 && hasRoom(); }

  /// An operation has ended, on whatever thread ended it. Its place goes to the next operation at
  /// once, started right here unless another thread is starting operations already: an ending
  /// post starts the next one on the HTTP client's thread, with no hand-over to the starter.
  void finished(const AsynchronousOperation* operation) {
    std::shared_ptr<AsynchronousOperation> keep;  // released outside the lock
    std::unique_lock lock(mutex);
    auto found = running.find(operation);
    if (found != running.end()) {
      keep = std::move(found->second);
      running.erase(found);
    }
    if (canStart()) {
      startWhileRoom(lock);
    }
    if (!busy()) {
      idle.notify_all();
    }
    lock.unlock();
    keep.reset();
  }

  /// Starts operations in the order they were added while there is room. One thread at a time
  /// does this (`starterActive`), so starts keep their order; an operation ending meanwhile on
  /// another thread leaves its place to this loop. Called and returns with `lock` held.
  void startWhileRoom(std::unique_lock<std::mutex>& lock) {
    starterActive = true;
    while (!stopping && waitingCount > 0 && hasRoom()) {
      Entry& front = waiting.front();
      std::shared_ptr<AsynchronousOperation> operation;
      std::shared_ptr<Batch> batch;
      std::size_t index = 0;
      if (front.batch) {
        batch = front.batch;
        index = batch->next++;
        if (batch->next == batch->count) {
          waiting.pop_front();
        }
      } else {
        operation = std::move(front.operation);
        waiting.pop_front();
      }
      --waitingCount;
      ++starting;
      std::uint64_t generation = cancelGeneration;
      lock.unlock();

      if (batch) {
        try {
          operation = batch->make(index);
        } catch (...) {  // NOLINT(bugprone-empty-catch): an operation that can't be made is skipped
          operation.reset();
        }
        batch.reset();
      }
      if (operation) {
        std::weak_ptr<State> weak = weakSelf;
        const AsynchronousOperation* key = operation.get();
        operation->setCompletionBlock([weak, key] {
          if (auto state = weak.lock()) {
            state->finished(key);
          }
        });
      }

      lock.lock();
      --starting;
      if (!operation) {
        continue;
      }
      if (generation != cancelGeneration) {
        operation->cancel();  // cancelled while it was being made
      }
      running.emplace(operation.get(), operation);
      lock.unlock();
      operation->start();  // may finish (and leave `running`) before it returns
      if (operation->isFinished()) {
        finished(operation.get());  // covers one that was finished before it was added
      }
      operation.reset();
      lock.lock();
    }
    starterActive = false;
  }

  /// The starter thread: starts what is added while nothing else is starting.
  void run() {
    std::unique_lock lock(mutex);
    while (true) {
      wake.wait(lock, [&] { return stopping || canStart(); });
      if (stopping) {
        return;
      }
      startWhileRoom(lock);
      if (!busy()) {
        idle.notify_all();
      }
    }
  }

  std::weak_ptr<State> weakSelf;
};

OperationQueue::OperationQueue(std::string name, std::size_t maxConcurrentOperationCount)
    : name_(std::move(name)),
      maxConcurrentOperationCount_(maxConcurrentOperationCount == 0 ? 1
                                                                    : maxConcurrentOperationCount),
      state_(std::make_shared<State>(maxConcurrentOperationCount_)) {
  state_->weakSelf = state_;
}

OperationQueue::~OperationQueue() {
  {
    std::lock_guard lock(state_->mutex);
    state_->stopping = true;
    state_->waiting.clear();
    state_->waitingCount = 0;
    for (auto& [key, operation] : state_->running) {
      operation->cancel();
    }
    state_->wake.notify_all();
    state_->idle.notify_all();
  }
  // The starter only touches the shared state, which it owns a share of: it may be the thread
  // releasing the queue.
  starter_.join();
}

void OperationQueue::addOperation(std::shared_ptr<AsynchronousOperation> operation) {
  if (!operation) {
    return;
  }
  std::lock_guard lock(state_->mutex);
  if (state_->stopping) {
    return;
  }
  state_->waiting.push_back({std::move(operation), nullptr});
  ++state_->waitingCount;
  wakeStarterLocked();
}

void OperationQueue::addOperations(std::size_t count, Factory make) {
  if (count == 0 || !make) {
    return;
  }
  auto batch = std::make_shared<State::Batch>();
  batch->count = count;
  batch->make = std::move(make);
  std::lock_guard lock(state_->mutex);
  if (state_->stopping) {
    return;
  }
  state_->waiting.push_back({nullptr, std::move(batch)});
  state_->waitingCount += count;
  wakeStarterLocked();
}

void OperationQueue::wakeStarterLocked() {
  if (!state_->canStart()) {
    return;  // the next operation to end starts it
  }
  if (!starter_.joinable()) {
    // The first work starts the thread: a queue nothing was added to costs no thread.
    starter_ = OwnedThread("orvanta-events", [state = state_] { state->run(); });
  }
  state_->wake.notify_one();
}

void OperationQueue::cancelAllOperations() {
  std::deque<State::Entry> dropped;  // released outside the lock
  std::lock_guard lock(state_->mutex);
  ++state_->cancelGeneration;
  std::deque<State::Entry> kept;
  for (auto& entry : state_->waiting) {
    if (entry.operation) {
      entry.operation->cancel();
      kept.push_back(std::move(entry));
    } else {
      state_->waitingCount -= entry.batch->count - entry.batch->next;
      dropped.push_back(std::move(entry));
    }
  }
  state_->waiting.swap(kept);
  for (auto& [key, operation] : state_->running) {
    operation->cancel();
  }
  if (!state_->busy()) {
    state_->idle.notify_all();
  }
}

std::size_t OperationQueue::operationCount() const {
  std::lock_guard lock(state_->mutex);
  return state_->waitingCount + state_->starting + state_->running.size();
}

void OperationQueue::waitUntilAllOperationsAreFinished() const {
  std::unique_lock lock(state_->mutex);
  state_->idle.wait(lock, [&] { return !state_->busy() || state_->stopping; });
}

bool OperationQueue::waitUntilAllOperationsAreFinished(
    std::chrono::steady_clock::time_point deadline) const {
  std::unique_lock lock(state_->mutex);
  return state_->idle.wait_until(lock, deadline,
                                 [&] { return !state_->busy() || state_->stopping; });
}

}  // namespace orvanta
