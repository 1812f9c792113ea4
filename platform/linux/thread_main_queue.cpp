#include "linux/thread_main_queue.hpp"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <thread>
#include <utility>

namespace orvanta::linux_platform {

class ThreadMainQueue::Token : public port::Cancellable {
 public:
  void cancel() override { cancelled_.store(true); }
  bool isCancelled() const override { return cancelled_.load(); }

 private:
  std::atomic<bool> cancelled_{false};
};

struct ThreadMainQueue::State {
  using Key = std::pair<std::chrono::steady_clock::time_point, std::uint64_t>;
  struct Item {
    std::function<void()> work;
    std::shared_ptr<Token> token;  // null for work that can't be cancelled
  };

  std::mutex mutex;
  std::condition_variable wake;
  std::map<Key, Item> items;
  std::uint64_t nextSequence = 0;
  bool stopping = false;
  /// The queue's thread, once its first work has started it.
  std::atomic<std::thread::id> thread{};
};

ThreadMainQueue::ThreadMainQueue(std::string threadName)
    : threadName_(std::move(threadName)), state_(std::make_shared<State>()) {}

ThreadMainQueue::~ThreadMainQueue() {
  std::map<State::Key, State::Item> dropped;
  {
    std::lock_guard lock(state_->mutex);
    state_->stopping = true;
    dropped.swap(state_->items);
  }
  state_->wake.notify_all();
  // Released by one of its own work items, the thread finishes that item and ends: it only
  // touches the shared state.
  thread_.join();
  // `dropped` goes last, outside every lock: its closures may own other kit objects.
}

void ThreadMainQueue::async(std::function<void()> work) {
  enqueue(std::chrono::steady_clock::now(), std::move(work), nullptr);
}

std::shared_ptr<port::Cancellable> ThreadMainQueue::asyncAfter(std::chrono::milliseconds delay,
                                                               std::function<void()> work) {
  auto token = std::make_shared<Token>();
  if (delay.count() < 0) {
    delay = std::chrono::milliseconds(0);
  }
  enqueue(std::chrono::steady_clock::now() + delay, std::move(work), token);
  return token;
}

bool ThreadMainQueue::isCurrent() const {
  return state_->thread.load() == std::this_thread::get_id();
}

void ThreadMainQueue::enqueue(std::chrono::steady_clock::time_point due, std::function<void()> work,
                              std::shared_ptr<Token> token) {
  // Notified under the lock: once it is released the work may run and release this queue, so
  // nothing of `this` may be touched afterwards.
  std::lock_guard lock(state_->mutex);
  if (state_->stopping) {
    return;
  }
  state_->items.emplace(State::Key{due, state_->nextSequence++},
                        State::Item{std::move(work), std::move(token)});
  if (!thread_.joinable()) {
    // The first work starts the thread: a queue nothing was given to costs no thread.
    thread_ = OwnedThread(threadName_, [state = state_] { run(state); });
  }
  state_->wake.notify_one();
}

void ThreadMainQueue::run(const std::shared_ptr<State>& state) {
  state->thread.store(std::this_thread::get_id());
  std::unique_lock lock(state->mutex);
  while (!state->stopping) {
    if (state->items.empty()) {
      state->wake.wait(lock);
      continue;
    }
    auto first = state->items.begin();
    if (first->first.first > std::chrono::steady_clock::now()) {
      state->wake.wait_until(lock, first->first.first);
      continue;
    }
    State::Item item = std::move(first->second);
    state->items.erase(first);
    lock.unlock();
    if (!item.token || !item.token->isCancelled()) {
      try {
        item.work();
      } catch (...) {  // NOLINT(bugprone-empty-catch): one failing item must not stop the queue
      }
    }
    item = State::Item{};  // the closure is released before the lock is taken again
    lock.lock();
  }
}

}  // namespace orvanta::linux_platform
