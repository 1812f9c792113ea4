#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "orvanta/export.hpp"

namespace orvanta::port {

/// The application's moves. `willSuspend`: the process is about to be suspended (posted by
/// `HostLifecycle::willSuspend`, after the background tasks have expired); the kit makes what it
/// stored durable then.
enum class LifecycleEvent {
  didFinishLaunching,
  willEnterForeground,
  didEnterBackground,
  willSuspend
};

using BackgroundTaskId = std::uint64_t;
inline constexpr BackgroundTaskId kInvalidBackgroundTask = 0;

/// Keeps an observation alive; destroying it stops the observation.
class ORVANTA_API LifecycleObservation {
 public:
  virtual ~LifecycleObservation() = default;
};

/// The application's life cycle: the three notifications and background tasks.
class ORVANTA_API Lifecycle {
 public:
  virtual ~Lifecycle() = default;
  /// Calls `handler` on the posting thread each time `event` is posted.
  virtual std::unique_ptr<LifecycleObservation> observe(LifecycleEvent event,
                                                        std::function<void()> handler) = 0;
  /// Asks for background time; `kInvalidBackgroundTask` when refused. `expirationHandler` runs
  /// when the time granted is used up.
  virtual BackgroundTaskId beginBackgroundTask(std::function<void()> expirationHandler) = 0;
  virtual void endBackgroundTask(BackgroundTaskId task) = 0;
};

}  // namespace orvanta::port
