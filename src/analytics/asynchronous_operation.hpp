#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <shared_mutex>

namespace orvanta {

/// A unit of work that finishes later than `start` returns: it starts something (a request) and
/// calls `finish` when that ends, from whatever thread it ends on. Always owned by a
/// `std::shared_ptr`, so that the work it starts can hold it weakly.
///
/// States move only ready -> executing -> finished, or ready -> finished when cancelled before it
/// started. The state is guarded by a readers-writer lock: reads are concurrent, writes exclusive.
/// Every member may be called from any thread.
class AsynchronousOperation : public std::enable_shared_from_this<AsynchronousOperation> {
 public:
  enum class OperationState { ready = 0, executing = 1, finished = 2 };

  AsynchronousOperation() = default;
  virtual ~AsynchronousOperation() = default;
  AsynchronousOperation(const AsynchronousOperation&) = delete;
  AsynchronousOperation& operator=(const AsynchronousOperation&) = delete;

  OperationState state() const;
  bool isReady() const { return state() == OperationState::ready; }
  bool isExecuting() const { return state() == OperationState::executing; }
  bool isFinished() const { return state() == OperationState::finished; }
  bool isAsynchronous() const { return true; }
  bool isCancelled() const { return cancelled_.load(std::memory_order_acquire); }

  /// A cancelled operation that has not started finishes at `start` without executing; one that
  /// is executing finishes when its work ends.
  void cancel() { cancelled_.store(true, std::memory_order_release); }

  /// Finishes at once when cancelled; otherwise moves to executing and calls `execute`. Only the
  /// first call does anything.
  void start();

  /// Called once, on the thread that finishes the operation, right after it became finished.
  /// Set it before `start`.
  void setCompletionBlock(std::function<void()> completion);

 protected:
  /// The work. It must end, on any thread and at any later time, with `finish()`.
  virtual void execute() = 0;
  /// Marks the operation finished (again: nothing).
  void finish() { setState(OperationState::finished); }

 private:
  /// Moves the state forward; false when it was already there or past it.
  bool setState(OperationState state);

  mutable std::shared_mutex stateMutex_;
  OperationState rawState_ = OperationState::ready;  ///< guarded by stateMutex_
  std::atomic<bool> cancelled_{false};
  std::function<void()> completion_;  ///< set before start, run once at finish
};

}  // namespace orvanta
