#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "networking/auth_data.hpp"
#include "orvanta/orvanta_push.hpp"

namespace orvanta {

/// The push facade's state and behaviour. Always owned by a `std::shared_ptr`.
class OrvantaPush::Impl : public std::enable_shared_from_this<OrvantaPush::Impl> {
 public:
  struct Dependencies {
    /// Device registration: where the token goes.
    std::shared_ptr<AuthData> authData;
  };

  explicit Impl(Dependencies dependencies);

  void didRegisterForRemoteNotifications(const std::vector<std::uint8_t>& deviceToken);

  const Dependencies& dependencies() const { return dependencies_; }

 private:
  Dependencies dependencies_;
};

namespace detail {

/// Each byte as two lower-case hex digits, in order.
std::string hexString(const std::vector<std::uint8_t>& bytes);

}  // namespace detail

}  // namespace orvanta
