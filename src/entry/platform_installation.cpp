#include "entry/platform_installation.hpp"

#include <mutex>
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

}  // namespace

void installPlatform(std::shared_ptr<Platform> platform) {
  std::shared_ptr<detail::KitContext> context;
  if (platform) {
    // Ports left empty take the Linux default, one by one; a complete platform is used as it is.
    auto complete = std::make_shared<Platform>(*platform);
    context = contextFor(linux_platform::fillMissingPorts(*complete, {}) ? std::move(complete)
                                                                         : std::move(platform));
  } else {
    OrvantaLogger::bind(nullptr);
  }
  auto& state = processState();
  std::shared_ptr<detail::KitContext> previous;
  {
    std::lock_guard lock(state.mutex);
    previous = std::exchange(state.context, std::move(context));
  }
  // `previous` is released here, outside the lock: its threads may call back into the kit.
}

std::shared_ptr<Platform> currentPlatform() {
  return detail::processContext()->platform();
}

void deliverRemoteNotification(const ValueMap& userInfo) {
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
  detail::shielded([&] {
    if (auto* lifecycle =
            dynamic_cast<HostLifecycle*>(detail::processContext()->platform()->lifecycle.get())) {
      lifecycle->post(event);
    }
  });
}

void postWillSuspend() {
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
    state.context = contextFor(makeLinuxPlatform());
  }
  return state.context;
}

}  // namespace detail

}  // namespace orvanta
