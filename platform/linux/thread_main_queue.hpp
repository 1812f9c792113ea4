#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include "core/owned_thread.hpp"
#include "orvanta/port/main_queue.hpp"

namespace orvanta::linux_platform {

/// The main queue on a thread of its own ("orvanta-main"), started by the first work given to it:
/// work runs one item at a time, in order of due time, then of submission. Delayed work waits on a
/// condition variable with a deadline; cancelled work is skipped. Destroying the queue drops the
/// work not yet started, lets the running item finish and joins the thread. An exception thrown by
/// a work item is dropped.
class ThreadMainQueue : public port::MainQueue {
 public:
  explicit ThreadMainQueue(std::string threadName = "orvanta-main");
  ~ThreadMainQueue() override;
  ThreadMainQueue(const ThreadMainQueue&) = delete;
  ThreadMainQueue& operator=(const ThreadMainQueue&) = delete;

  void async(std::function<void()> work) override;
  std::shared_ptr<port::Cancellable> asyncAfter(std::chrono::milliseconds delay,
                                                std::function<void()> work) override;
  bool isCurrent() const override;

 private:
  class Token;
  struct State;

  void enqueue(std::chrono::steady_clock::time_point due, std::function<void()> work,
               std::shared_ptr<Token> token);
  static void run(const std::shared_ptr<State>& state);

  const std::string threadName_;
  // Shared with the thread, which may outlive this object when the queue is released by one of
  // its own work items.
  std::shared_ptr<State> state_;
  OwnedThread thread_;  // started by the first `enqueue`, under the state's mutex
};

}  // namespace orvanta::linux_platform
