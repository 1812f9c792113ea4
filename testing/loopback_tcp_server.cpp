#include "testing/loopback_tcp_server.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <stdexcept>
#include <string_view>
#include <thread>
#include <vector>

namespace orvanta::testing {

struct LoopbackTcpServer::Impl {
  Behaviour behaviour;
  int listener = -1;
  int stopSignal = -1;  // an eventfd that becomes readable, and stays so, when the server stops
  std::uint16_t port = 0;
  std::thread acceptor;

  mutable std::mutex mutex;
  mutable std::condition_variable changed;
  std::vector<std::thread> connections;
  std::size_t requests = 0;

  explicit Impl(Behaviour b) : behaviour(b) {}

  /// Waits until `fd` is ready for `events`; false once the server stops.
  bool waitFor(int fd, short events) const {
    pollfd fds[2] = {{fd, events, 0}, {stopSignal, POLLIN, 0}};
    for (;;) {
      const int ready = ::poll(fds, 2, -1);
      if (ready < 0 && errno == EINTR) {
        continue;
      }
      if (ready < 0 || (fds[1].revents & POLLIN) != 0) {
        return false;
      }
      if (fds[0].revents != 0) {
        return true;
      }
    }
  }

  /// Reads one request head and the body its "Content-Length" announces. False when the peer
  /// closed first or the server stops.
  bool readRequest(int fd) const {
    std::string received;
    std::size_t needed = std::string::npos;
    char buffer[4096];
    while (needed == std::string::npos || received.size() < needed) {
      if (!waitFor(fd, POLLIN)) {
        return false;
      }
      const ssize_t n = ::recv(fd, buffer, sizeof buffer, 0);
      if (n <= 0) {
        return false;
      }
      received.append(buffer, static_cast<std::size_t>(n));
      if (needed == std::string::npos) {
        const auto headEnd = received.find("\r\n\r\n");
        if (headEnd != std::string::npos) {
          needed = headEnd + 4 + announcedLength(received.substr(0, headEnd));
        }
      }
    }
    return true;
  }

  static std::size_t announcedLength(std::string head) {
    for (char& c : head) {
      if (c >= 'A' && c <= 'Z') {
        c = static_cast<char>(c - 'A' + 'a');
      }
    }
    const auto at = head.find("\r\ncontent-length:");
    return at == std::string::npos ? 0 : std::strtoul(head.c_str() + at + 17, nullptr, 10);
  }

  bool sendAll(int fd, std::string_view data) const {
    while (!data.empty()) {
      if (!waitFor(fd, POLLOUT)) {
        return false;
      }
      const ssize_t n = ::send(fd, data.data(), data.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
      if (n < 0) {
        if (errno == EAGAIN || errno == EINTR) {
          continue;
        }
        return false;
      }
      data.remove_prefix(static_cast<std::size_t>(n));
    }
    return true;
  }

  void serve(int fd) {
    if (readRequest(fd)) {
      {
        std::lock_guard lock(mutex);
        ++requests;
      }
      changed.notify_all();
      answer(fd);
    }
    ::close(fd);
  }

  void answer(int fd) const {
    switch (behaviour) {
      case Behaviour::garbage:
        sendAll(fd, std::string_view("\x16\x03\x01 this is no HTTP answer \xff\xfe\r\n\r\n"));
        break;
      case Behaviour::truncatedBody:
        sendAll(fd,
                "HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\nContent-Length: 1000\r\n\r\n"
                "0123456789");
        break;
      case Behaviour::endlessBody: {
        if (!sendAll(fd, "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n")) {
          break;
        }
        const std::string chunk = "4000\r\n" + std::string(0x4000, 'x') + "\r\n";
        while (sendAll(fd, chunk)) {
        }
        break;
      }
      case Behaviour::neverAnswer: {
        char buffer[4096];
        while (waitFor(fd, POLLIN) && ::recv(fd, buffer, sizeof buffer, 0) > 0) {
        }
        break;
      }
    }
  }

  void acceptLoop() {
    pthread_setname_np(pthread_self(), "loopback-tcp");
    while (waitFor(listener, POLLIN)) {
      const int fd = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
      if (fd < 0) {
        continue;
      }
      std::lock_guard lock(mutex);
      connections.emplace_back([this, fd] { serve(fd); });
    }
  }
};

LoopbackTcpServer::LoopbackTcpServer(Behaviour behaviour)
    : impl_(std::make_unique<Impl>(behaviour)) {
  impl_->stopSignal = ::eventfd(0, EFD_CLOEXEC);
  impl_->listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (impl_->stopSignal < 0 || impl_->listener < 0) {
    throw std::runtime_error("cannot create the loopback TCP server");
  }
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = 0;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  if (::bind(impl_->listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      ::listen(impl_->listener, 64) != 0 ||
      ::getsockname(impl_->listener, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    ::close(impl_->listener);
    ::close(impl_->stopSignal);
    throw std::runtime_error("cannot listen on 127.0.0.1");
  }
  impl_->port = ntohs(address.sin_port);
  impl_->acceptor = std::thread([impl = impl_.get()] { impl->acceptLoop(); });
}

LoopbackTcpServer::~LoopbackTcpServer() {
  const std::uint64_t one = 1;
  [[maybe_unused]] const ssize_t written = ::write(impl_->stopSignal, &one, sizeof one);
  impl_->acceptor.join();
  std::vector<std::thread> connections;
  {
    std::lock_guard lock(impl_->mutex);
    connections.swap(impl_->connections);
  }
  for (auto& connection : connections) {
    connection.join();
  }
  ::close(impl_->listener);
  ::close(impl_->stopSignal);
}

std::uint16_t LoopbackTcpServer::port() const {
  return impl_->port;
}

std::string LoopbackTcpServer::url(const std::string& path) const {
  return "http://127.0.0.1:" + std::to_string(impl_->port) + path;
}

bool LoopbackTcpServer::waitForRequests(std::size_t count, std::chrono::milliseconds limit) const {
  std::unique_lock lock(impl_->mutex);
  return impl_->changed.wait_for(lock, limit, [&] { return impl_->requests >= count; });
}

}  // namespace orvanta::testing
