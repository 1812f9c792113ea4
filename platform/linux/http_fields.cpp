#include "linux/http_fields.hpp"

#include <algorithm>
#include <string>

namespace orvanta::linux_platform {
namespace {

bool isTokenCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
         std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos;
}

std::string_view trimmed(std::string_view text) {
  const auto first = text.find_first_not_of(" \t\r\n");
  if (first == std::string_view::npos) {
    return {};
  }
  const auto last = text.find_last_not_of(" \t\r\n");
  return text.substr(first, last - first + 1);
}

}  // namespace

bool isHttpToken(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), isTokenCharacter);
}

bool isHttpFieldValue(std::string_view text) {
  return text.find_first_of(std::string_view("\r\n\0", 3)) == std::string_view::npos;
}

void addResponseHeaderLine(port::HttpHeaders& headers, std::string_view line) {
  while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) {
    line.remove_suffix(1);
  }
  if (line.starts_with("HTTP/")) {
    headers.clear();
    headers.reserve(8);  // most answers carry a handful of fields: one allocation, not four
  } else if (line.empty()) {
    // The end of a header block.
  } else if ((line.front() == ' ' || line.front() == '\t') && !headers.empty()) {
    headers.back().second.append(" ").append(trimmed(line));
  } else if (const auto colon = line.find(':'); colon != std::string_view::npos) {
    headers.emplace_back(std::string(trimmed(line.substr(0, colon))),
                         std::string(trimmed(line.substr(colon + 1))));
  }
}

}  // namespace orvanta::linux_platform
