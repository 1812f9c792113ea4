#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "networking/parameter_encoder.hpp"

namespace orvanta {

/// Sends the parameters as a pretty-printed JSON body (two-space indent, keys in the order given).
class JSONParameterEncoder : public ParameterEncoder {
 public:
  static constexpr std::pair<std::string_view, std::string_view> contentTypeHeader = {
      "Content-Type", "application/json"};

  /// Sets the body, and "Content-Type: application/json" unless the request has a "Content-Type"
  /// already. Text that is not UTF-8 cannot be written as JSON: `encodingFailed`.
  void encode(port::HttpRequest& request, const nlohmann::ordered_json& parameters) const override;
  /// Sets `body`, already written as `encode` writes it, and the content type as `encode` does.
  void encodeWritten(port::HttpRequest& request, std::string body) const;
};

}  // namespace orvanta
