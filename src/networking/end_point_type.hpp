#pragma once

#include <concepts>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "core/constants.hpp"
#include "networking/service_base_urls.hpp"
#include "orvanta/port/http_client.hpp"

namespace orvanta {

enum class HTTPMethod { get, post, put, patch, del };

/// "GET", "POST", "PUT", "PATCH", "DELETE".
std::string_view rawValue(HTTPMethod method);

/// What a call sends besides its URL, method and the family's headers.
struct HTTPTask {
  enum class Kind {
    request,                          ///< no body
    requestWithParameters,            ///< a JSON body
    requestWithParametersAndHeaders,  ///< a JSON body and headers of its own
  };

  Kind kind = Kind::request;
  /// The body as a JSON object. None (and no `encodedBody` either) when the call's record could
  /// not be written as one: the request is then not sent, and fails with `encodingFailed`.
  std::optional<nlohmann::ordered_json> bodyParameters;
  /// Set after the family's headers (only for `requestWithParametersAndHeaders`).
  port::HttpHeaders additionalHeaders;
  /// The body already written, exactly as `JSONParameterEncoder` would write it (pretty-printed
  /// JSON); used in place of `bodyParameters` by records that write themselves.
  std::optional<std::string> encodedBody;

  static HTTPTask request() { return {}; }
  static HTTPTask requestWithParameters(std::optional<nlohmann::ordered_json> bodyParameters) {
    return {Kind::requestWithParameters, std::move(bodyParameters), {}, std::nullopt};
  }
  static HTTPTask requestWithParametersAndHeaders(
      std::optional<nlohmann::ordered_json> bodyParameters, port::HttpHeaders additionalHeaders) {
    return {Kind::requestWithParametersAndHeaders, std::move(bodyParameters),
            std::move(additionalHeaders), std::nullopt};
  }
  static HTTPTask requestWithEncodedBody(std::string body) {
    return {Kind::requestWithParameters, std::nullopt, {}, std::move(body)};
  }
};

/// An endpoint family: a value naming one call, which the router turns into a request.
/// `service` is the service the family's calls go to; `path()` is relative to that service's base
/// URL; `headers(credentials)` is the family's authorisation set, built again from the
/// credentials on every call.
template <class E>
concept EndPointType = requires(const E& endPoint, const CredentialsSource& credentials) {
  { E::service } -> std::convertible_to<Service>;
  { endPoint.path() } -> std::convertible_to<std::string>;
  { endPoint.httpMethod() } -> std::same_as<HTTPMethod>;
  { endPoint.task() } -> std::same_as<HTTPTask>;
  { endPoint.headers(credentials) } -> std::same_as<port::HttpHeaders>;
};

/// What a family inherits unless it says otherwise: its calls go to the push service.
struct EndPointDefaults {
  static constexpr Service service = Service::push;
};

/// `base` with `path` appended as a path component: a "/" is put between them unless `base` ends
/// in one, and every byte of `path` that may not stand in a URL path (anything but letters, digits,
/// "-._~!$&'()*+,;=:@/") is percent-encoded, "%" included. So an identifier holding "?", "#" or a
/// blank stays inside its path segment.
std::string appendingPathComponent(const std::string& base, std::string_view path);

/// The full URL of a call to the service at `baseURL`.
template <EndPointType E>
std::string pathURL(const std::string& baseURL, const E& endPoint) {
  return appendingPathComponent(baseURL, endPoint.path());
}

}  // namespace orvanta
