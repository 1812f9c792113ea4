#include "networking/networking_error.hpp"

#include <string>

namespace orvanta {

std::string_view rawValue(NetworkingError error) {
  switch (error) {
    case NetworkingError::invalidURL:
      return "Given URL is not valid.";
    case NetworkingError::encodingFailed:
      return "Parameter encoding failed";
  }
  return "Parameter encoding failed";
}

Error makeError(NetworkingError error) {
  return Error(Error::Domain::networking, static_cast<int>(error), std::string(rawValue(error)));
}

}  // namespace orvanta
