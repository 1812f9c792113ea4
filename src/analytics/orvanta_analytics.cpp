#include <chrono>
#include <filesystem>
#include <system_error>
#include <utility>

#include "analytics/orvanta_analytics_impl.hpp"
#include "core/logger.hpp"
#include "orvanta/platform.hpp"
#include "storage/documents_directory.hpp"

namespace orvanta {

OrvantaAnalytics::OrvantaAnalytics(std::shared_ptr<Impl> impl) : impl_(std::move(impl)) {}

OrvantaAnalytics::~OrvantaAnalytics() = default;

void OrvantaAnalytics::trackEvent(const std::string& name, const ValueMap& parameters) {
  try {
    if (impl_) {
      impl_->trackEvent(name, parameters);
    }
  } catch (...) {  // NOLINT(bugprone-empty-catch): no failure reaches the host
  }
}

std::shared_ptr<OrvantaAnalytics::Impl> OrvantaAnalytics::Impl::make(Dependencies dependencies) {
  auto impl = std::make_shared<Impl>(std::move(dependencies));
  impl->observeGoingBackground();
  return impl;
}

OrvantaAnalytics::Impl::Impl(Dependencies dependencies) : dependencies_(std::move(dependencies)) {
  if (!dependencies_.lifecycle) {
    dependencies_.lifecycle = currentPlatform()->lifecycle;
  }
}

void OrvantaAnalytics::Impl::trackEvent(const std::string& name, const ValueMap& parameters) {
  if (!dependencies_.authData || !dependencies_.operationsHandler) {
    return;
  }
  OrvantaDevice device = dependencies_.authData->device();
  if (!device.deviceToken) {
    return;  // no push token yet: nothing is recorded
  }
  auto clock = currentPlatform()->clock;
  auto now = clock ? clock->now() : std::chrono::system_clock::now();
  double createdAt = std::chrono::duration<double>(now.time_since_epoch()).count();
  auto event =
      std::make_shared<const OrvantaEvent>(*device.deviceToken, name, createdAt, parameters);
  dependencies_.operationsHandler->addEventToDatabase(event);
  dependencies_.operationsHandler->postEventsFromDatabase();
}

void OrvantaAnalytics::Impl::observeGoingBackground() {
  if (!dependencies_.lifecycle) {
    return;
  }
  std::weak_ptr<Impl> weak = weak_from_this();
  backgroundNotificationObserver_ =
      dependencies_.lifecycle->observe(port::LifecycleEvent::didEnterBackground, [weak] {
        if (auto self = weak.lock()) {
          self->appDidEnterBackground();
        }
      });
}

void OrvantaAnalytics::Impl::appDidEnterBackground() {
  std::weak_ptr<Impl> weak = weak_from_this();
  registerBackgroundTask(
      [weak] {
        if (auto self = weak.lock()) {
          self->dependencies_.operationsHandler->postEventsFromDatabase();
        }
      },
      [weak] {
        if (auto self = weak.lock()) {
          self->dependencies_.operationsHandler->cancelAllOperations();
        }
      });
}

void OrvantaAnalytics::Impl::registerBackgroundTask(std::function<void()> performOperation,
                                                    std::function<void()> shouldFinish) {
  std::weak_ptr<Impl> weak = weak_from_this();
  // The task is given back only when its time runs out, never when the flush is done: the kit
  // keeps all the background time it is granted.
  auto expirationHandler = [weak, shouldFinish] {
    auto self = weak.lock();
    if (!self) {
      shouldFinish();
      return;
    }
    port::BackgroundTaskId task = self->backgroundTask_.load();
    if (task != port::kInvalidBackgroundTask) {
      shouldFinish();
      self->dependencies_.lifecycle->endBackgroundTask(task);
      self->backgroundTask_.store(port::kInvalidBackgroundTask);
    }
  };
  backgroundTask_.store(dependencies_.lifecycle->beginBackgroundTask(std::move(expirationHandler)));
  if (backgroundTask_.load() == port::kInvalidBackgroundTask) {
    OrvantaLogger::verbose("Could not register background task.");
    return;
  }
  performOperation();
}

namespace detail {

std::shared_ptr<EventDatabase> openEventDatabase() {
  auto url = urlForFileInDocumentsDirectory(kEventDatabaseFileName);
  std::string location;
  if (url) {
    location = *url;
    // A fresh installation's data folder may not exist yet.
    std::error_code ignored;
    std::filesystem::create_directories(std::filesystem::path(location).parent_path(), ignored);
  }
  try {
    return std::make_shared<Database<OrvantaEvent>>(location);
  } catch (...) {
    return nullptr;  // no storage: analytics records nothing, silently
  }
}

std::unique_ptr<OrvantaAnalytics> makeOrvantaAnalytics() {
  auto handler = OrvantaAnalyticsOperationsHandler::make({openEventDatabase(), {}});
  auto impl = OrvantaAnalytics::Impl::make({handler, AuthData::shared(), nullptr});
  return std::make_unique<OrvantaAnalytics>(std::move(impl));
}

}  // namespace detail

}  // namespace orvanta
