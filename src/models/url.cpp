#include "models/url.hpp"

#include "core/text.hpp"
#include "core/uri.hpp"

namespace orvanta {

std::optional<Url> Url::parse(std::string_view text) {
  if (text.empty() || !parseUriReference(text)) {
    return std::nullopt;
  }
  return Url(std::string(text));
}

std::string Url::scheme() const {
  auto components = parseUriReference(text_);
  return components && components->scheme ? asciiLowercased(*components->scheme) : std::string();
}

}  // namespace orvanta
