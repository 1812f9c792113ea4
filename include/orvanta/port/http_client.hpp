#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "orvanta/error.hpp"
#include "orvanta/export.hpp"

namespace orvanta::port {

/// Header fields in the order they were set or received. Names compare case-insensitively.
using HttpHeaders = std::vector<std::pair<std::string, std::string>>;

/// Case-insensitive lookup of the first field called `name`.
ORVANTA_API std::optional<std::string> findHeader(const HttpHeaders& headers,
                                                  const std::string& name);

struct HttpRequest {
  std::string method = "GET";
  std::string url;
  HttpHeaders headers;
  std::string body;
  std::chrono::milliseconds timeout{10'000};
  bool ignoreCache = true;  ///< never answer from, or store into, a cache
};

struct HttpResponse {
  std::string url;  ///< the URL that answered
  int statusCode = 0;
  HttpHeaders headers;
  std::optional<std::string> header(const std::string& name) const {
    return findHeader(headers, name);
  }
};

/// What a data task ends with: the body (empty string for an empty body), the response, or an
/// error. A transport failure has an error and usually neither body nor response.
struct DataTaskResult {
  std::optional<std::string> body;
  std::optional<HttpResponse> response;
  std::optional<Error> error;
};

/// What a download task ends with: the path of a temporary file that the completion now owns.
struct DownloadTaskResult {
  std::optional<std::string> location;
  std::optional<HttpResponse> response;
  std::optional<Error> error;
};

using DataTaskCompletion = std::function<void(DataTaskResult)>;
using DownloadTaskCompletion = std::function<void(DownloadTaskResult)>;

/// A running transfer. Cancelling ends it with a transport error; the completion still runs once.
class ORVANTA_API HttpTask {
 public:
  virtual ~HttpTask() = default;
  virtual void cancel() = 0;
};

/// The URL session. Tasks start at once; every completion runs exactly once, on the client's own
/// callback thread (never inside `dataTask`/`downloadTask` itself). Thread-safe.
class ORVANTA_API HttpClient {
 public:
  virtual ~HttpClient() = default;
  virtual std::shared_ptr<HttpTask> dataTask(HttpRequest request,
                                             DataTaskCompletion completion) = 0;
  virtual std::shared_ptr<HttpTask> downloadTask(HttpRequest request,
                                                 DownloadTaskCompletion completion) = 0;
};

}  // namespace orvanta::port
