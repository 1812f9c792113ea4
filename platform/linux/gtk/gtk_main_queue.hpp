#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <thread>

#include "orvanta/port/main_queue.hpp"

// GLib's context type, declared here so that including this header needs no GLib headers.
typedef struct _GMainContext GMainContext;

namespace orvanta::gtk_platform {

/// The main queue of a GTK host: work runs on the thread that iterates a GLib main context (GTK's
/// own, the default context, unless another is given), one item at a time, in order of
/// submission; delayed work in order of due time, then of submission. Work is never run inside
/// the call that posts it, even on the context's thread.
///
/// May be called from any thread. Build it on the thread that runs the context: `isCurrent()` is
/// true on that thread and on whichever thread owns the context at the moment. Destroying the
/// queue (on the context's thread) drops the work not yet started. An exception thrown by a work
/// item is dropped.
class GtkMainQueue : public port::MainQueue {
 public:
  /// `context`: the main context to run on; null means GLib's default context, which GTK
  /// iterates.
  explicit GtkMainQueue(GMainContext* context = nullptr);
  ~GtkMainQueue() override;
  GtkMainQueue(const GtkMainQueue&) = delete;
  GtkMainQueue& operator=(const GtkMainQueue&) = delete;

  void async(std::function<void()> work) override;
  std::shared_ptr<port::Cancellable> asyncAfter(std::chrono::milliseconds delay,
                                                std::function<void()> work) override;
  bool isCurrent() const override;

  struct State;  ///< opaque; reached by the context's callbacks

 private:
  class Token;

  void enqueue(std::chrono::milliseconds delay, std::function<void()> work,
               std::shared_ptr<Token> token);

  std::shared_ptr<State> state_;
  std::thread::id ownerThread_;
};

}  // namespace orvanta::gtk_platform
