#include <optional>
#include <string>

#include "core/text.hpp"
#include "orvanta/port/http_client.hpp"

namespace orvanta::port {

std::optional<std::string> findHeader(const HttpHeaders& headers, const std::string& name) {
  for (const auto& [fieldName, value] : headers) {
    if (equalsIgnoringAsciiCase(fieldName, name)) {
      return value;
    }
  }
  return std::nullopt;
}

}  // namespace orvanta::port
