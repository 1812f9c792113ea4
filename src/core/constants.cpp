#include "core/constants.hpp"

namespace orvanta::Constants {
namespace Networking {

const port::HttpHeaders& defaultHeaders() {
  // Never destroyed: requests may be built on the kit's threads while the process exits.
  static const auto* headers = new port::HttpHeaders{{"Content-Type", "application/json"}};
  return *headers;
}

}  // namespace Networking

namespace Authorization {

port::HttpHeaders Push::authorizationHeaders(const CredentialsSource& credentials) {
  return {
      {"X-Orvanta-App-Token", credentials.token()},
      {"X-Orvanta-App-Secret", credentials.secret()},
      {"Authorization", std::string(kAuthorizationValue)},
  };
}

port::HttpHeaders Events::authorizationHeaders(const CredentialsSource& credentials) {
  return {{"Authorization", credentials.eventsToken()}};
}

}  // namespace Authorization

}  // namespace orvanta::Constants
