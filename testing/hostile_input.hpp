#pragma once

// What a hostile local client sends the development tools: raw bytes over a loopback socket, and
// requests and JSON bodies bent out of shape, always the same ones for a given seed.

#include <chrono>
#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace orvanta::testing {

/// Sends `bytes` to 127.0.0.1:`port` on a connection of its own, closes the sending side and
/// reads until the server closes. The bytes received (possibly none); nothing when the connection
/// could not be made or the server kept it open past `limit`.
std::optional<std::string> exchangeRaw(std::uint16_t port, const std::string& bytes,
                                       std::chrono::milliseconds limit = std::chrono::seconds(30));

/// Opens a connection to 127.0.0.1:`port` and sends nothing; -1 when it could not. The caller
/// closes it (`::close`).
int connectIdle(std::uint16_t port);
/// True once the server has closed `fd` (a read sees the end), waiting up to `limit`.
bool closedByServer(int fd, std::chrono::milliseconds limit);

/// One HTTP/1.1 request as bytes, with "Host: 127.0.0.1:<port>" and a Content-Length when there is
/// a body.
std::string rawRequest(const std::string& method, const std::string& path, std::uint16_t port,
                       const std::vector<std::string>& headers, const std::string& body = {});

/// Bends requests and bodies out of shape, deterministically for its seed.
class HostileInput {
 public:
  explicit HostileInput(std::uint32_t seed) : random_(seed) {}

  /// `bytes` with a few bytes flipped, inserted, removed, repeated or cut off.
  std::string mutate(std::string bytes);
  /// JSON, or nearly: objects and arrays up to `maxDepth` deep, long and odd strings (invalid
  /// UTF-8, escapes, NUL), huge and odd numbers, now and then cut short or mutated.
  std::string json(int maxDepth = 80);
  /// A number in [0, `count`).
  std::size_t below(std::size_t count);

 private:
  void value(std::string& out, int depth, int maxDepth);

  std::mt19937 random_;
};

}  // namespace orvanta::testing
