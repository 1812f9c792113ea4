#pragma once

#include <string>

#include "models/orvanta_event.hpp"
#include "networking/end_point_type.hpp"

namespace orvanta {

/// The API service's event call: `event(record)` is a POST to the API base URL + "event" with the
/// event record as the body, less its local "uuidId", and the events token as "Authorization".
class EventsEndPoint {
 public:
  static EventsEndPoint event(OrvantaEvent event) { return EventsEndPoint(std::move(event)); }

  const OrvantaEvent& record() const { return event_; }

  static std::string baseURL() { return Constants::Networking::eventsSDKURL(); }
  std::string path() const { return "event"; }
  HTTPMethod httpMethod() const { return HTTPMethod::post; }
  HTTPTask task() const;
  port::HttpHeaders headers(const CredentialsSource& credentials) const;

 private:
  explicit EventsEndPoint(OrvantaEvent event) : event_(std::move(event)) {}
  OrvantaEvent event_;
};

}  // namespace orvanta
