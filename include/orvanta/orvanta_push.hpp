#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "orvanta/export.hpp"

namespace orvanta {

/// The push facade, reached as `Orvanta::push()`. One instance exists, owned by the kit.
class ORVANTA_API OrvantaPush {
 public:
  /// The platform delivered this installation's push token. The token, written as two lower-case
  /// hex digits per byte, is stored in the device record and registered with the push service
  /// (retried every 60 seconds until the service accepts it); the line "APNs token retrieved: " +
  /// token is logged at info level. Meant for the host's main thread; safe from any thread.
  void didRegisterForRemoteNotifications(const std::vector<std::uint8_t>& deviceToken);

  class Impl;  ///< internal
  explicit OrvantaPush(std::shared_ptr<Impl> impl);
  ~OrvantaPush();
  OrvantaPush(const OrvantaPush&) = delete;
  OrvantaPush& operator=(const OrvantaPush&) = delete;

  const std::shared_ptr<Impl>& impl() const { return impl_; }

 private:
  std::shared_ptr<Impl> impl_;
};

}  // namespace orvanta
