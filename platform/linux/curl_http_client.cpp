#include "linux/curl_http_client.hpp"

#include <curl/curl.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <new>
#include <optional>
#include <string_view>
#include <system_error>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

#include "core/owned_thread.hpp"
#include "core/text.hpp"
#include "linux/curl_library.hpp"
#include "linux/http_fields.hpp"

namespace orvanta::linux_platform {
namespace {

constexpr std::size_t kIdleHandlePoolSize = 32;
// Upper bound of one wait when nothing is due; transfers and hand-overs wake the thread earlier.
constexpr int kIdleWaitMs = 60'000;

Error transportError(int code, std::string message) {
  return Error(Error::Domain::transport, code, std::move(message));
}

Error cancelledError() {
  return transportError(CURLE_ABORTED_BY_CALLBACK, "cancelled");
}

/// The header fields of a request as libcurl sends them, shared by the transfers that send the
/// same fields (a drain sends thousands of requests with one set).
struct HeaderList {
  HeaderList(const CurlLibrary& library, curl_slist* list) : curl(library), fields(list) {}
  ~HeaderList() { curl.slist_free_all(fields); }
  HeaderList(const HeaderList&) = delete;
  HeaderList& operator=(const HeaderList&) = delete;

  const CurlLibrary& curl;
  curl_slist* const fields;
};

/// Whether libcurl is given a body to send for `request`.
bool sendsBody(const port::HttpRequest& request) {
  const std::string& method = request.method;
  if ((method == "GET" && request.body.empty()) || method == "HEAD") {
    return false;
  }
  return !request.body.empty() || method == "POST" || method == "PUT" || method == "PATCH";
}

/// One request from hand-over to completion. The fields below `cancelRequested` belong to the
/// network thread.
struct Transfer {
  port::HttpRequest request;
  bool download = false;
  port::DataTaskCompletion onData;
  port::DownloadTaskCompletion onDownload;
  std::atomic<bool> cancelRequested{false};

  const CurlLibrary* curl = nullptr;
  CURL* easy = nullptr;
  std::shared_ptr<const HeaderList> headers;
  std::size_t maxBodyBytes = 0;
  std::size_t received = 0;
  bool bodyTooLarge = false;
  int writeErrno = 0;
  std::string body;
  int fd = -1;
  std::string path;
  port::HttpHeaders responseHeaders;
  char errorBuffer[CURL_ERROR_SIZE] = {};
};

std::size_t onHeaderLine(char* data, std::size_t size, std::size_t count, void* user) {
  auto* transfer = static_cast<Transfer*>(user);
  const std::size_t length = size * count;
  addResponseHeaderLine(transfer->responseHeaders, std::string_view(data, length));
  return length;
}

std::size_t onBodyBytes(char* data, std::size_t size, std::size_t count, void* user) {
  auto* transfer = static_cast<Transfer*>(user);
  const std::size_t length = size * count;
  if (length > transfer->maxBodyBytes - transfer->received) {
    transfer->bodyTooLarge = true;
    return 0;
  }
  if (transfer->download) {
    std::size_t written = 0;
    while (written < length) {
      const ssize_t n = ::write(transfer->fd, data + written, length - written);
      if (n < 0) {
        if (errno == EINTR) {
          continue;
        }
        transfer->writeErrno = errno;
        return 0;
      }
      written += static_cast<std::size_t>(n);
    }
  } else {
    if (transfer->received == 0) {
      curl_off_t announced = -1;
      if (transfer->curl->easy_getinfo(transfer->easy, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T,
                                       &announced) == CURLE_OK &&
          announced > 0) {
        transfer->body.reserve(
            std::min(static_cast<std::size_t>(announced), transfer->maxBodyBytes));
      }
    }
    transfer->body.append(data, length);
  }
  transfer->received += length;
  return length;
}

/// The multi handle, the hand-over queues and the loop of the network thread. Shared by the
/// client, the thread and (weakly) the tasks, so that it outlives whichever finishes last.
///
/// Without libcurl (`curl` null: it could not be loaded), the thread fails every transfer with
/// `unavailable`, the reason.
class Engine {
 public:
  Engine(const CurlHttpClientOptions& options, const CurlLibrary* curl, std::string unavailable)
      : options_(options), curl_(curl), unavailable_(std::move(unavailable)) {
    if (curl_ == nullptr) {
      return;
    }
    multi_ = curl_->multi_init();
    if (multi_ == nullptr) {
      throw std::bad_alloc();
    }
    curl_->multi_setopt(multi_, CURLMOPT_PIPELINING, CURLPIPE_MULTIPLEX);
    readSystemCertificateStore();
    // Proxies from the environment apply, except to loopback addresses. Setting the list
    // replaces the environment's own, so that one is carried over ("*" means no proxy at all).
    noProxy_ = "127.0.0.1,localhost,::1";
    for (const char* variable : {"no_proxy", "NO_PROXY"}) {
      if (const char* value = std::getenv(variable); value != nullptr && *value != '\0') {
        noProxy_ = std::string_view(value) == "*" ? "*" : std::string(value) + "," + noProxy_;
        break;
      }
    }
  }

