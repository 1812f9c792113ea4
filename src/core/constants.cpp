#include "core/constants.hpp"

namespace orvanta::Constants {
namespace Networking {

port::HttpHeaders defaultHeaders() {
  return {{"Content-Type", "application/json"}};
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
