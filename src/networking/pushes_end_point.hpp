#pragma once

#include "models/orvanta_notification_status.hpp"
#include "networking/end_point_type.hpp"

namespace orvanta {

/// The push service's report call, its only one: `reports(status)` is a POST to "pushes/" + the
/// status's push id + "/reports" with the status record as the body and the push service's
/// authorisation headers.
class PushesEndPoint : public EndPointDefaults {
 public:
  static PushesEndPoint reports(OrvantaNotificationStatus status) {
    return PushesEndPoint(std::move(status));
  }

  const OrvantaNotificationStatus& status() const { return status_; }

  std::string path() const;
  HTTPMethod httpMethod() const { return HTTPMethod::post; }
  HTTPTask task() const;
  port::HttpHeaders headers(const CredentialsSource& credentials) const;

 private:
  explicit PushesEndPoint(OrvantaNotificationStatus status) : status_(std::move(status)) {}
  OrvantaNotificationStatus status_;
};

}  // namespace orvanta
