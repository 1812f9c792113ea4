#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "core/future.hpp"
#include "core/response.hpp"
#include "networking/end_point_type.hpp"
#include "networking/service_base_urls.hpp"
#include "orvanta/port/http_client.hpp"

namespace orvanta {

namespace detail {

/// The time-out of every request the kit sends.
inline constexpr std::chrono::milliseconds kRequestTimeout{10'000};

/// Sets `name` on `headers`: an existing field of that name (compared case-insensitively) takes the
/// new name and value in its place, otherwise the field is appended.
void setHeader(port::HttpHeaders& headers, const std::string& name, const std::string& value);

/// Builds a request: `url`, `method`, the time-out, no cache; the default headers, then
/// `familyHeaders`, then the task's own headers, each one set in turn; the task's body through
/// `JSONParameterEncoder`. Throws the encoder's error, and `encodingFailed` for a task whose record
/// could not be written at all (a request is never sent without the body it should carry).
port::HttpRequest buildRequest(HTTPMethod method, std::string url,
                               const port::HttpHeaders& familyHeaders, HTTPTask task,
                               std::chrono::milliseconds timeout);

/// The request as failures describe it: method, a blank and the URL
/// ("POST https://push.orvanta.io/v1/devices").
std::string describe(const port::HttpRequest& request);

/// None for a status within 200...299, otherwise `Error::statusCode(status)`.
std::optional<Error> validateStatusCode(const port::HttpResponse& response);

/// Starts `request` on `client` and returns the future of its answer; see `Router::request`.
/// `router` is the router the request belongs to, watched to know whether it still exists.
Future<Response> performRequest(port::HttpClient& client, port::HttpRequest request,
                                std::weak_ptr<const void> router);

}  // namespace detail

/// Sends the calls of one endpoint family and hands back their answers.
///
/// Always owned by a `std::shared_ptr` (`Router::make`): a request's completion holds its router
/// weakly. If the router is gone when the answer arrives, the status is not checked and the answer
/// resolves the future whatever its status; while it exists, a status outside 200...299 rejects it.
/// `request` may be called from any thread; the futures complete on the HTTP client's thread.
template <EndPointType EndPoint>
class Router : public std::enable_shared_from_this<Router<EndPoint>> {
  struct Key {
    explicit Key() = default;
  };

 public:
  struct Dependencies {
    /// The URL session. Required.
    std::shared_ptr<port::HttpClient> httpClient;
    /// Where the authorisation headers take the host's credentials from, for each request.
    /// Required.
    std::shared_ptr<const CredentialsSource> credentials;
    /// Where the services are; the family's (`EndPoint::service`) is read for each request.
    /// Required.
    std::shared_ptr<const ServiceBaseURLs> baseURLs;
    /// Ten seconds; tests shorten it rather than wait.
    std::chrono::milliseconds requestTimeout = detail::kRequestTimeout;
  };

  static std::shared_ptr<Router> make(Dependencies dependencies) {
    return std::make_shared<Router>(Key{}, std::move(dependencies));
  }

  Router(Key, Dependencies dependencies) : dependencies_(std::move(dependencies)) {}

  /// Sends the call. The future is rejected with
  /// - `encodingFailed` when the body cannot be encoded (nothing is sent);
  /// - the HTTP client's error for a transport failure, which is also logged as
  ///   "Failed to perform request with error: " + its description;
  /// - `Error::statusCode(status)` for a status outside 200...299 (while the router exists);
  /// - `Error::custom("No response for given request: " + the request's description)` when the
  ///   answer has no body or is not an HTTP response.
  /// Otherwise it resolves with the body and the response.
  Future<Response> request(const EndPoint& route) const {
    port::HttpRequest built;
    try {
      built = requestFrom(route);
    } catch (...) {
      return Future<Response>::rejected(detail::errorFromCurrentException());
    }
    return detail::performRequest(*dependencies_.httpClient, std::move(built),
                                  this->weak_from_this());
  }

 private:
  port::HttpRequest requestFrom(const EndPoint& route) const {
    return detail::buildRequest(
        route.httpMethod(), pathURL(dependencies_.baseURLs->url(EndPoint::service), route),
        route.headers(*dependencies_.credentials), route.task(), dependencies_.requestTimeout);
  }

  Dependencies dependencies_;
};

}  // namespace orvanta
