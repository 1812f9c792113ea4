// Placeholder until the libcurl client lands.
#include "linux/curl_http_client.hpp"

namespace orvanta::linux_platform {

std::shared_ptr<port::HttpClient> makeCurlHttpClient(const CurlHttpClientOptions&) {
  return nullptr;
}

}  // namespace orvanta::linux_platform
