#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include "analytics/asynchronous_operation.hpp"
#include "core/owned_thread.hpp"

namespace orvanta {

/// Runs asynchronous operations, at most `maxConcurrentOperationCount` at once, in the order they
/// were added.
///
/// One owned thread, made when the first operation is added, starts the operations that are
/// added (so that whatever `start` costs, building a request for instance, is never paid by the
/// thread that adds them); an operation that has started holds no thread while it waits, and the
/// thread that ends it starts the next one in its place, with no hand-over (a post's end starts
/// the next post on the HTTP client's thread). One thread at a time starts operations, so they
/// start in the order they were added. The queue keeps each operation alive from its start to its
/// end.
///
/// Every member may be called from any thread, including from an operation's own work.
class OperationQueue {
 public:
  using Factory = std::function<std::shared_ptr<AsynchronousOperation>(std::size_t index)>;

  OperationQueue(std::string name, std::size_t maxConcurrentOperationCount);
  /// Drops the operations that have not started and joins the starting thread. Operations still
  /// running finish on their own.
  ~OperationQueue();
  OperationQueue(const OperationQueue&) = delete;
  OperationQueue& operator=(const OperationQueue&) = delete;

  const std::string& name() const { return name_; }
  std::size_t maxConcurrentOperationCount() const { return maxConcurrentOperationCount_; }

  void addOperation(std::shared_ptr<AsynchronousOperation> operation);
  /// Adds `count` operations made on demand, `make(0)` ... `make(count - 1)`, each when its turn
  /// comes, so that adding many costs the caller nothing per operation. `make` may give null:
  /// that operation is skipped.
  void addOperations(std::size_t count, Factory make);

  /// Cancels every operation: those not started yet are dropped (or, if added one by one, finish
  /// at their start without executing); those running are told and finish when their work ends.
  void cancelAllOperations();

  /// Operations added and not finished, running ones included.
  std::size_t operationCount() const;
  /// Blocks until no operation is waiting or running.
  void waitUntilAllOperationsAreFinished() const;
  /// Blocks until no operation is waiting or running, or until `deadline`; whether they are done.
  bool waitUntilAllOperationsAreFinished(std::chrono::steady_clock::time_point deadline) const;

  struct State;

 private:
  /// Starts the starter thread, or wakes it, when an operation can start. State's mutex held.
  void wakeStarterLocked();

  std::string name_;
  std::size_t maxConcurrentOperationCount_;
  std::shared_ptr<State> state_;
  OwnedThread starter_;  ///< made by the first operation added, under the state's mutex
};

}  // namespace orvanta
