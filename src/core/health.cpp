#include "core/health.hpp"

#include <array>
#include <atomic>

#include <nlohmann/json.hpp>

namespace orvanta::health {
namespace {

constexpr std::size_t kCounters = static_cast<std::size_t>(Counter::reportsFailed) + 1;

struct Counters {
  std::array<std::atomic<std::uint64_t>, kCounters> values{};
  std::atomic<std::int64_t> lastPostMilliseconds{0};
};

Counters& counters() {
  static Counters instance;
  return instance;
}

std::uint64_t read(Counter counter) {
  return counters().values[static_cast<std::size_t>(counter)].load(std::memory_order_relaxed);
}

}  // namespace

void count(Counter counter, std::uint64_t amount) noexcept {
  counters().values[static_cast<std::size_t>(counter)].fetch_add(amount, std::memory_order_relaxed);
}

void notePostSucceeded() noexcept {
  const auto now = std::chrono::duration_cast<std::chrono::milliseconds>(
      std::chrono::system_clock::now().time_since_epoch());
  counters().lastPostMilliseconds.store(now.count(), std::memory_order_relaxed);
}

OrvantaHealth snapshot() noexcept {
  OrvantaHealth health;
  health.eventsTracked = read(Counter::eventsTracked);
  health.eventsRefused = read(Counter::eventsRefused);
  health.eventsStored = read(Counter::eventsStored);
  health.eventsPosted = read(Counter::eventsPosted);
  health.postFailuresNetwork = read(Counter::postFailuresNetwork);
  health.postFailuresClientError = read(Counter::postFailuresClientError);
  health.postFailuresServerError = read(Counter::postFailuresServerError);
  health.storageErrors = read(Counter::storageErrors);
  health.pushesReceived = read(Counter::pushesReceived);
  health.pushesShown = read(Counter::pushesShown);
  health.pushesDroppedInvalid = read(Counter::pushesDroppedInvalid);
  health.pushesDroppedRefused = read(Counter::pushesDroppedRefused);
  health.pushesDroppedNotShown = read(Counter::pushesDroppedNotShown);
  health.reportsSent = read(Counter::reportsSent);
  health.reportsFailed = read(Counter::reportsFailed);
  health.lastSuccessfulPost = std::chrono::system_clock::time_point(
      std::chrono::milliseconds(counters().lastPostMilliseconds.load(std::memory_order_relaxed)));
  return health;
}

}  // namespace orvanta::health

namespace orvanta {

std::string OrvantaHealth::json() const {
  const auto since1970 = std::chrono::duration_cast<std::chrono::milliseconds>(
      lastSuccessfulPost.time_since_epoch());
  const nlohmann::ordered_json out = {
      {"eventsTracked", eventsTracked},
      {"eventsRefused", eventsRefused},
      {"eventsStored", eventsStored},
      {"eventsPosted", eventsPosted},
      {"postFailuresNetwork", postFailuresNetwork},
      {"postFailuresClientError", postFailuresClientError},
      {"postFailuresServerError", postFailuresServerError},
      {"rowsWaiting", rowsWaiting},
      {"oldestWaitingMs", oldestWaiting.count()},
      {"lastSuccessfulPostMs", since1970.count()},
      {"storageErrors", storageErrors},
      {"pushesReceived", pushesReceived},
      {"pushesShown", pushesShown},
      {"pushesDroppedInvalid", pushesDroppedInvalid},
      {"pushesDroppedRefused", pushesDroppedRefused},
      {"pushesDroppedNotShown", pushesDroppedNotShown},
      {"reportsSent", reportsSent},
      {"reportsFailed", reportsFailed},
  };
  return out.dump();
}

}  // namespace orvanta
