#include <cstddef>
#include <optional>
#include <string>

#include "orvanta/port/http_client.hpp"

namespace orvanta::port {
namespace {

char asciiLower(char c) {
  return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

bool equalsIgnoringAsciiCase(const std::string& a, const std::string& b) {
  if (a.size() != b.size()) {
    return false;
  }
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (asciiLower(a[i]) != asciiLower(b[i])) {
      return false;
    }
  }
  return true;
}

}  // namespace

std::optional<std::string> findHeader(const HttpHeaders& headers, const std::string& name) {
  for (const auto& [fieldName, value] : headers) {
    if (equalsIgnoringAsciiCase(fieldName, name)) {
      return value;
    }
  }
  return std::nullopt;
}

}  // namespace orvanta::port
