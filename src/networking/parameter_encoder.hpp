#pragma once

#include <nlohmann/json.hpp>

#include "orvanta/port/http_client.hpp"

namespace orvanta {

/// Puts a call's parameters into a request.
class ParameterEncoder {
 public:
  virtual ~ParameterEncoder() = default;
  /// Modifies `request` in place. Throws an `Error` (`NetworkingError::encodingFailed`) when the
  /// parameters cannot be encoded; the request is then left as it was.
  virtual void encode(port::HttpRequest& request,
                      const nlohmann::ordered_json& parameters) const = 0;
};

}  // namespace orvanta