  ~Engine() {
    if (curl_ != nullptr) {
      curl_->multi_cleanup(multi_);
    }
  }

  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;

  bool onNetworkThread() const { return networkThread_.load() == std::this_thread::get_id(); }

  void submit(std::shared_ptr<Transfer> transfer) {
    bool wake = false;
    {
      std::lock_guard lock(mutex_);
      wake = incoming_.empty() && cancels_.empty();
      incoming_.push_back(std::move(transfer));
    }
    // Work handed over from the network thread itself is picked up before its next wait.
    if (wake && !onNetworkThread()) {
      wakeUp();
    }
  }

  void requestCancel(std::shared_ptr<Transfer> transfer) {
    if (transfer->cancelRequested.exchange(true)) {
      return;
    }
    bool wake = false;
    {
      std::lock_guard lock(mutex_);
      wake = incoming_.empty() && cancels_.empty();
      cancels_.push_back(std::move(transfer));
    }
    if (wake && !onNetworkThread()) {
      wakeUp();
    }
  }

  void stop() {
    {
      std::lock_guard lock(mutex_);
      stopping_ = true;
    }
    wakeUp();
  }

  void run() {
    networkThread_.store(std::this_thread::get_id());
    if (curl_ == nullptr) {
      failEverything();
      return;
    }
    std::vector<std::shared_ptr<Transfer>> arrived;
    std::vector<std::shared_ptr<Transfer>> cancelled;
    for (;;) {
      bool stopping = false;
      {
        std::lock_guard lock(mutex_);
        arrived.swap(incoming_);
        cancelled.swap(cancels_);
        stopping = stopping_;
      }
      if (stopping) {
        break;
      }
      for (auto& transfer : arrived) {
        start(std::move(transfer));
      }
      arrived.clear();
      for (auto& transfer : cancelled) {
        cancel(*transfer);
      }
      cancelled.clear();

      int running = 0;
      curl_->multi_perform(multi_, &running);
      int queued = 0;
      while (CURLMsg* message = curl_->multi_info_read(multi_, &queued)) {
        if (message->msg == CURLMSG_DONE) {
          finishTransfer(message->easy_handle, message->data.result);
        }
      }
      {
        std::lock_guard lock(mutex_);
        if (!incoming_.empty() || !cancels_.empty() || stopping_) {
          continue;
        }
      }
      curl_->multi_poll(multi_, nullptr, 0, kIdleWaitMs, nullptr);
    }
    shutDown(std::move(arrived));
  }

 private:
  void wakeUp() {
    if (curl_ != nullptr) {
      curl_->multi_wakeup(multi_);
    } else {
      std::lock_guard lock(mutex_);  // so that the wait below can't miss it
      arrivedOrStopping_.notify_all();
    }
  }

  /// The loop without libcurl: every transfer ends at once with the reason.
  void failEverything() {
    std::vector<std::shared_ptr<Transfer>> arrived;
    std::unique_lock lock(mutex_);
    while (true) {
      arrivedOrStopping_.wait(lock, [&] { return stopping_ || !incoming_.empty(); });
      arrived.swap(incoming_);
      cancels_.clear();
      const bool stopping = stopping_;
      lock.unlock();
      for (auto& transfer : arrived) {
        complete(*transfer,
                 stopping ? cancelledError() : transportError(CURLE_FAILED_INIT, unavailable_),
                 std::nullopt);
      }
      arrived.clear();
      lock.lock();
      if (stopping && incoming_.empty()) {
        return;
      }
    }
  }

