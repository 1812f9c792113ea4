#pragma once

#include <functional>
#include <memory>
#include <string>

#include "core/owned_thread.hpp"

namespace orvanta::linux_platform {

/// A thread of our own running a GLib main loop on a private main context. The context is the
/// thread's default context for the thread's whole life, so the GIO calls made on the thread
/// (asynchronous calls, signal subscriptions, connections) deliver their callbacks there.
///
/// The thread and its context are made by the first `post`, so an adapter that is never used costs
/// no thread and leaves GLib untouched. `post` may be called from any thread; the work runs on the
/// loop thread, one item at a time and in order of posting, between GLib's own callbacks. An
/// exception thrown by a work item is dropped.
class GlibLoopThread {
 public:
  /// Starts nothing yet; `name` (cut to the 15 bytes Linux keeps) is the thread's, once started.
  explicit GlibLoopThread(std::string name);
  /// Stops the thread (see `stop`) when that was not done yet.
  ~GlibLoopThread();
  GlibLoopThread(const GlibLoopThread&) = delete;
  GlibLoopThread& operator=(const GlibLoopThread&) = delete;

  /// Queues `work` for the loop thread. False, and `work` released, once `stop` was called.
  bool post(std::function<void()> work) const;
  /// Ends the thread. Later posts are refused and work not yet started is dropped (released on
  /// the calling thread). On the loop thread, once the running item is done, `shutdown` runs; then
  /// the context keeps turning until `settled()` is true (GIO reports cancelled calls that way),
  /// both functions are released, and the thread ends. The caller waits for that, except on the
  /// loop thread itself: there the thread is joined by the next `stop` made on another thread.
  /// A second call does nothing.
  void stop(std::function<void()> shutdown = {}, std::function<bool()> settled = {});

 private:
  struct State;
  static void run(const std::shared_ptr<State>& state);

  const std::string name_;
  std::shared_ptr<State> state_;
  mutable OwnedThread thread_;  // started by the first `post`, under the state's mutex
};

}  // namespace orvanta::linux_platform
