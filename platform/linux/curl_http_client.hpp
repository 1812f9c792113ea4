#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>

#include "orvanta/port/http_client.hpp"

namespace orvanta::linux_platform {

struct CurlHttpClientOptions {
  /// Largest response body accepted, for data and download tasks alike. A longer body fails the
  /// transfer with a transport error that names the limit.
  std::size_t maxBodyBytes = 16 * 1024 * 1024;
  /// Extra certificate authority file (PEM) to trust, used by tests. The system store is always
  /// used as well; peer and host verification cannot be switched off.
  std::string caFile;
  /// Longest time spent establishing a connection (TCP and TLS). The request's own time-out, which
  /// covers the whole transfer, still applies when it is shorter.
  std::chrono::milliseconds connectTimeout{10'000};
  /// Folder for the files of download tasks; empty means the system temporary directory.
  std::string temporaryDirectory;
};

/// The Linux URL session over libcurl's multi interface.
///
/// The client owns one network thread, "orvanta-net", that runs every transfer and every
/// completion. The first request loads libcurl (`CurlLibrary`) and starts the thread: a client
/// that is never used costs neither. When libcurl can't be loaded, every transfer fails with a
/// transport error that says why. `dataTask` and `downloadTask` may be called from any thread,
/// including from a completion; they never run the completion themselves. Connections are kept
/// and reused across requests (HTTP/2 is negotiated over TLS when the server offers it); nothing
/// else is cached. Redirects are not followed: a 3xx answer is handed to the caller as it is.
///
/// Destroying the client cancels the transfers still running: each completion runs once, on the
/// network thread, with the "cancelled" transport error, and the thread is joined. The client may
/// be released from inside one of its own completions.
std::shared_ptr<port::HttpClient> makeCurlHttpClient(const CurlHttpClientOptions& options = {});

}  // namespace orvanta::linux_platform
