#pragma once

#include <pthread.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace orvanta::testing {

/// The name of the calling thread, to tell where a callback ran.
inline std::string currentThreadName() {
  char name[16] = {};
  pthread_getname_np(pthread_self(), name, sizeof name);
  return name;
}

/// Values that callbacks hand over from other threads, with a wait for the count to reach N.
template <class T>
class Inbox {
 public:
  void push(T value) {
    std::lock_guard lock(mutex_);
    items_.push_back(std::move(value));
    changed_.notify_all();
  }
  bool waitFor(std::size_t count,
               std::chrono::milliseconds timeout = std::chrono::milliseconds(20'000)) const {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, timeout, [&] { return items_.size() >= count; });
  }
  /// Waits until `holds(items)` is true.
  template <class Predicate>
  bool waitUntil(Predicate holds,
                 std::chrono::milliseconds timeout = std::chrono::milliseconds(20'000)) const {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, timeout, [&] { return holds(items_); });
  }
  std::vector<T> items() const {
    std::lock_guard lock(mutex_);
    return items_;
  }

 private:
  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  std::vector<T> items_;
};

}  // namespace orvanta::testing
