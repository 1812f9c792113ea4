#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>

#include "orvanta/export.hpp"
#include "orvanta/port/lifecycle.hpp"
#include "orvanta/port/main_queue.hpp"

namespace orvanta {

/// A life cycle driven by the host: the host reports launch, foreground and background with
/// `post`, and says when the process is about to be suspended with `willSuspend`. Background tasks
/// are granted while the process runs and expire at `willSuspend`, or when their time budget runs
/// out (timed on the main queue), whichever comes first. This is the Linux default; any host may
/// use it. Every member may be called from any thread; observers and expiration handlers run on
/// the thread that posts, or on the main queue for a budget running out, never under a lock.
class ORVANTA_API HostLifecycle : public port::Lifecycle {
 public:
  HostLifecycle(std::shared_ptr<port::MainQueue> mainQueue, std::chrono::milliseconds budget);
  ~HostLifecycle() override;

  /// Tells every observer of `event`, in the order they started observing.
  void post(port::LifecycleEvent event);
  /// Expires every background task still running (their expiration handlers run now), then
  /// tells the observers of `port::LifecycleEvent::willSuspend`.
  void willSuspend();

  std::unique_ptr<port::LifecycleObservation> observe(port::LifecycleEvent event,
                                                      std::function<void()> handler) override;
  port::BackgroundTaskId beginBackgroundTask(std::function<void()> expirationHandler) override;
  void endBackgroundTask(port::BackgroundTaskId task) override;

  /// Number of background tasks begun and neither ended nor expired.
  std::size_t runningBackgroundTasks() const;

  struct State;  ///< internal

 private:
  std::shared_ptr<State> state_;
};

/// Reports a life-cycle event to the kit, through the installed platform's lifecycle when it is a
/// `HostLifecycle` (the default); otherwise does nothing. Any thread.
ORVANTA_API void postLifecycleEvent(port::LifecycleEvent event);

/// Tells the kit that the process is about to be suspended (see `HostLifecycle::willSuspend`).
ORVANTA_API void postWillSuspend();

}  // namespace orvanta
