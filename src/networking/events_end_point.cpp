#include "networking/events_end_point.hpp"

#include "core/constants.hpp"

namespace orvanta {

EventsEndPoint::EventsEndPoint(const OrvantaEvent& event) {
  std::string body;
  body.reserve(256 +
               48 * (event.additionalStringFields.size() + event.additionalNumericFields.size() +
                     event.additionalBoolFields.size() + event.additionalDateFields.size()));
  try {
    // The row identifier is the queue's own business; the service never sees it.
    event.writeBody(body);
    body_ = std::move(body);
  } catch (const std::exception&) {  // NOLINT(bugprone-empty-catch): no body, see `task`
  }
}

HTTPTask EventsEndPoint::task() const {
  if (!body_) {
    return HTTPTask::requestWithParameters(std::nullopt);
  }
  return HTTPTask::requestWithEncodedBody(*body_);
}

port::HttpHeaders EventsEndPoint::headers(const CredentialsSource& credentials) const {
  return Constants::Authorization::Events::authorizationHeaders(credentials);
}

}  // namespace orvanta
