#include "linux/thread_main_queue.hpp"

#include <pthread.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

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
};

namespace {

// A queue released by its own thread (its last owner dropped inside a work item) can't join that
// thread there. The thread finishes its item and ends; the next queue destroyed on another thread
// joins it.
struct PendingJoins {
  std::mutex mutex;
  std::vector<std::thread> threads;
};

PendingJoins& pendingJoins() {
  static auto* pending = new PendingJoins();
  return *pending;
}

void joinPendingThreads() {
  std::vector<std::thread> threads;
  {
    auto& pending = pendingJoins();
    std::lock_guard lock(pending.mutex);
    for (auto it = pending.threads.begin(); it != pending.threads.end();) {
      if (it->get_id() != std::this_thread::get_id()) {
        threads.push_back(std::move(*it));
        it = pending.threads.erase(it);
      } else {
        ++it;
      }
    }
  }
  for (auto& thread : threads) {
    thread.join();
  }
}

}  // namespace

ThreadMainQueue::ThreadMainQueue(std::string threadName) : state_(std::make_shared<State>()) {
  thread_ = std::thread([state = state_] { run(state); });
  threadId_ = thread_.get_id();
  // Linux limits thread names to 15 bytes.
  pthread_setname_np(thread_.native_handle(), threadName.substr(0, 15).c_str());
}

ThreadMainQueue::~ThreadMainQueue() {
  std::map<State::Key, State::Item> dropped;
  {
    std::lock_guard lock(state_->mutex);
    state_->stopping = true;
    dropped.swap(state_->items);
  }
  state_->wake.notify_all();
  if (threadId_ == std::this_thread::get_id()) {
    auto& pending = pendingJoins();
    std::lock_guard lock(pending.mutex);
    pending.threads.push_back(std::move(thread_));
  } else {
    thread_.join();
    joinPendingThreads();
  }
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
  return std::this_thread::get_id() == threadId_;
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
  state_->wake.notify_one();
}

void ThreadMainQueue::run(const std::shared_ptr<State>& state) {
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