  void readSystemCertificateStore() {
    CURL* probe = curl_->easy_init();
    if (probe == nullptr) {
      return;
    }
    char* path = nullptr;
    if (curl_->easy_getinfo(probe, CURLINFO_CAPATH, &path) == CURLE_OK && path != nullptr) {
      systemCaPath_ = path;
    }
    curl_->easy_cleanup(probe);
  }

  void shutDown(std::vector<std::shared_ptr<Transfer>> arrived) {
    // Completions run during shutdown may still hand over work; it is cancelled as well.
    for (;;) {
      for (auto& transfer : arrived) {
        complete(*transfer, cancelledError(), std::nullopt);
      }
      arrived.clear();
      while (!active_.empty()) {
        auto transfer = active_.begin()->second;
        cancel(*transfer);
      }
      std::lock_guard lock(mutex_);
      cancels_.clear();
      if (incoming_.empty()) {
        break;
      }
      arrived.swap(incoming_);
    }
    for (const IdleHandle& idle : idleHandles_) {
      curl_->easy_cleanup(idle.easy);
    }
    idleHandles_.clear();
  }

  void start(std::shared_ptr<Transfer> transfer) {
    Transfer& t = *transfer;
    if (t.cancelRequested.load()) {
      complete(t, cancelledError(), std::nullopt);
      return;
    }
    if (!isHttpToken(t.request.method)) {
      complete(t,
               transportError(CURLE_BAD_FUNCTION_ARGUMENT,
                              "Invalid request method \"" + t.request.method + "\""),
               std::nullopt);
      return;
    }
    if (auto problem = headersFor(t)) {
      complete(t, std::move(problem), std::nullopt);
      return;
    }
    if (t.download) {
      if (auto problem = createDownloadFile(t)) {
        complete(t, std::move(problem), std::nullopt);
        return;
      }
    }
    const bool sameShape = takeHandle(t);
    CURL* easy = t.easy;
    if (easy == nullptr) {
      complete(t, transportError(CURLE_OUT_OF_MEMORY, "Could not create a transfer"), std::nullopt);
      return;
    }
    if (!configure(t, sameShape)) {
      releaseHandle(t);
      complete(t, transportError(CURLE_OUT_OF_MEMORY, "Could not set up the transfer"),
               std::nullopt);
      return;
    }
    if (curl_->multi_add_handle(multi_, easy) != CURLM_OK) {
      releaseHandle(t);
      complete(t, transportError(CURLE_FAILED_INIT, "Could not start the transfer"), std::nullopt);
      return;
    }
    active_.emplace(easy, std::move(transfer));
  }

  /// Gives `t` the header list of its fields: the last one made when the fields are the same,
  /// else a new one, once its fields are found valid. The fields go out as given: libcurl's own
  /// "Accept", "Expect: 100-continue" and form content type are suppressed unless the request
  /// sets them. An empty value is still sent.
  std::optional<Error> headersFor(Transfer& t) {
    const port::HttpRequest& request = t.request;
    const bool body = sendsBody(request);
    headerKey_.assign(body ? "1" : "0");
    for (const auto& [name, value] : request.headers) {
      headerKey_.append(name).push_back('\0');
      headerKey_.append(value).push_back('\0');
    }
    if (lastHeaders_ && headerKey_ == lastHeaderKey_) {
      t.headers = lastHeaders_;
      return std::nullopt;
    }
    bool hasAccept = false;
    bool hasExpect = false;
    bool hasContentType = false;
    std::vector<std::string> lines;
    for (const auto& [name, value] : request.headers) {
      if (!isHttpToken(name) || !isHttpFieldValue(value)) {
        return transportError(CURLE_BAD_FUNCTION_ARGUMENT,
                              "Invalid request header field \"" + name + "\"");
      }
      hasAccept = hasAccept || equalsIgnoringAsciiCase(name, "Accept");
      hasExpect = hasExpect || equalsIgnoringAsciiCase(name, "Expect");
      hasContentType = hasContentType || equalsIgnoringAsciiCase(name, "Content-Type");
      lines.push_back(value.empty() ? name + ";" : name + ": " + value);
    }
    if (!hasAccept) {
      lines.emplace_back("Accept:");
    }
    if (!hasExpect) {
      lines.emplace_back("Expect:");
    }
    if (body && !hasContentType) {
      lines.emplace_back("Content-Type:");
    }
    curl_slist* fields = nullptr;
    for (const auto& line : lines) {
      curl_slist* extended = curl_->slist_append(fields, line.c_str());
      if (extended == nullptr) {
        curl_->slist_free_all(fields);
        return transportError(CURLE_OUT_OF_MEMORY, "Could not set up the transfer");
      }
      fields = extended;
    }
    lastHeaders_ = std::make_shared<const HeaderList>(*curl_, fields);
    lastHeaderKey_ = headerKey_;
    t.headers = lastHeaders_;
    return std::nullopt;
  }

