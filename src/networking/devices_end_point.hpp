#pragma once

#include <string>
#include <variant>

#include "models/orvanta_device.hpp"
#include "networking/end_point_type.hpp"

namespace orvanta {

/// The push service's device calls:
/// - `registerDevice(device)`: POST "devices", the device record as the body;
/// - `unregister(id)`: POST "devices/" + id, no body (routable; nothing sends it);
/// - `lastPush(id)`: GET "devices/" + id + "/last_push", no body.
/// All carry the push service's authorisation headers.
class DevicesEndPoint : public EndPointDefaults {
 public:
  struct Register {
    OrvantaDevice device;
  };
  struct Unregister {
    std::string id;
  };
  struct LastPush {
    std::string id;
  };
  using Case = std::variant<Register, Unregister, LastPush>;

  // `register` is a C++ keyword, hence `registerDevice`.
  static DevicesEndPoint registerDevice(OrvantaDevice device) {
    return DevicesEndPoint(Register{std::move(device)});
  }
  static DevicesEndPoint unregister(std::string id) {
    return DevicesEndPoint(Unregister{std::move(id)});
  }
  static DevicesEndPoint lastPush(std::string id) {
    return DevicesEndPoint(LastPush{std::move(id)});
  }

  const Case& value() const { return value_; }

  std::string path() const;
  HTTPMethod httpMethod() const;
  HTTPTask task() const;
  port::HttpHeaders headers(const CredentialsSource& credentials) const;

 private:
  explicit DevicesEndPoint(Case value) : value_(std::move(value)) {}
  Case value_;
};

}  // namespace orvanta
