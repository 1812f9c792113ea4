#include "orvanta/service_urls.hpp"

#include <arpa/inet.h>
#include <curl/curl.h>
#include <netinet/in.h>

#include <algorithm>
#include <cctype>
#include <memory>
#include <optional>

#include "core/constants.hpp"

namespace orvanta {
namespace {

using UrlHandle = std::unique_ptr<CURLU, decltype(&curl_url_cleanup)>;

std::optional<std::string> part(CURLU* handle, CURLUPart which) {
  char* value = nullptr;
  if (curl_url_get(handle, which, &value, 0) != CURLUE_OK || value == nullptr) {
    return std::nullopt;
  }
  std::string result(value);
  curl_free(value);
  return result;
}

std::string lowercased(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

bool isLoopbackHost(const std::string& host) {
  if (lowercased(host) == "localhost") {
    return true;
  }
  in_addr v4{};
  if (inet_pton(AF_INET, host.c_str(), &v4) == 1) {
    return (ntohl(v4.s_addr) >> 24) == 127;
  }
  if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
    in6_addr v6{};
    const std::string inner = host.substr(1, host.size() - 2);
    return inet_pton(AF_INET6, inner.c_str(), &v6) == 1 && IN6_IS_ADDR_LOOPBACK(&v6);
  }
  return false;
}

}  // namespace

bool isAcceptableServiceBaseURL(const std::string& url) {
  if (url.empty() || url.back() != '/' || url.find('\0') != std::string::npos) {
    return false;
  }
  UrlHandle handle(curl_url(), &curl_url_cleanup);
  if (!handle || curl_url_set(handle.get(), CURLUPART_URL, url.c_str(), 0) != CURLUE_OK) {
    return false;
  }
  if (part(handle.get(), CURLUPART_USER) || part(handle.get(), CURLUPART_QUERY) ||
      part(handle.get(), CURLUPART_FRAGMENT)) {
    return false;
  }
  auto scheme = part(handle.get(), CURLUPART_SCHEME);
  auto host = part(handle.get(), CURLUPART_HOST);
  if (!scheme || !host || host->empty()) {
    return false;
  }
  // The text must be a whole absolute URL, not something curl completed with a guessed scheme.
  const std::size_t authority = scheme->size() + 3;
  if (lowercased(url.substr(0, authority)) != *scheme + "://" || url.size() <= authority ||
      url[authority] == '/') {
    return false;
  }
  if (*scheme == "https") {
    return true;
  }
  return *scheme == "http" && isLoopbackHost(*host);
}

bool setServiceBaseURLs(const std::string& pushServiceURL, const std::string& apiServiceURL) {
  if (!isAcceptableServiceBaseURL(pushServiceURL) || !isAcceptableServiceBaseURL(apiServiceURL)) {
    return false;
  }
  Constants::Networking::overrideServiceURLs(pushServiceURL, apiServiceURL);
  return true;
}

void resetServiceBaseURLs() {
  Constants::Networking::overrideServiceURLs(std::nullopt, std::nullopt);
}

}  // namespace orvanta
