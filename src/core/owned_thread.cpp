#include "core/owned_thread.hpp"

#include <mutex>
#include <utility>
#include <vector>

#include "core/os.hpp"

namespace orvanta {
namespace {

/// Threads handed over by `join` on themselves, until someone joins them.
class HandedOverThreads {
 public:
  static HandedOverThreads& instance() {
    static HandedOverThreads threads;
    return threads;
  }

  void add(std::thread thread, std::shared_ptr<std::atomic<bool>> finished) {
    std::lock_guard lock(mutex_);
    entries_.push_back({std::move(thread), std::move(finished)});
  }

  /// Joins those that have ended already, so that this never waits.
  void joinFinished() {
    std::vector<Entry> done;
    {
      std::lock_guard lock(mutex_);
      for (auto it = entries_.begin(); it != entries_.end();) {
        if (it->finished->load() && it->thread.get_id() != std::this_thread::get_id()) {
          done.push_back(std::move(*it));
          it = entries_.erase(it);
        } else {
          ++it;
        }
      }
    }
    for (auto& entry : done) {
      entry.thread.join();
    }
  }

  /// At exit every handed-over thread has been told to stop and is finishing its last work.
  ~HandedOverThreads() {
    for (auto& entry : entries_) {
      if (entry.thread.joinable() && entry.thread.get_id() != std::this_thread::get_id()) {
        entry.thread.join();
      }
    }
  }

 private:
  struct Entry {
    std::thread thread;
    std::shared_ptr<std::atomic<bool>> finished;
  };
  std::mutex mutex_;
  std::vector<Entry> entries_;
};

}  // namespace

OwnedThread::OwnedThread(std::string name, std::function<void()> body)
    : finished_(std::make_shared<std::atomic<bool>>(false)) {
  // Made before the first thread starts, so that it is destroyed after every thread it may hold.
  HandedOverThreads::instance();
  thread_ = std::thread([name = std::move(name), body = std::move(body), finished = finished_] {
    os::setCurrentThreadName(name);
    body();
    finished->store(true);
  });
}

OwnedThread::~OwnedThread() {
  join();
}

OwnedThread& OwnedThread::operator=(OwnedThread&& other) noexcept {
  if (this != &other) {
    join();
    thread_ = std::move(other.thread_);
    finished_ = std::move(other.finished_);
  }
  return *this;
}

void OwnedThread::join() {
  if (!thread_.joinable()) {
    return;
  }
  if (isCurrent()) {
    HandedOverThreads::instance().add(std::move(thread_), std::move(finished_));
    return;
  }
  thread_.join();
  finished_.reset();
  HandedOverThreads::instance().joinFinished();
}

}  // namespace orvanta
