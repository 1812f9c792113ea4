#include "networking/pushes_end_point.hpp"

#include "core/constants.hpp"
#include "models/json.hpp"

namespace orvanta {

std::string PushesEndPoint::path() const {
  return "pushes/" + status_.id + "/reports";
}

HTTPTask PushesEndPoint::task() const {
  return HTTPTask::requestWithParameters(json(status_));
}

port::HttpHeaders PushesEndPoint::headers(const CredentialsSource& credentials) const {
  return Constants::Authorization::Push::authorizationHeaders(credentials);
}

}  // namespace orvanta
