#include "testing/hostile_input.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>

namespace orvanta::testing {
namespace {

using Clock = std::chrono::steady_clock;

int connectTo(std::uint16_t port) {
  const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) {
    return -1;
  }
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
    ::close(fd);
    return -1;
  }
  return fd;
}

// Reads until the end or `deadline`; false at the deadline.
bool readToEnd(int fd, Clock::time_point deadline, std::string* out) {
  char buffer[4096];
  while (true) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    if (left.count() <= 0) {
      return false;
    }
    pollfd waiting{fd, POLLIN, 0};
    if (::poll(&waiting, 1, static_cast<int>(left.count())) <= 0) {
      continue;
    }
    const ssize_t got = ::recv(fd, buffer, sizeof(buffer), 0);
    if (got <= 0) {
      return true;  // the end, or the server reset the connection
    }
    if (out != nullptr) {
      out->append(buffer, static_cast<std::size_t>(got));
    }
  }
}

}  // namespace

std::optional<std::string> exchangeRaw(std::uint16_t port, const std::string& bytes,
                                       std::chrono::milliseconds limit) {
  const int fd = connectTo(port);
  if (fd < 0) {
    return std::nullopt;
  }
  std::size_t sent = 0;
  while (sent < bytes.size()) {
    const ssize_t wrote = ::send(fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (wrote <= 0) {
      break;  // the server stopped reading: what it answered is still to be read
    }
    sent += static_cast<std::size_t>(wrote);
  }
  ::shutdown(fd, SHUT_WR);
  std::string received;
  const bool ended = readToEnd(fd, Clock::now() + limit, &received);
  ::close(fd);
  if (!ended) {
    return std::nullopt;
  }
  return received;
}

int connectIdle(std::uint16_t port) {
  return connectTo(port);
}

bool closedByServer(int fd, std::chrono::milliseconds limit) {
  return readToEnd(fd, Clock::now() + limit, nullptr);
}

std::string rawRequest(const std::string& method, const std::string& path, std::uint16_t port,
                       const std::vector<std::string>& headers, const std::string& body) {
  std::string request =
      method + " " + path + " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) + "\r\n";
  for (const auto& header : headers) {
    request += header + "\r\n";
  }
  if (!body.empty()) {
    request += "Content-Length: " + std::to_string(body.size()) + "\r\n";
  }
  return request + "\r\n" + body;
}

std::size_t HostileInput::below(std::size_t count) {
  return count == 0 ? 0 : std::uniform_int_distribution<std::size_t>(0, count - 1)(random_);
}

std::string HostileInput::mutate(std::string bytes) {
  const std::size_t edits = 1 + below(6);
  for (std::size_t i = 0; i < edits; ++i) {
    const std::size_t at = below(bytes.size() + 1);
    switch (below(6)) {
      case 0:  // flip a byte
        if (at < bytes.size()) {
          bytes[at] = static_cast<char>(bytes[at] ^ static_cast<char>(1 + below(255)));
        }
        break;
      case 1:  // insert odd bytes
        bytes.insert(at, std::string(1 + below(8), "\0\r\n:{[\"\\\xff %"[below(12)]));
        break;
      case 2:  // remove a run
        bytes.erase(at, below(32));
        break;
      case 3:  // repeat a run many times
        bytes.insert(at, std::string(bytes.substr(at, 1 + below(8))).append(below(400), '\0'));
        break;
      case 4:  // cut off
        bytes.resize(at);
        break;
      default:  // a random byte
        bytes.insert(bytes.begin() + static_cast<std::ptrdiff_t>(at),
                     static_cast<char>(below(256)));
        break;
    }
  }
  return bytes;
}

std::string HostileInput::json(int maxDepth) {
  std::string out;
  value(out, 0, maxDepth);
  switch (below(8)) {
    case 0:
      return mutate(std::move(out));
    case 1:
      out.resize(below(out.size() + 1));
      return out;
    default:
      return out;
  }
}

void HostileInput::value(std::string& out, int depth, int maxDepth) {
  const std::size_t kind = depth >= maxDepth ? 2 + below(5) : below(7);
  switch (kind) {
    case 0:
    case 1: {  // an object, or an array; now and then a very deep one
      const bool object = kind == 0;
      if (below(40) == 0) {  // around the depth readers allow, and far beyond
        const std::size_t deep = 60 + below(below(4) == 0 ? 20000 : 20);
        out += std::string(deep, '[') + "1" + std::string(deep, ']');
        break;
      }
      out += object ? '{' : '[';
      const std::size_t members = below(6);
      for (std::size_t i = 0; i < members; ++i) {
        if (i > 0) {
          out += ',';
        }
        if (object) {
          static const char* const kKeys[] = {
              "user_id", "orvanta", "type",      "app_id", "registration_id", "custom", "id",
              "status",  "pushId",  "eventName", "data",   "action",          "x"};
          out += std::string("\"") + kKeys[below(std::size(kKeys))] + "\":";
        }
        value(out, depth + 1, maxDepth);
      }
      out += object ? '}' : ']';
      break;
    }
    case 2: {  // a string
      static const char* const kStrings[] = {
          "",         "IOS",      "a1b2c3",
          "\\u0000",  "\xff\xfe", "\\ud800",
          "\xc3\xa9", "\\\"",     "687474703a2f2f3132372e302e302e313a312f7570"};
      out += '"';
      out += kStrings[below(std::size(kStrings))];
      out.append(below(4) == 0 ? below(3000) : 0, 'x');
      out += '"';
      break;
    }
    case 3: {  // a number
      static const char* const kNumbers[] = {
          "0", "-1", "1e999", "-0.0", "18446744073709551616", "3.5", "1e-400", "9007199254740993"};
      out += kNumbers[below(std::size(kNumbers))];
      break;
    }
    case 4:
      out += below(2) == 0 ? "true" : "false";
      break;
    case 5:
      out += "null";
      break;
    default:
      out += std::to_string(below(100000));
      break;
  }
}

}  // namespace orvanta::testing
