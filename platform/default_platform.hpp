#pragma once

// The seam between the kit's entry layer and the platform layer the build selects (CMake's
// ORVANTA_PLATFORM): that layer's `default_platform.cpp` defines `makeDefaultPlatform`, and the
// entry knows the platform through this header alone.

#include <functional>
#include <memory>

#include "orvanta/orvanta_notification_service_extension.hpp"
#include "orvanta/platform.hpp"
#include "orvanta/value.hpp"

namespace orvanta::detail {

/// What the composition root hands the platform layer: the parts of the kit its adapters use.
struct KitServices {
  /// Makes the kit's own notification service extension for one remote push (the one a push
  /// gets when the host named none).
  std::function<std::shared_ptr<OrvantaNotificationServiceExtension>()> makeExtension;
};

/// A platform ready for the kit.
struct DefaultPlatform {
  /// Every port filled.
  std::shared_ptr<Platform> platform;
  /// Shows a remote push that the host received by a transport of its own the way the platform
  /// shows its own pushes. Any thread; returns at once.
  std::function<void(const ValueMap& userInfo)> deliverRemoteNotification;
};

/// `given` with each empty port filled by the platform layer's default (a complete platform is
/// used as it is); null `given`: the layer's default platform. Any thread.
DefaultPlatform makeDefaultPlatform(std::shared_ptr<Platform> given, KitServices kit);

}  // namespace orvanta::detail
