#include "networking/json_parameter_encoder.hpp"

#include <algorithm>
#include <exception>
#include <string>

#include "core/text.hpp"
#include "networking/networking_error.hpp"

namespace orvanta {

void JSONParameterEncoder::encode(port::HttpRequest& request,
                                  const nlohmann::ordered_json& parameters) const {
  std::string body;
  try {
    body = parameters.dump(2);
  } catch (const std::exception&) {
    throw makeError(NetworkingError::encodingFailed);
  }
  encodeWritten(request, std::move(body));
}

void JSONParameterEncoder::encodeWritten(port::HttpRequest& request, std::string body) const {
  request.body = std::move(body);
  const bool named =
      std::any_of(request.headers.begin(), request.headers.end(), [](const auto& field) {
        return equalsIgnoringAsciiCase(field.first, contentTypeHeader.first);
      });
  if (!named) {
    request.headers.emplace_back(std::string(contentTypeHeader.first),
                                 std::string(contentTypeHeader.second));
  }
}

}  // namespace orvanta
