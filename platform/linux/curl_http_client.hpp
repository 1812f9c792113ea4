#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>

#include "orvanta/port/http_client.hpp"

namespace orvanta::linux_platform {

struct CurlHttpClientOptions {
  /// Largest body accepted before the transfer fails.
  std::size_t maxBodyBytes = 16 * 1024 * 1024;
  /// Extra certificate authority file to trust (tests); the system store is always used.
  std::string caFile;
};

/// The Linux URL session over libcurl's multi interface, on one network thread of its own.
std::shared_ptr<port::HttpClient> makeCurlHttpClient(const CurlHttpClientOptions& options = {});

}  // namespace orvanta::linux_platform
