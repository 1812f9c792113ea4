#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "orvanta/export.hpp"

namespace orvanta::port {

/// Handle of delayed work; cancelling work that already ran, or twice, does nothing.
class ORVANTA_API Cancellable {
 public:
  virtual ~Cancellable() = default;
  virtual void cancel() = 0;
  virtual bool isCancelled() const = 0;
};

/// The application's main serial queue. Work runs one item at a time, in order of submission
/// (delayed work in order of due time). May be called from any thread.
class ORVANTA_API MainQueue {
 public:
  virtual ~MainQueue() = default;
  virtual void async(std::function<void()> work) = 0;
  virtual std::shared_ptr<Cancellable> asyncAfter(std::chrono::milliseconds delay,
                                                  std::function<void()> work) = 0;
  /// True when called from the thread that runs the queue's work.
  virtual bool isCurrent() const = 0;
};

}  // namespace orvanta::port
