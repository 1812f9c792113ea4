#pragma once

#include <chrono>

#include "orvanta/export.hpp"

namespace orvanta::port {

/// Wall clock (timestamps, log lines) and monotonic clock (timers). Thread-safe.
class ORVANTA_API Clock {
 public:
  virtual ~Clock() = default;
  virtual std::chrono::system_clock::time_point now() = 0;
  virtual std::chrono::steady_clock::time_point monotonicNow() = 0;
};

}  // namespace orvanta::port
