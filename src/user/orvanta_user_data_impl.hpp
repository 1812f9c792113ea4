#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>

#include "models/orvanta_device.hpp"
#include "networking/auth_data.hpp"
#include "orvanta/orvanta_user_data.hpp"

namespace orvanta {

/// The user-data facade's state: the device record, loaded from device authorization on first
/// use and edited in memory. Every member may be called from any thread.
class OrvantaUserData::Impl {
 public:
  struct Dependencies {
    std::shared_ptr<AuthData> authData;
  };

  explicit Impl(Dependencies dependencies);

  /// Reads the record (loading it first).
  template <class Read>
  auto read(Read read) const {
    std::lock_guard lock(mutex_);
    return read(loaded());
  }
  /// Edits the record (loading it first).
  void edit(const std::function<void(OrvantaDevice&)>& change);

  /// Makes the record device authorization's current one and registers it.
  void saveUser();

 private:
  OrvantaDevice& loaded() const;

  Dependencies dependencies_;
  mutable std::mutex mutex_;
  mutable std::optional<OrvantaDevice> device_;
};

}  // namespace orvanta
