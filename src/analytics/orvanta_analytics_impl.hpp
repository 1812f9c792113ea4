#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "analytics/orvanta_analytics_operations_handler.hpp"
#include "core/config_file_helper.hpp"
#include "networking/auth_data.hpp"
#include "orvanta/health.hpp"
#include "orvanta/orvanta_analytics.hpp"
#include "orvanta/port/clock.hpp"
#include "orvanta/port/lifecycle.hpp"

namespace orvanta {

/// The analytics facade's state and behaviour. Always owned by a `std::shared_ptr` (`make`): the
/// background observer and the background task's handlers hold it weakly.
class OrvantaAnalytics::Impl : public std::enable_shared_from_this<OrvantaAnalytics::Impl> {
 public:
  struct Dependencies {
    std::shared_ptr<OrvantaAnalyticsOperationsHandlerProtocol> operationsHandler;
    std::shared_ptr<AuthData> authData;
    /// The did-enter-background notification and background tasks.
    std::shared_ptr<port::Lifecycle> lifecycle;
    /// When an event is tracked.
    std::shared_ptr<port::Clock> clock;
    /// The application identifier of each event.
    std::shared_ptr<const CredentialsSource> configFile;
  };

  /// Builds the facade and starts observing did-enter-background and will-suspend: at both, what
  /// is stored is made durable (`OrvantaAnalyticsOperationsHandlerProtocol::checkpoint`), so that
  /// events tracked before the application left the screen survive a power cut.
  static std::shared_ptr<Impl> make(Dependencies dependencies);

  /// Prefer `make`.
  explicit Impl(Dependencies dependencies);

  void trackEvent(const std::string& name, const ValueMap& parameters);
  /// `OrvantaAnalyticsOperationsHandlerProtocol::flush`; 0 when there is no queue.
  std::size_t flush(std::chrono::steady_clock::time_point deadline);
  /// Fills the event queue's fields of `health`: what waits, and how long the oldest has waited
  /// by the facade's clock. Never waits for the database. Any thread.
  void describeQueue(OrvantaHealth& health) const;

  /// The background task being held, or `port::kInvalidBackgroundTask`.
  port::BackgroundTaskId backgroundTask() const { return backgroundTask_.load(); }

  const Dependencies& dependencies() const { return dependencies_; }

 private:
  void observeGoingBackground();
  /// What was tracked so far survives a power cut.
  void makeDurable();
  void appDidEnterBackground();
  void registerBackgroundTask(std::function<void()> performOperation,
                              std::function<void()> shouldFinish);

  Dependencies dependencies_;
  std::atomic<port::BackgroundTaskId> backgroundTask_{port::kInvalidBackgroundTask};
  std::unique_ptr<port::LifecycleObservation> backgroundNotificationObserver_;
  std::unique_ptr<port::LifecycleObservation> suspensionObserver_;
};

}  // namespace orvanta
