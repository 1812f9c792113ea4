// The Linux layer's side of the seam the entry builds on (default_platform.hpp).

#include "default_platform.hpp"

#include <utility>

#include "linux/linux_platform_internal.hpp"
#include "linux/remote_push_delivery.hpp"
#include "orvanta/linux_platform.hpp"

namespace orvanta::detail {

DefaultPlatform makeDefaultPlatform(std::shared_ptr<Platform> given, KitServices kit) {
  std::shared_ptr<Platform> platform;
  if (!given) {
    platform = makeLinuxPlatform();
  } else {
    auto complete = std::make_shared<Platform>(*given);
    platform =
        linux_platform::fillMissingPorts(*complete, {}) ? std::move(complete) : std::move(given);
  }
  // The application's own delivery when it has one (the Linux default's, with the host's
  // extension and budget); else one over the platform's centre.
  std::shared_ptr<linux_platform::RemotePushDelivery> delivery;
  if (auto* receiver =
          dynamic_cast<linux_platform::RemotePushReceiver*>(platform->application.get())) {
    delivery = receiver->remotePushDelivery();
  }
  if (!delivery) {
    delivery = linux_platform::RemotePushDelivery::make(
        {.notificationCenter = platform->notificationCenter, .mainQueue = platform->mainQueue});
  }
  delivery->setKitExtension(std::move(kit.makeExtension));
  return {std::move(platform),
          [delivery](const ValueMap& userInfo) { delivery->deliver(userInfo); }};
}

}  // namespace orvanta::detail
