#include <algorithm>
#include <chrono>
#include <utility>

#include "analytics/orvanta_analytics_impl.hpp"
#include "core/guard.hpp"
#include "core/health.hpp"
#include "core/logger.hpp"
#include "core/utf8.hpp"

namespace orvanta {

OrvantaAnalytics::OrvantaAnalytics(std::shared_ptr<Impl> impl) : impl_(std::move(impl)) {}

OrvantaAnalytics::~OrvantaAnalytics() = default;

void OrvantaAnalytics::trackEvent(const std::string& name, const ValueMap& parameters) {
  detail::shielded([&] {
    if (impl_) {
      impl_->trackEvent(name, parameters);
    }
  });
}

std::shared_ptr<OrvantaAnalytics::Impl> OrvantaAnalytics::Impl::make(Dependencies dependencies) {
  auto impl = std::make_shared<Impl>(std::move(dependencies));
  impl->observeGoingBackground();
  return impl;
}

OrvantaAnalytics::Impl::Impl(Dependencies dependencies) : dependencies_(std::move(dependencies)) {}

void OrvantaAnalytics::Impl::trackEvent(const std::string& name, const ValueMap& parameters) {
  if (!dependencies_.authData || !dependencies_.operationsHandler) {
    return;
  }
  health::count(health::Counter::eventsTracked);
  OrvantaDevice device = dependencies_.authData->device();
  if (!device.deviceToken) {
    health::count(health::Counter::eventsRefused);
    return;  // no push token yet: nothing is recorded
  }
  auto now = dependencies_.clock->now();
  double createdAt = std::chrono::duration<double>(now.time_since_epoch()).count();
  auto event = std::make_shared<const OrvantaEvent>(
      *device.deviceToken, dependencies_.configFile->appId(), name, createdAt, parameters);
  if (auto size = event->oversizedBody()) {
    // Never stored: the service would refuse it at every flush. The line names the event by the
    // start of its name, not the whole of it.
    health::count(health::Counter::eventsRefused);
    constexpr std::size_t kNameShown = 40;
    OrvantaLogger::error([&] {
      std::string shown = event->name.size() > kNameShown
                              ? repairedUtf8(event->name.substr(0, kNameShown)) + "..."
                              : event->name;
      return "Event \"" + shown + "\" not recorded: its body is " + std::to_string(*size) +
             " bytes, over the " + std::to_string(kMaxEventBodyBytes) + " the service takes";
    });
    return;
  }
  dependencies_.operationsHandler->addEventToDatabase(event);
  dependencies_.operationsHandler->postEventsFromDatabase();
}

std::size_t OrvantaAnalytics::Impl::flush(std::chrono::steady_clock::time_point deadline) {
  return dependencies_.operationsHandler ? dependencies_.operationsHandler->flush(deadline) : 0;
}

void OrvantaAnalytics::Impl::describeQueue(OrvantaHealth& health) const {
  if (!dependencies_.operationsHandler) {
    return;
  }
  const auto queue = dependencies_.operationsHandler->queueState();
  health.rowsWaiting = queue.waiting;
  if (queue.oldestCreatedAt && dependencies_.clock) {
    const double now =
        std::chrono::duration<double>(dependencies_.clock->now().time_since_epoch()).count();
    const double age = std::max(0.0, now - *queue.oldestCreatedAt);
    health.oldestWaiting = std::chrono::milliseconds(static_cast<std::int64_t>(age * 1000.0));
  }
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
          self->makeDurable();
        }
      });
  suspensionObserver_ = dependencies_.lifecycle->observe(port::LifecycleEvent::willSuspend, [weak] {
    if (auto self = weak.lock()) {
      self->makeDurable();
    }
  });
}

void OrvantaAnalytics::Impl::makeDurable() {
  if (dependencies_.operationsHandler) {
    dependencies_.operationsHandler->checkpoint();
  }
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

}  // namespace orvanta
