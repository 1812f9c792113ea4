#include "testing/manual_main_queue.hpp"

#include <atomic>

namespace orvanta::testing {

class ManualMainQueue::Token : public port::Cancellable {
 public:
  void cancel() override { cancelled_.store(true); }
  bool isCancelled() const override { return cancelled_.load(); }

 private:
  std::atomic<bool> cancelled_{false};
};

ManualMainQueue::ManualMainQueue(std::shared_ptr<ManualClock> clock) : clock_(std::move(clock)) {}

void ManualMainQueue::async(std::function<void()> work) {
  enqueue(std::chrono::milliseconds(0), Item{std::move(work), nullptr});
}

std::shared_ptr<port::Cancellable> ManualMainQueue::asyncAfter(std::chrono::milliseconds delay,
                                                               std::function<void()> work) {
  auto token = std::make_shared<Token>();
  enqueue(std::max(delay, std::chrono::milliseconds(0)), Item{std::move(work), token});
  return token;
}

bool ManualMainQueue::isCurrent() const {
  std::lock_guard lock(mutex_);
  return runningThread_ == std::this_thread::get_id();
}

void ManualMainQueue::enqueue(std::chrono::milliseconds delay, Item item) {
  std::lock_guard lock(mutex_);
  items_.emplace(Key{now_ + delay, nextSequence_++}, std::move(item));
}

std::optional<bool> ManualMainQueue::runOne(std::chrono::milliseconds limit) {
  Item item;
  std::chrono::milliseconds advancedBy{0};
  std::thread::id previousRunner;
  {
    std::lock_guard lock(mutex_);
    auto first = items_.begin();
    if (first == items_.end() || first->first.first > limit) {
      return std::nullopt;
    }
    if (first->first.first > now_) {
      advancedBy = first->first.first - now_;
      now_ = first->first.first;
    }
    item = std::move(first->second);
    items_.erase(first);
    previousRunner = std::exchange(runningThread_, std::this_thread::get_id());
  }
  if (clock_ && advancedBy.count() > 0) {
    clock_->advance(advancedBy);
  }
  struct RestoreRunner {
    ManualMainQueue* queue;
    std::thread::id previous;
    ~RestoreRunner() {
      std::lock_guard lock(queue->mutex_);
      queue->runningThread_ = previous;
    }
  } restore{this, previousRunner};
  if (item.token && item.token->isCancelled()) {
    return false;
  }
  item.work();
  return true;
}

std::size_t ManualMainQueue::runUntilIdle() {
  std::size_t count = 0;
  std::chrono::milliseconds limit;
  {
    std::lock_guard lock(mutex_);
    limit = now_;
  }
  while (auto ran = runOne(limit)) {
    count += *ran ? 1 : 0;
  }
  return count;
}

std::size_t ManualMainQueue::advance(std::chrono::milliseconds duration) {
  std::chrono::milliseconds target;
  {
    std::lock_guard lock(mutex_);
    target = now_ + duration;
  }
  std::size_t count = 0;
  while (auto ran = runOne(target)) {
    count += *ran ? 1 : 0;
  }
  std::chrono::milliseconds rest{0};
  {
    std::lock_guard lock(mutex_);
    if (target > now_) {
      rest = target - now_;
      now_ = target;
    }
  }
  if (clock_ && rest.count() > 0) {
    clock_->advance(rest);
  }
  return count;
}

std::size_t ManualMainQueue::pendingCount() const {
  std::lock_guard lock(mutex_);
  std::size_t count = 0;
  for (const auto& [key, item] : items_) {
    if (!item.token || !item.token->isCancelled()) {
      ++count;
    }
  }
  return count;
}

}  // namespace orvanta::testing