  std::optional<Error> createDownloadFile(Transfer& t) {
    std::string folder = options_.temporaryDirectory;
    if (folder.empty()) {
      std::error_code ignored;
      folder = std::filesystem::temp_directory_path(ignored).string();
      if (folder.empty()) {
        folder = "/tmp";
      }
    }
    std::string pattern = folder + "/orvanta-download-XXXXXX";
    const int fd = ::mkostemp(pattern.data(), O_CLOEXEC);
    if (fd < 0) {
      const int error = errno;
      return Error(Error::Domain::system, error,
                   "Could not create a download file in " + folder + ": " + std::strerror(error));
    }
    t.fd = fd;
    t.path = std::move(pattern);
    return std::nullopt;
  }

  /// Gives `t` a handle: an idle one whose last request had the same method and body use when
  /// there is one (true: it keeps every option that does not change from one such request to
  /// the next), else an idle one reset to libcurl's defaults, else a new one.
  bool takeHandle(Transfer& t) {
    const bool body = sendsBody(t.request);
    for (auto idle = idleHandles_.rbegin(); idle != idleHandles_.rend(); ++idle) {
      if (idle->body == body && idle->method == t.request.method) {
        t.easy = idle->easy;
        idleHandles_.erase(std::next(idle).base());
        return true;
      }
    }
    if (!idleHandles_.empty()) {
      t.easy = idleHandles_.back().easy;
      idleHandles_.pop_back();
      curl_->easy_reset(t.easy);
      return false;
    }
    t.easy = curl_->easy_init();
    return false;
  }

  /// Takes the handle out of the multi and keeps it for a later request. Its connection stays in
  /// the multi handle's cache. It keeps its options for a request of the same shape, except those
  /// that point into `t`, which are cleared; a request of another shape resets it first.
  void releaseHandle(Transfer& t) {
    if (t.easy == nullptr) {
      return;
    }
    curl_->multi_remove_handle(multi_, t.easy);
    if (idleHandles_.size() < kIdleHandlePoolSize) {
      curl_->easy_setopt(t.easy, CURLOPT_ERRORBUFFER, static_cast<char*>(nullptr));
      curl_->easy_setopt(t.easy, CURLOPT_HTTPHEADER, static_cast<curl_slist*>(nullptr));
      idleHandles_.push_back({t.easy, t.request.method, sendsBody(t.request)});
    } else {
      curl_->easy_cleanup(t.easy);
    }
    t.headers.reset();
    t.easy = nullptr;
  }

