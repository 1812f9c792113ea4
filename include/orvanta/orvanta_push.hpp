#pragma once

#include <cstdint>
#include <vector>

#include "orvanta/export.hpp"

namespace orvanta {

/// The push facade, reached as `Orvanta::push()`. One instance exists, owned by the kit.
class ORVANTA_API OrvantaPush {
 public:
  OrvantaPush();
  ~OrvantaPush();
  OrvantaPush(const OrvantaPush&) = delete;
  OrvantaPush& operator=(const OrvantaPush&) = delete;

  /// The platform delivered this installation's push token. The token, written as two lower-case
  /// hex digits per byte, is stored in the device record and registered with the push service
  /// (retried every 60 seconds until the service accepts it); the line "APNs token retrieved: " +
  /// token is logged at info level. Meant for the host's main thread; safe from any thread.
  void didRegisterForRemoteNotifications(const std::vector<std::uint8_t>& deviceToken);
};

}  // namespace orvanta
