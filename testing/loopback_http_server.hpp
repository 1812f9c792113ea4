#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "orvanta/port/http_client.hpp"

namespace orvanta::testing {

/// A request as the loopback server received it.
struct LoopbackRequest {
  std::string method;
  std::string path;             ///< without the query
  port::HttpHeaders arguments;  ///< query arguments, decoded
  port::HttpHeaders headers;    ///< in the order received
  std::string body;

  std::optional<std::string> header(const std::string& name) const {
    return port::findHeader(headers, name);
  }
};

/// What the handler answers.
struct LoopbackResponse {
  int status = 200;
  port::HttpHeaders headers;
  std::string body;
  /// Held back this long before answering (cut short when the server stops).
  std::chrono::milliseconds delay{0};
};

/// A certificate and its private key, both PEM text.
struct LoopbackTlsIdentity {
  std::string certificatePem;
  std::string privateKeyPem;
};

/// A programmable HTTP/1.1 server on 127.0.0.1 with an ephemeral port, plain or TLS.
///
/// Every connection gets its own server thread, so the handler may be called concurrently and a
/// delayed answer holds up only its own connection. All threads are owned by the server and
/// joined by its destructor. Without a handler every request is answered "200" with no body.
class LoopbackHttpServer {
 public:
  using Handler = std::function<LoopbackResponse(const LoopbackRequest&)>;

  explicit LoopbackHttpServer(Handler handler = {},
                              std::optional<LoopbackTlsIdentity> tls = std::nullopt);
  ~LoopbackHttpServer();
  LoopbackHttpServer(const LoopbackHttpServer&) = delete;
  LoopbackHttpServer& operator=(const LoopbackHttpServer&) = delete;

  std::uint16_t port() const;
  /// "http://127.0.0.1:PORT" (or https), without a trailing slash.
  std::string baseUrl() const;
  /// baseUrl() + path; `path` starts with "/".
  std::string url(const std::string& path) const;

  /// Requests received so far, in arrival order.
  std::vector<LoopbackRequest> requests() const;
  std::size_t requestCount() const;
  /// TCP connections accepted so far.
  std::size_t connectionCount() const;
  /// Waits until `count` requests have arrived; false if that took longer than `limit`.
  bool waitForRequests(std::size_t count,
                       std::chrono::milliseconds limit = std::chrono::seconds(10)) const;

  struct Impl;  ///< opaque; reached by the server's C callbacks

 private:
  std::unique_ptr<Impl> impl_;
};

/// The self-signed certificate (for 127.0.0.1 and localhost) and key kept in tests/data/tls.
std::string loopbackCertificateFile();
LoopbackTlsIdentity loopbackTlsIdentity();

}  // namespace orvanta::testing