  /// Sets `t`'s options on its handle: all of them on a fresh or reset handle, only those of
  /// the request itself on one whose last request had the same shape (`sameShape`).
  bool configure(Transfer& t, bool sameShape) {
    CURL* easy = t.easy;
    const port::HttpRequest& request = t.request;
    t.curl = curl_;
    t.maxBodyBytes = options_.maxBodyBytes;
    t.errorBuffer[0] = '\0';

    bool ok = true;
    auto set = [&](CURLoption option, auto value) {
      ok = ok && curl_->easy_setopt(easy, option, value) == CURLE_OK;
    };
    const std::string& method = request.method;
    if (!sameShape) {
      set(CURLOPT_NOSIGNAL, 1L);
      set(CURLOPT_PROTOCOLS_STR, "http,https");
      set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_2TLS));
      set(CURLOPT_FOLLOWLOCATION, 0L);
      set(CURLOPT_SSL_VERIFYPEER, 1L);
      set(CURLOPT_SSL_VERIFYHOST, 2L);
      if (!options_.caFile.empty()) {
        // The file replaces the default bundle; the system folder keeps the system store in use.
        set(CURLOPT_CAINFO, options_.caFile.c_str());
        if (!systemCaPath_.empty()) {
          set(CURLOPT_CAPATH, systemCaPath_.c_str());
        }
      }
      set(CURLOPT_NOPROXY, noProxy_.c_str());
      set(CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(options_.maxBodyBytes));
      set(CURLOPT_HEADERFUNCTION, onHeaderLine);
      set(CURLOPT_WRITEFUNCTION, onBodyBytes);
      if (method == "GET" && request.body.empty()) {
        set(CURLOPT_HTTPGET, 1L);
      } else if (method == "HEAD") {
        set(CURLOPT_NOBODY, 1L);
      } else if (method != "POST") {
        set(CURLOPT_CUSTOMREQUEST, method.c_str());
      }
    }
    set(CURLOPT_URL, request.url.c_str());
    set(CURLOPT_ERRORBUFFER, t.errorBuffer);
    set(CURLOPT_HEADERDATA, static_cast<void*>(&t));
    set(CURLOPT_WRITEDATA, static_cast<void*>(&t));
    // Set on every request, so that none keeps the limits of the one before.
    long totalMs = 0;
    long connectMs = static_cast<long>(options_.connectTimeout.count());
    if (request.timeout.count() > 0) {
      totalMs = static_cast<long>(request.timeout.count());
      connectMs = connectMs > 0 ? std::min(connectMs, totalMs) : totalMs;
    }
    set(CURLOPT_TIMEOUT_MS, totalMs);
    set(CURLOPT_CONNECTTIMEOUT_MS, std::max(connectMs, 0L));
    if (sendsBody(request)) {
      set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body.size()));
      set(CURLOPT_POSTFIELDS, request.body.data());
    }
    set(CURLOPT_HTTPHEADER, t.headers->fields);
    return ok;
  }

  void finishTransfer(CURL* easy, CURLcode code) {
    auto found = active_.find(easy);
    if (found == active_.end()) {
      return;
    }
    std::shared_ptr<Transfer> transfer = std::move(found->second);
    active_.erase(found);
    Transfer& t = *transfer;

    std::optional<Error> error;
    std::optional<port::HttpResponse> response;
    if (code == CURLE_OK) {
      response.emplace();
      long status = 0;
      curl_->easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
      response->statusCode = static_cast<int>(status);
      char* url = nullptr;
      if (curl_->easy_getinfo(easy, CURLINFO_EFFECTIVE_URL, &url) == CURLE_OK && url != nullptr) {
        response->url = url;
      } else {
        response->url = t.request.url;
      }
      response->headers = std::move(t.responseHeaders);
    } else if (t.bodyTooLarge || code == CURLE_FILESIZE_EXCEEDED) {
      error = transportError(CURLE_FILESIZE_EXCEEDED,
                             "The response body is larger than the limit of " +
                                 std::to_string(options_.maxBodyBytes) + " bytes");
    } else if (t.writeErrno != 0) {
      error =
          Error(Error::Domain::system, t.writeErrno,
                "Could not write the download to " + t.path + ": " + std::strerror(t.writeErrno));
    } else {
      error = transportError(
          code, t.errorBuffer[0] != '\0' ? std::string(t.errorBuffer) : curl_->easy_strerror(code));
    }
    releaseHandle(t);
    complete(t, std::move(error), std::move(response));
  }

  void cancel(Transfer& t) {
    if (t.easy == nullptr) {
      return;  // finished already, or never started
    }
    auto found = active_.find(t.easy);
    std::shared_ptr<Transfer> keepAlive;
    if (found != active_.end()) {
      keepAlive = std::move(found->second);
      active_.erase(found);
    }
    releaseHandle(t);
    complete(t, cancelledError(), std::nullopt);
  }

  /// Runs the completion once, without any lock held, and releases what it captured.
  void complete(Transfer& t, std::optional<Error> error,
                std::optional<port::HttpResponse> response) {
    try {
      if (t.download) {
        port::DownloadTaskResult result;
        if (t.fd >= 0 && ::close(t.fd) != 0 && !error) {
          const int closeError = errno;
          error =
              Error(Error::Domain::system, closeError,
                    "Could not write the download to " + t.path + ": " + std::strerror(closeError));
        }
        t.fd = -1;
        if (error) {
          if (!t.path.empty()) {
            ::unlink(t.path.c_str());
          }
          result.error = std::move(error);
        } else {
          result.location = std::move(t.path);
          result.response = std::move(response);
        }
        auto completion = std::move(t.onDownload);
        t.onDownload = nullptr;
        if (completion) {
          completion(std::move(result));
        }
      } else {
        port::DataTaskResult result;
        if (error) {
          result.error = std::move(error);
        } else {
          result.body = std::move(t.body);
          result.response = std::move(response);
        }
        auto completion = std::move(t.onData);
        t.onData = nullptr;
        if (completion) {
          completion(std::move(result));
        }
      }
    } catch (...) {
      // A completion that throws must not take the network thread, and every other transfer on
      // it, down with it.
    }
  }

  const CurlHttpClientOptions options_;
  const CurlLibrary* const curl_;
  const std::string unavailable_;
  CURLM* multi_ = nullptr;
  std::string systemCaPath_;
  std::string noProxy_;
  std::atomic<std::thread::id> networkThread_{};

  std::mutex mutex_;
  std::condition_variable arrivedOrStopping_;  ///< the loop without libcurl waits on it
  std::vector<std::shared_ptr<Transfer>> incoming_;
  std::vector<std::shared_ptr<Transfer>> cancels_;
  bool stopping_ = false;

  // Network thread only.
  std::unordered_map<CURL*, std::shared_ptr<Transfer>> active_;
  struct IdleHandle {
    CURL* easy;
    std::string method;  ///< of the handle's last request
    bool body;           ///< whether that request sent a body
  };
  std::vector<IdleHandle> idleHandles_;
  std::string headerKey_;  ///< the fields of the request being started, one after the other
  std::string lastHeaderKey_;
  std::shared_ptr<const HeaderList> lastHeaders_;  ///< the list made for `lastHeaderKey_`
};

