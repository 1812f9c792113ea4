#include "models/url.hpp"

#include "core/text.hpp"
#include "core/uri.hpp"

namespace orvanta {

std::optional<Url> Url::parse(std::string_view text) {
  auto components = parseUriReference(text);
  if (!components || !components->scheme || !components->authority) {
    return std::nullopt;
  }
  if (components->host.empty() && !equalsIgnoringAsciiCase(*components->scheme, "file")) {
    return std::nullopt;
  }
  return Url(std::string(text));
}

std::string Url::scheme() const {
  auto components = parseUriReference(text_);
  return components && components->scheme ? asciiLowercased(*components->scheme) : std::string();
}

}  // namespace orvanta
