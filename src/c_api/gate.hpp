#pragma once

// How the C interface calls a host's callbacks safely: the host's user data lives as long as
// anyone may still call with it, and a listener replaced by another is never called again.

#include <algorithm>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <vector>

#include "orvanta/orvanta.h"

namespace orvanta::c_api {

/// The host's `user_data` and `release` of a delegate or observer. Held by the host's handle and
/// by each installation of it; `release(user_data)` runs when the last of them lets go.
class HostData {
 public:
  HostData(void* userData, orvanta_release_fn release) : userData_(userData), release_(release) {}
  ~HostData() {
    if (release_ != nullptr) {
      release_(userData_);
    }
  }
  HostData(const HostData&) = delete;
  HostData& operator=(const HostData&) = delete;

  void* userData() const { return userData_; }

 private:
  void* const userData_;
  const orvanta_release_fn release_;
};

/// Lets callbacks through until it is closed; closing waits for those already through, except
/// those running on the closing thread (a callback may replace its own listener). Any thread.
class Gate {
 public:
  /// Runs `call` unless the gate is closed.
  template <class Call>
  void run(Call&& call) {
    auto& inside = insideHere();
    inside.push_back(this);
    {
      std::lock_guard lock(mutex_);
      if (closed_) {
        inside.pop_back();
        return;
      }
      ++running_;
    }
    struct Leave {
      Gate& gate;
      ~Leave() {
        insideHere().pop_back();
        std::lock_guard lock(gate.mutex_);
        --gate.running_;
        gate.idle_.notify_all();
      }
    } leave{*this};
    call();
  }

  /// No call starts after this returns, and none is running but the calling thread's own.
  void close() {
    const auto& inside = insideHere();
    const auto mine = std::count(inside.begin(), inside.end(), this);
    std::unique_lock lock(mutex_);
    closed_ = true;
    idle_.wait(lock, [&] { return running_ == mine; });
  }

 private:
  /// The gates whose calls run on this thread, innermost last.
  static std::vector<const Gate*>& insideHere() {
    thread_local std::vector<const Gate*> inside;
    return inside;
  }

  std::mutex mutex_;
  std::condition_variable idle_;
  std::ptrdiff_t running_ = 0;
  bool closed_ = false;
};

}  // namespace orvanta::c_api
