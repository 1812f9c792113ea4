#include "testing/loopback_http_server.hpp"

#include <arpa/inet.h>
#include <microhttpd.h>
#include <netinet/in.h>

#include <condition_variable>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <stdexcept>
#include <utility>

#include "testing/temporary_directory.hpp"

namespace orvanta::testing {

struct LoopbackHttpServer::Impl {
  MHD_Daemon* daemon = nullptr;
  bool tls = false;
  std::uint16_t port = 0;
  std::string certificatePem;  // MHD keeps pointers to these
  std::string privateKeyPem;

  Handler handler;  // set before the daemon starts, never changed
  mutable std::mutex mutex;
  mutable std::condition_variable changed;
  std::vector<LoopbackRequest> requests;
  std::size_t connections = 0;
  bool stopping = false;
};

namespace {

using Impl = LoopbackHttpServer::Impl;

MHD_Result collectValue(void* cls, MHD_ValueKind, const char* key, const char* value) {
  static_cast<port::HttpHeaders*>(cls)->emplace_back(key != nullptr ? key : "",
                                                     value != nullptr ? value : "");
  return MHD_YES;
}

MHD_Result onRequest(void* cls, MHD_Connection* connection, const char* url, const char* method,
                     const char*, const char* uploadData, std::size_t* uploadSize, void** state) {
  auto* impl = static_cast<Impl*>(cls);
  if (*state == nullptr) {
    auto* request = new LoopbackRequest;
    request->method = method;
    request->path = url;
    MHD_get_connection_values(connection, MHD_HEADER_KIND, collectValue, &request->headers);
    MHD_get_connection_values(connection, MHD_GET_ARGUMENT_KIND, collectValue, &request->arguments);
    *state = request;
    return MHD_YES;
  }
  auto* request = static_cast<LoopbackRequest*>(*state);
  if (*uploadSize != 0) {
    request->body.append(uploadData, *uploadSize);
    *uploadSize = 0;
    return MHD_YES;
  }

  {
    std::lock_guard lock(impl->mutex);
    impl->requests.push_back(*request);
  }
  impl->changed.notify_all();
  LoopbackResponse answer = impl->handler ? impl->handler(*request) : LoopbackResponse{};
  if (answer.delay.count() > 0) {
    std::unique_lock lock(impl->mutex);
    impl->changed.wait_for(lock, answer.delay, [impl] { return impl->stopping; });
  }

  MHD_Response* response = MHD_create_response_from_buffer(answer.body.size(), answer.body.data(),
                                                           MHD_RESPMEM_MUST_COPY);
  if (response == nullptr) {
    return MHD_NO;
  }
  for (const auto& [name, value] : answer.headers) {
    MHD_add_response_header(response, name.c_str(), value.c_str());
  }
  const MHD_Result queued =
      MHD_queue_response(connection, static_cast<unsigned int>(answer.status), response);
  MHD_destroy_response(response);
  return queued;
}

void onRequestCompleted(void*, MHD_Connection*, void** state, MHD_RequestTerminationCode) {
  delete static_cast<LoopbackRequest*>(*state);
  *state = nullptr;
}

void onConnection(void* cls, MHD_Connection*, void**, MHD_ConnectionNotificationCode code) {
  if (code != MHD_CONNECTION_NOTIFY_STARTED) {
    return;
  }
  auto* impl = static_cast<Impl*>(cls);
  {
    std::lock_guard lock(impl->mutex);
    ++impl->connections;
  }
  impl->changed.notify_all();
}

// From the source tree's root, not from __FILE__: a compiler cache may make that relative.
std::filesystem::path tlsDataFolder() {
  return std::filesystem::path(ORVANTA_SOURCE_DIR) / "tests" / "data" / "tls";
}

}  // namespace

LoopbackHttpServer::LoopbackHttpServer(Handler handler, std::optional<LoopbackTlsIdentity> tls)
    : impl_(std::make_unique<Impl>()) {
  impl_->handler = std::move(handler);
  unsigned int flags =
      MHD_USE_INTERNAL_POLLING_THREAD | MHD_USE_THREAD_PER_CONNECTION | MHD_USE_POLL;
  if (tls) {
    if (MHD_is_feature_supported(MHD_FEATURE_TLS) != MHD_YES) {
      throw std::runtime_error("libmicrohttpd was built without TLS");
    }
    impl_->tls = true;
    impl_->certificatePem = std::move(tls->certificatePem);
    impl_->privateKeyPem = std::move(tls->privateKeyPem);
    flags |= MHD_USE_TLS;
  }

  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = 0;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);

  MHD_OptionItem tlsOptions[] = {
      {MHD_OPTION_HTTPS_MEM_CERT, 0, const_cast<char*>(impl_->certificatePem.c_str())},
      {MHD_OPTION_HTTPS_MEM_KEY, 0, const_cast<char*>(impl_->privateKeyPem.c_str())},
      {MHD_OPTION_END, 0, nullptr},
  };
  MHD_OptionItem noOptions[] = {{MHD_OPTION_END, 0, nullptr}};
  impl_->daemon =
      MHD_start_daemon(flags, 0, nullptr, nullptr, onRequest, impl_.get(), MHD_OPTION_SOCK_ADDR,
                       &address, MHD_OPTION_NOTIFY_COMPLETED, onRequestCompleted, nullptr,
                       MHD_OPTION_NOTIFY_CONNECTION, onConnection, impl_.get(), MHD_OPTION_ARRAY,
                       impl_->tls ? tlsOptions : noOptions, MHD_OPTION_END);
  if (impl_->daemon == nullptr) {
    throw std::runtime_error("cannot start the loopback HTTP server");
  }
  const MHD_DaemonInfo* info = MHD_get_daemon_info(impl_->daemon, MHD_DAEMON_INFO_BIND_PORT);
  impl_->port = info != nullptr ? info->port : 0;
}

LoopbackHttpServer::~LoopbackHttpServer() {
  {
    std::lock_guard lock(impl_->mutex);
    impl_->stopping = true;
  }
  impl_->changed.notify_all();
  MHD_stop_daemon(impl_->daemon);
}

std::uint16_t LoopbackHttpServer::port() const {
  return impl_->port;
}

std::string LoopbackHttpServer::baseUrl() const {
  return std::string(impl_->tls ? "https" : "http") + "://127.0.0.1:" + std::to_string(port());
}

std::string LoopbackHttpServer::url(const std::string& path) const {
  return baseUrl() + path;
}

std::vector<LoopbackRequest> LoopbackHttpServer::requests() const {
  std::lock_guard lock(impl_->mutex);
  return impl_->requests;
}

std::size_t LoopbackHttpServer::requestCount() const {
  std::lock_guard lock(impl_->mutex);
  return impl_->requests.size();
}

std::size_t LoopbackHttpServer::connectionCount() const {
  std::lock_guard lock(impl_->mutex);
  return impl_->connections;
}

bool LoopbackHttpServer::waitForRequests(std::size_t count, std::chrono::milliseconds limit) const {
  std::unique_lock lock(impl_->mutex);
  return impl_->changed.wait_for(lock, limit, [&] { return impl_->requests.size() >= count; });
}

std::string loopbackCertificateFile() {
  return (tlsDataFolder() / "loopback-cert.pem").string();
}

LoopbackTlsIdentity loopbackTlsIdentity() {
  return {readFile(loopbackCertificateFile()),
          readFile((tlsDataFolder() / "loopback-key.pem").string())};
}

}  // namespace orvanta::testing
