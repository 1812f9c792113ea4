#include "entry/platform_installation.hpp"

#include <atomic>
#include <mutex>
#include <string>
#include <utility>

#include "core/guard.hpp"
#include "core/logger.hpp"
#include "linux/linux_platform_internal.hpp"
#include "linux/remote_push_delivery.hpp"
#include "orvanta/host_lifecycle.hpp"
#include "orvanta/linux_platform.hpp"

namespace orvanta {
namespace {

struct ProcessState {
  std::mutex mutex;
  std::shared_ptr<detail::KitContext> context;
  /// What used the kit first; empty while the platform may still be installed.
  std::string usedBy;
};

ProcessState& processState() {
  // Never destroyed, so threads still running at exit can reach the platform.
  static auto* state = new ProcessState();
  return *state;
}

/// A context over `platform` (complete), with the logger bound to its sink.
std::shared_ptr<detail::KitContext> contextFor(std::shared_ptr<Platform> platform) {
  OrvantaLogger::bind(std::make_shared<const OrvantaLogger::Output>(
      OrvantaLogger::Output{platform->logSink, platform->clock, platform->preferences}));
  return std::make_shared<detail::KitContext>(std::move(platform),
                                              detail::sharedConfigurationCredentials());
}

/// The first public call into the kit, for the line of an `installPlatform` that came too late.
std::atomic<const char*> firstEntry{nullptr};

std::string firstUse() {
  const char* entry = firstEntry.load();
  return entry != nullptr ? entry : "a call into the kit";
}

bool install(std::shared_ptr<Platform> platform, bool evenInUse) {
  std::shared_ptr<detail::KitContext> context;
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
  if (platform) {
    // Ports left empty take the Linux default, one by one; a complete platform is used as it is.
    auto complete = std::make_shared<Platform>(*platform);
    context = contextFor(linux_platform::fillMissingPorts(*complete, {}) ? std::move(complete)
                                                                         : std::move(platform));
  } else {
    OrvantaLogger::bind(nullptr);
  }
  std::shared_ptr<detail::KitContext> previous;
  {
    std::lock_guard lock(state.mutex);
    if (!state.usedBy.empty() && !evenInUse) {
      return false;  // another thread began using the kit meanwhile; `context` is dropped
    }
    previous = std::exchange(state.context, std::move(context));
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
    const auto& platform = detail::processContext()->platform();
    // The application's own delivery when it has one (the Linux default's), with the host's
    // extension and budget; else the kit's extension over the platform's centre.
    std::shared_ptr<linux_platform::RemotePushDelivery> delivery;
    if (auto* receiver =
            dynamic_cast<linux_platform::RemotePushReceiver*>(platform->application.get())) {
      delivery = receiver->remotePushDelivery();
    }
    if (!delivery) {
      delivery = linux_platform::RemotePushDelivery::make(
          {.notificationCenter = platform->notificationCenter, .mainQueue = platform->mainQueue});
    }
    delivery->deliver(userInfo);
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
  return state.context ? state.context->platform() : nullptr;
}

std::shared_ptr<KitContext> processContext() {
  auto& state = processState();
  std::lock_guard lock(state.mutex);
  if (!state.context) {
    // Nothing was installed: the Linux default is bound for good.
    state.context = contextFor(makeLinuxPlatform());
    if (state.usedBy.empty()) {
      state.usedBy = firstUse() + ", over the Linux default platform";
    }
  }
  return state.context;
}

void noteEntry(const char* entry) noexcept {
  if (firstEntry.load(std::memory_order_relaxed) == nullptr) {
    const char* none = nullptr;
    firstEntry.compare_exchange_strong(none, entry);
  }
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
