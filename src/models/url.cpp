#include "models/url.hpp"

#include <curl/curl.h>

#include <memory>

namespace orvanta {

std::optional<Url> Url::parse(std::string_view text) {
  if (text.empty() || text.find('\0') != std::string_view::npos) {
    return std::nullopt;
  }
  std::unique_ptr<CURLU, decltype(&curl_url_cleanup)> handle(curl_url(), &curl_url_cleanup);
  if (!handle) {
    return std::nullopt;
  }
  std::string owned(text);
  if (curl_url_set(handle.get(), CURLUPART_URL, owned.c_str(), CURLU_NON_SUPPORT_SCHEME) !=
      CURLUE_OK) {
    return std::nullopt;
  }
  return Url(std::move(owned));
}

std::string Url::scheme() const {
  std::string result;
  for (char c : text_) {
    if (c == ':') {
      break;
    }
    result.push_back(c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c);
  }
  return result;
}

}  // namespace orvanta
