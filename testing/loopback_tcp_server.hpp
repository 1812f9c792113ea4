#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace orvanta::testing {

/// A raw TCP server on 127.0.0.1 with an ephemeral port, for answers an HTTP library will not
/// produce. Each connection reads the request head (and a body announced by "Content-Length"),
/// then behaves as configured. Threads are owned by the server and joined by its destructor.
class LoopbackTcpServer {
 public:
  enum class Behaviour {
    garbage,        ///< answers bytes that are not HTTP, then closes
    truncatedBody,  ///< announces "Content-Length: 1000", sends 10 bytes, then closes
    endlessBody,    ///< a 200 with a chunked body that never ends
    neverAnswer,    ///< accepts and reads, but never answers (until the peer or the server closes)
  };

  explicit LoopbackTcpServer(Behaviour behaviour);
  ~LoopbackTcpServer();
  LoopbackTcpServer(const LoopbackTcpServer&) = delete;
  LoopbackTcpServer& operator=(const LoopbackTcpServer&) = delete;

  std::uint16_t port() const;
  /// "http://127.0.0.1:PORT" + path; `path` starts with "/".
  std::string url(const std::string& path) const;

  /// Waits until `count` request heads have been read; false if that took longer than `limit`.
  bool waitForRequests(std::size_t count,
                       std::chrono::milliseconds limit = std::chrono::seconds(10)) const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace orvanta::testing