class CurlTask final : public port::HttpTask {
 public:
  CurlTask(std::weak_ptr<Engine> engine, std::weak_ptr<Transfer> transfer)
      : engine_(std::move(engine)), transfer_(std::move(transfer)) {}

  void cancel() override {
    auto engine = engine_.lock();
    auto transfer = transfer_.lock();
    if (engine && transfer) {
      engine->requestCancel(std::move(transfer));
    }
  }

 private:
  std::weak_ptr<Engine> engine_;
  std::weak_ptr<Transfer> transfer_;
};

class CurlHttpClient final : public port::HttpClient {
 public:
  explicit CurlHttpClient(const CurlHttpClientOptions& options) : options_(options) {}

  /// Released by one of its own completions, the network thread finishes its shutdown on its
  /// own: it only touches the engine, which it shares.
  ~CurlHttpClient() override {
    if (engine_) {
      engine_->stop();
      thread_.join();
    }
  }

  CurlHttpClient(const CurlHttpClient&) = delete;
  CurlHttpClient& operator=(const CurlHttpClient&) = delete;

  std::shared_ptr<port::HttpTask> dataTask(port::HttpRequest request,
                                           port::DataTaskCompletion completion) override {
    auto transfer = std::make_shared<Transfer>();
    transfer->request = std::move(request);
    transfer->onData = std::move(completion);
    return submit(std::move(transfer));
  }

  std::shared_ptr<port::HttpTask> downloadTask(port::HttpRequest request,
                                               port::DownloadTaskCompletion completion) override {
    auto transfer = std::make_shared<Transfer>();
    transfer->request = std::move(request);
    transfer->download = true;
    transfer->onDownload = std::move(completion);
    return submit(std::move(transfer));
  }

 private:
  std::shared_ptr<port::HttpTask> submit(std::shared_ptr<Transfer> transfer) {
    // libcurl's global set-up, the multi handle and the network thread wait for the first
    // request: a client that is never used costs none of them.
    std::call_once(started_, [this] {
      std::string unavailable;
      const CurlLibrary* curl = CurlLibrary::load(unavailable);
      engine_ = std::make_shared<Engine>(options_, curl, std::move(unavailable));
      thread_ = OwnedThread("orvanta-net", [engine = engine_] { engine->run(); });
    });
    auto task = std::make_shared<CurlTask>(engine_, transfer);
    engine_->submit(std::move(transfer));
    return task;
  }

  const CurlHttpClientOptions options_;
  std::once_flag started_;
  std::shared_ptr<Engine> engine_;  // set once, by the first request
  OwnedThread thread_;
};

}  // namespace

std::shared_ptr<port::HttpClient> makeCurlHttpClient(const CurlHttpClientOptions& options) {
  return std::make_shared<CurlHttpClient>(options);
}

}  // namespace orvanta::linux_platform
