#include "entry/platform_installation.hpp"

#include <mutex>
#include <utility>

#include "core/guard.hpp"
#include "core/logger.hpp"
#include "linux/linux_platform_internal.hpp"
#include "orvanta/host_lifecycle.hpp"
#include "orvanta/linux_platform.hpp"
#include "push/remote_notification.hpp"

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
    detail::processContext()->platform()->notificationCenter->add(
        notificationRequestFromUserInfo(userInfo), nullptr);
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
