#pragma once

#include <memory>
#include <mutex>

#include "networking/auth_data.hpp"

namespace orvanta {

/// An `AuthData` whose device record lives in memory instead of the key store, for tests and
/// previews. Registration goes through its dependencies as usual (usually a
/// `MockDevicesService`).
class MockAuthData : public AuthData {
 public:
  explicit MockAuthData(OrvantaDevice mockDevice, Dependencies mockDependencies = {});

  static std::shared_ptr<MockAuthData> make(OrvantaDevice mockDevice,
                                            Dependencies mockDependencies = {}) {
    return std::make_shared<MockAuthData>(std::move(mockDevice), std::move(mockDependencies));
  }

  OrvantaDevice device() const override;
  void setDevice(const OrvantaDevice& device) override;

  const Dependencies& mockDependencies() const { return dependencies(); }

 private:
  mutable std::mutex mutex_;
  OrvantaDevice mockDevice_;
};

}  // namespace orvanta
