#include "networking/json_parameter_encoder.hpp"

#include <exception>
#include <string>

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
  const std::string name(contentTypeHeader.first);
  if (!port::findHeader(request.headers, name)) {
    request.headers.emplace_back(name, std::string(contentTypeHeader.second));
  }
}

}  // namespace orvanta
