#include "orvanta/platform.hpp"

#include <mutex>
#include <utility>

#include "core/platform_internal.hpp"
#include "orvanta/linux_platform.hpp"

namespace orvanta {
namespace {

struct InstalledPlatform {
  std::mutex mutex;
  std::shared_ptr<Platform> platform;
};

InstalledPlatform& installed() {
  // Never destroyed, so threads still running at exit can reach the platform.
  static auto* holder = new InstalledPlatform();
  return *holder;
}

bool isComplete(const Platform& platform) {
  return platform.secureStore && platform.preferences && platform.bundle &&
         platform.fileLocations && platform.clock && platform.mainQueue && platform.httpClient &&
         platform.lifecycle && platform.deviceInfo && platform.logSink;
}

// Ports the host left empty come from the Linux default.
std::shared_ptr<Platform> completed(std::shared_ptr<Platform> platform) {
  if (isComplete(*platform)) {
    return platform;
  }
  auto defaults = makeLinuxPlatform();
  auto result = std::make_shared<Platform>(*platform);
  auto fill = [](auto& field, const auto& fallback) {
    if (!field) {
      field = fallback;
    }
  };
  fill(result->secureStore, defaults->secureStore);
  fill(result->preferences, defaults->preferences);
  fill(result->bundle, defaults->bundle);
  fill(result->fileLocations, defaults->fileLocations);
  fill(result->clock, defaults->clock);
  fill(result->mainQueue, defaults->mainQueue);
  fill(result->httpClient, defaults->httpClient);
  fill(result->lifecycle, defaults->lifecycle);
  fill(result->deviceInfo, defaults->deviceInfo);
  fill(result->logSink, defaults->logSink);
  return result;
}

}  // namespace

void installPlatform(std::shared_ptr<Platform> platform) {
  if (platform) {
    platform = completed(std::move(platform));
  }
  auto& holder = installed();
  std::shared_ptr<Platform> previous;
  {
    std::lock_guard lock(holder.mutex);
    previous = std::exchange(holder.platform, std::move(platform));
  }
  // `previous` is released here, outside the lock: its threads may call back into the kit.
}

std::shared_ptr<Platform> currentPlatform() {
  auto& holder = installed();
  {
    std::lock_guard lock(holder.mutex);
    if (holder.platform) {
      return holder.platform;
    }
  }
  // Built outside the lock; if two threads race, the first to store its platform wins.
  auto fresh = makeLinuxPlatform();
  std::lock_guard lock(holder.mutex);
  if (!holder.platform) {
    holder.platform = std::move(fresh);
  }
  return holder.platform;
}

namespace detail {

std::shared_ptr<Platform> installedPlatformOrNull() {
  auto& holder = installed();
  std::lock_guard lock(holder.mutex);
  return holder.platform;
}

}  // namespace detail

}  // namespace orvanta
