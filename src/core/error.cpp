#include "orvanta/error.hpp"

#include <utility>

#include "core/http_status.hpp"

namespace orvanta {

Error::Error(Domain domain, int code, std::string message)
    : domain_(domain), code_(code), message_(std::move(message)) {
  if (domain_ == Domain::orvanta) {
    if (code_ >= 100 || code_ < 0 ||
        code_ > static_cast<int>(OrvantaErrorCase::lastPushNotAvailable)) {
      case_ = OrvantaErrorCase::statusCode;
    } else {
      case_ = static_cast<OrvantaErrorCase>(code_);
    }
  }
}

Error::Error(OrvantaErrorCase kitCase, int code, std::string message)
    : domain_(Domain::orvanta), case_(kitCase), code_(code), message_(std::move(message)) {}

Error Error::custom(std::string message) {
  return Error(OrvantaErrorCase::custom, static_cast<int>(OrvantaErrorCase::custom),
               std::move(message));
}

Error Error::statusCode(int httpStatus) {
  return Error(OrvantaErrorCase::statusCode, httpStatus, std::string());
}

Error Error::emptyResponseExists() {
  return Error(OrvantaErrorCase::emptyResponseExists,
               static_cast<int>(OrvantaErrorCase::emptyResponseExists), std::string());
}

Error Error::mockServiceResponse() {
  return Error(OrvantaErrorCase::mockServiceResponse,
               static_cast<int>(OrvantaErrorCase::mockServiceResponse), std::string());
}

Error Error::lastPushNotAvailable() {
  return Error(OrvantaErrorCase::lastPushNotAvailable,
               static_cast<int>(OrvantaErrorCase::lastPushNotAvailable), std::string());
}

std::optional<Error::OrvantaErrorCase> Error::orvantaCase() const {
  if (domain_ != Domain::orvanta) {
    return std::nullopt;
  }
  return case_;
}

std::string Error::localizedDescription() const {
  switch (domain_) {
    case Domain::orvanta:
      switch (case_) {
        case OrvantaErrorCase::custom:
          return message_;
        case OrvantaErrorCase::statusCode:
          return detail::capitalizeWords(detail::httpStatusPhrase(code_));
        case OrvantaErrorCase::emptyResponseExists:
          return "Expected empty response but recieved something";
        case OrvantaErrorCase::mockServiceResponse:
          return "Mock service returned error";
        case OrvantaErrorCase::lastPushNotAvailable:
          return "There is no unreached notification available to display";
      }
      return message_;
    case Domain::database:
      return message_ + " (code: " + std::to_string(code_) + ")";
    case Domain::networking:
    case Domain::keychain:
    case Domain::transport:
    case Domain::decoding:
    case Domain::system:
      break;
  }
  return message_;
}

}  // namespace orvanta
