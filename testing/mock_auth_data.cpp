#include "testing/mock_auth_data.hpp"

#include <utility>

namespace orvanta {

MockAuthData::MockAuthData(OrvantaDevice mockDevice, Dependencies mockDependencies)
    : AuthData(std::move(mockDependencies)), mockDevice_(std::move(mockDevice)) {}

OrvantaDevice MockAuthData::device() const {
  std::lock_guard lock(mutex_);
  return mockDevice_;
}

void MockAuthData::setDevice(const OrvantaDevice& device) {
  std::lock_guard lock(mutex_);
  mockDevice_ = device;
}

}  // namespace orvanta
