#include "testing/manual_clock.hpp"

namespace orvanta::testing {

ManualClock::ManualClock()
    : wall_(std::chrono::sys_days{std::chrono::year{2024} / 5 / 7} + std::chrono::hours(14) +
            std::chrono::minutes(5) + std::chrono::seconds(9) + std::chrono::milliseconds(42)),
      monotonic_(std::chrono::hours(1000)) {}

std::chrono::system_clock::time_point ManualClock::now() {
  std::lock_guard lock(mutex_);
  return wall_;
}

std::chrono::steady_clock::time_point ManualClock::monotonicNow() {
  std::lock_guard lock(mutex_);
  return monotonic_;
}

void ManualClock::setNow(std::chrono::system_clock::time_point now) {
  std::lock_guard lock(mutex_);
  wall_ = now;
}

void ManualClock::advance(std::chrono::nanoseconds duration) {
  std::lock_guard lock(mutex_);
  wall_ += std::chrono::duration_cast<std::chrono::system_clock::duration>(duration);
  monotonic_ += std::chrono::duration_cast<std::chrono::steady_clock::duration>(duration);
}

}  // namespace orvanta::testing
