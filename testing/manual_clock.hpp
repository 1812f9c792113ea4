#pragma once

#include <chrono>
#include <mutex>

#include "orvanta/port/clock.hpp"

namespace orvanta::testing {

/// A clock that moves only when the test moves it. Starts at 2024-05-07 14:05:09.042 UTC (wall)
/// and at an arbitrary fixed point (monotonic). Thread-safe.
class ManualClock : public port::Clock {
 public:
  ManualClock();

  std::chrono::system_clock::time_point now() override;
  std::chrono::steady_clock::time_point monotonicNow() override;

  /// Sets the wall clock; the monotonic clock is left alone.
  void setNow(std::chrono::system_clock::time_point now);
  /// Moves both clocks forward.
  void advance(std::chrono::nanoseconds duration);

 private:
  std::mutex mutex_;
  std::chrono::system_clock::time_point wall_;
  std::chrono::steady_clock::time_point monotonic_;
};

}  // namespace orvanta::testing
