#pragma once

#include <optional>
#include <string>

#include "models/orvanta_event.hpp"
#include "networking/end_point_type.hpp"

namespace orvanta {

/// The API service's event call: `event(record)` is a POST to the API base URL + "event" with the
/// event record as the body, less its local "uuidId", and the events token as "Authorization".
/// The body is written once, when the call is made (`OrvantaEvent::writeBody`).
class EventsEndPoint {
 public:
  static EventsEndPoint event(const OrvantaEvent& event) { return EventsEndPoint(event); }

  static constexpr Service service = Service::api;
  std::string path() const { return "event"; }
  HTTPMethod httpMethod() const { return HTTPMethod::post; }
  /// The written body; none when the record could not be written (the router then fails the call
  /// with `encodingFailed`, and nothing is sent).
  HTTPTask task() const;
  port::HttpHeaders headers(const CredentialsSource& credentials) const;

 private:
  explicit EventsEndPoint(const OrvantaEvent& event);
  std::optional<std::string> body_;
};

}  // namespace orvanta
