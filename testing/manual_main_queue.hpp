#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

#include "orvanta/port/main_queue.hpp"
#include "testing/manual_clock.hpp"

namespace orvanta::testing {

/// A main queue that runs nothing on its own. Work piles up until the test calls `runUntilIdle()`
/// (everything due now, including work added meanwhile) or `advance(duration)` (virtual time moves
/// forward and delayed work runs as it falls due, in order of due time, then of submission). Work
/// may be added from any thread; it runs on the thread that calls `runUntilIdle`/`advance`, where
/// `isCurrent()` is then true. When built with a `ManualClock`, `advance` moves that clock too.
class ManualMainQueue : public port::MainQueue {
 public:
  explicit ManualMainQueue(std::shared_ptr<ManualClock> clock = nullptr);

  void async(std::function<void()> work) override;
  std::shared_ptr<port::Cancellable> asyncAfter(std::chrono::milliseconds delay,
                                                std::function<void()> work) override;
  bool isCurrent() const override;

  /// Runs work due now until there is none; returns how many items ran.
  std::size_t runUntilIdle();
  /// Moves virtual time forward by `duration`, running work as it falls due; returns how many
  /// items ran.
  std::size_t advance(std::chrono::milliseconds duration);

  /// Items waiting, cancelled ones excluded.
  std::size_t pendingCount() const;

 private:
  class Token;
  using Key = std::pair<std::chrono::milliseconds, std::uint64_t>;
  struct Item {
    std::function<void()> work;
    std::shared_ptr<Token> token;
  };

  void enqueue(std::chrono::milliseconds delay, Item item);
  /// Takes the first item due at or before `limit` and runs it unless cancelled (true when it ran);
  /// none when nothing is due.
  std::optional<bool> runOne(std::chrono::milliseconds limit);

  mutable std::mutex mutex_;
  std::map<Key, Item> items_;
  std::uint64_t nextSequence_ = 0;
  std::chrono::milliseconds now_{0};
  std::thread::id runningThread_;
  std::shared_ptr<ManualClock> clock_;
};

}  // namespace orvanta::testing
