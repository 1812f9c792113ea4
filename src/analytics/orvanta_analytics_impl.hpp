#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>

#include "analytics/orvanta_analytics_operations_handler.hpp"
#include "networking/auth_data.hpp"
#include "orvanta/orvanta_analytics.hpp"
#include "orvanta/port/lifecycle.hpp"

namespace orvanta {

/// The analytics facade's state and behaviour. Always owned by a `std::shared_ptr` (`make`): the
/// background observer and the background task's handlers hold it weakly.
class OrvantaAnalytics::Impl : public std::enable_shared_from_this<OrvantaAnalytics::Impl> {
 public:
  struct Dependencies {
    std::shared_ptr<OrvantaAnalyticsOperationsHandlerProtocol> operationsHandler;
    std::shared_ptr<AuthData> authData;
    /// Background notification and tasks; none means the current platform's, taken at creation.
    std::shared_ptr<port::Lifecycle> lifecycle;
  };

  /// Builds the facade and starts observing did-enter-background.
  static std::shared_ptr<Impl> make(Dependencies dependencies);

  /// Prefer `make`.
  explicit Impl(Dependencies dependencies);

  void trackEvent(const std::string& name, const ValueMap& parameters);

  /// The background task being held, or `port::kInvalidBackgroundTask`.
  port::BackgroundTaskId backgroundTask() const { return backgroundTask_.load(); }

  const Dependencies& dependencies() const { return dependencies_; }

 private:
  void observeGoingBackground();
  void appDidEnterBackground();
  void registerBackgroundTask(std::function<void()> performOperation,
                              std::function<void()> shouldFinish);

  Dependencies dependencies_;
  std::atomic<port::BackgroundTaskId> backgroundTask_{port::kInvalidBackgroundTask};
  std::unique_ptr<port::LifecycleObservation> backgroundNotificationObserver_;
};

namespace detail {

/// The event database of the documents directory ("Orvanta.sqlite"; the directory is created when
/// missing), or a temporary one when there is no documents directory; none when it can't be opened.
std::shared_ptr<EventDatabase> openEventDatabase();

/// The analytics stack the kit wires at start-up: event database, operations handler and facade,
/// observing did-enter-background.
std::unique_ptr<OrvantaAnalytics> makeOrvantaAnalytics();

}  // namespace detail

}  // namespace orvanta
