#pragma once

#include <chrono>
#include <cstdint>

#include "orvanta/health.hpp"

namespace orvanta::health {

/// What the kit counts, process-wide, from whichever thread did it.
enum class Counter {
  eventsTracked,
  eventsRefused,
  eventsStored,
  eventsPosted,
  postFailuresNetwork,
  postFailuresClientError,
  postFailuresServerError,
  storageErrors,
  pushesReceived,
  pushesShown,
  pushesDroppedInvalid,
  pushesDroppedRefused,
  pushesDroppedNotShown,
  reportsSent,
  reportsFailed,
};

/// Adds `amount` to `counter`. Lock-free; any thread.
void count(Counter counter, std::uint64_t amount = 1) noexcept;

/// Notes that the service took events now. Any thread.
void notePostSucceeded() noexcept;

/// The counters as they stand; the queue's fields are left for the caller to fill. Any thread.
OrvantaHealth snapshot() noexcept;

}  // namespace orvanta::health
