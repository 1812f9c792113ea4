#include "entry/platform_installation.hpp"

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <utility>

#include "core/guard.hpp"
#include "core/logger.hpp"
#include "default_platform.hpp"
#include "orvanta/host_lifecycle.hpp"

namespace orvanta {
namespace {

/// A platform made ready by the platform layer, and what the kit built over it.
struct BoundPlatform {
  std::shared_ptr<detail::KitContext> context;
  /// The platform's way for the pushes a host receives itself.
  std::function<void(const ValueMap&)> deliverRemoteNotification;
};

struct ProcessState {
  std::mutex mutex;
  BoundPlatform bound;
  /// What used the kit first; empty while the platform may still be installed.
  std::string usedBy;
};

ProcessState& processState() {
  // Never destroyed, so threads still running at exit can reach the platform.
  static auto* state = new ProcessState();
  return *state;
}

/// `given` (null: the default platform) with its empty ports filled by the platform layer and the
/// kit's own extension for its remote pushes; the logger bound to its sink; its context.
BoundPlatform bind(std::shared_ptr<Platform> given) {
  auto ready = detail::makeDefaultPlatform(
      std::move(given),
      {.makeExtension = [] { return std::make_shared<OrvantaNotificationServiceExtension>(); }});
  const auto& platform = *ready.platform;
  OrvantaLogger::bind(std::make_shared<const OrvantaLogger::Output>(
      OrvantaLogger::Output{platform.logSink, platform.clock, platform.preferences}));
  return {std::make_shared<detail::KitContext>(std::move(ready.platform),
                                               detail::sharedConfigurationCredentials()),
          std::move(ready.deliverRemoteNotification)};
}

/// The first public call into the kit, for the line of an `installPlatform` that came too late.
std::atomic<const char*> firstEntry{nullptr};

std::string firstUse() {
  const char* entry = firstEntry.load();
  return entry != nullptr ? entry : "a call into the kit";
}

/// Nothing was installed: the default platform is bound for good. `state.mutex` is held.
void bindDefaultWhenNone(ProcessState& state) {
  if (state.bound.context) {
    return;
  }
  state.bound = bind(nullptr);
  if (state.usedBy.empty()) {
    state.usedBy = firstUse() + ", over the Linux default platform";
  }
}

bool install(std::shared_ptr<Platform> platform, bool evenInUse) {
  auto& state = processState();
  {
    std::lock_guard lock(state.mutex);
    if (!state.usedBy.empty() && !evenInUse) {
      OrvantaLogger::error("installPlatform came after the kit's first use (" + state.usedBy +
                           "), whose platform stays in force: install the platform before any "
                           "other call into the kit");
      return false;
    }
  }
  BoundPlatform bound;
  if (platform) {
    bound = bind(std::move(platform));
  } else {
    OrvantaLogger::bind(nullptr);
  }
  BoundPlatform previous;
  {
    std::lock_guard lock(state.mutex);
    if (!state.usedBy.empty() && !evenInUse) {
      return false;  // another thread began using the kit meanwhile; `bound` is dropped
    }
    previous = std::exchange(state.bound, std::move(bound));
    if (evenInUse) {
      state.usedBy.clear();
      firstEntry.store(nullptr);
    }
  }
  // `previous` is released here, outside the lock: its threads may call back into the kit.
  return true;
}

}  // namespace

bool installPlatform(std::shared_ptr<Platform> platform) {
  return detail::shielded([&] { return install(std::move(platform), false); }, false);
}

std::shared_ptr<Platform> currentPlatform() {
  detail::noteEntry("orvanta::currentPlatform()");
  return detail::processContext()->platform();
}

void deliverRemoteNotification(const ValueMap& userInfo) {
  detail::noteEntry("orvanta::deliverRemoteNotification()");
  detail::shielded([&] {
    auto& state = processState();
    std::function<void(const ValueMap&)> deliver;
    {
      std::lock_guard lock(state.mutex);
      bindDefaultWhenNone(state);
      deliver = state.bound.deliverRemoteNotification;
    }
    deliver(userInfo);
  });
}

void postLifecycleEvent(port::LifecycleEvent event) {
  detail::noteEntry("orvanta::postLifecycleEvent()");
  detail::shielded([&] {
    if (auto* lifecycle =
            dynamic_cast<HostLifecycle*>(detail::processContext()->platform()->lifecycle.get())) {
      lifecycle->post(event);
    }
  });
}

void postWillSuspend() {
  detail::noteEntry("orvanta::postWillSuspend()");
  detail::shielded([] {
    if (auto* lifecycle =
            dynamic_cast<HostLifecycle*>(detail::processContext()->platform()->lifecycle.get())) {
      lifecycle->willSuspend();
    }
  });
}

namespace detail {

std::shared_ptr<Platform> installedPlatformOrNull() {
  auto& state = processState();
  std::lock_guard lock(state.mutex);
  return state.bound.context ? state.bound.context->platform() : nullptr;
}

std::shared_ptr<KitContext> processContext() {
  auto& state = processState();
  std::lock_guard lock(state.mutex);
  bindDefaultWhenNone(state);
  return state.bound.context;
}

void noteEntry(const char* entry) noexcept {
  if (firstEntry.load(std::memory_order_relaxed) == nullptr) {
    const char* none = nullptr;
    firstEntry.compare_exchange_strong(none, entry);
  }
}

std::string firstUseDescription() {
  auto& state = processState();
  std::lock_guard lock(state.mutex);
  return state.usedBy;
}

void markInUse() {
  auto& state = processState();
  std::lock_guard lock(state.mutex);
  if (state.usedBy.empty()) {
    state.usedBy = firstUse();
  }
}

void reinstallPlatform(std::shared_ptr<Platform> platform) {
  install(std::move(platform), true);
}

}  // namespace detail

}  // namespace orvanta
