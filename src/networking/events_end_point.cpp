#include "networking/events_end_point.hpp"

#include "core/constants.hpp"
#include "models/json.hpp"

namespace orvanta {

HTTPTask EventsEndPoint::task() const {
  auto parameters = json(event_);
  if (parameters) {
    // The row identifier is the queue's own business; the service never sees it.
    parameters->erase("uuidId");
  }
  return HTTPTask::requestWithParameters(std::move(parameters));
}

port::HttpHeaders EventsEndPoint::headers(const CredentialsSource& credentials) const {
  return Constants::Authorization::Events::authorizationHeaders(credentials);
}

}  // namespace orvanta
