#include "networking/router.hpp"

#include <algorithm>
#include <utility>

#include "core/constants.hpp"
#include "core/logger.hpp"
#include "core/text.hpp"
#include "networking/json_parameter_encoder.hpp"
#include "networking/networking_error.hpp"

namespace orvanta::detail {

void setHeader(port::HttpHeaders& headers, const std::string& name, const std::string& value) {
  auto existing = std::find_if(headers.begin(), headers.end(), [&](const auto& field) {
    return equalsIgnoringAsciiCase(field.first, name);
  });
  if (existing != headers.end()) {
    existing->first = name;
    existing->second = value;
  } else {
    headers.emplace_back(name, value);
  }
}

port::HttpRequest buildRequest(HTTPMethod method, std::string url,
                               const port::HttpHeaders& familyHeaders, HTTPTask task,
                               std::chrono::milliseconds timeout) {
  port::HttpRequest request;
  request.url = std::move(url);
  request.method = std::string(rawValue(method));
  request.timeout = timeout;
  request.ignoreCache = true;
  const auto& defaults = Constants::Networking::defaultHeaders();
  request.headers.reserve(defaults.size() + familyHeaders.size() + task.additionalHeaders.size() +
                          1);  // and the content type the encoder may add
  for (const auto& [name, value] : defaults) {
    setHeader(request.headers, name, value);
  }
  for (const auto& [name, value] : familyHeaders) {
    setHeader(request.headers, name, value);
  }
  if (task.kind == HTTPTask::Kind::requestWithParametersAndHeaders) {
    for (const auto& [name, value] : task.additionalHeaders) {
      setHeader(request.headers, name, value);
    }
  }
  if (task.kind != HTTPTask::Kind::request) {
    if (task.encodedBody) {
      JSONParameterEncoder().encodeWritten(request, std::move(*task.encodedBody));
    } else if (task.bodyParameters) {
      JSONParameterEncoder().encode(request, *task.bodyParameters);
    } else {
      // The record could not be written: nothing is sent.
      throw makeError(NetworkingError::encodingFailed);
    }
  }
  return request;
}

std::string describe(const port::HttpRequest& request) {
  return request.method + " " + request.url;
}

std::optional<Error> validateStatusCode(const port::HttpResponse& response) {
  if (response.statusCode >= 200 && response.statusCode <= 299) {
    return std::nullopt;
  }
  return Error::statusCode(response.statusCode);
}

Future<Response> performRequest(port::HttpClient& client, port::HttpRequest request,
                                std::weak_ptr<const void> router) {
  Promise<Response> promise;
  auto completion = [promise, router = std::move(router),
                     description = describe(request)](port::DataTaskResult result) {
    if (result.error) {
      promise.reject(*result.error);
      OrvantaLogger::error("Failed to perform request with error: " +
                           result.error->localizedDescription());
      return;
    }
    if (result.body && result.response) {
      // A released router no longer judges the status: the answer resolves as it is.
      if (!router.expired()) {
        if (auto failure = validateStatusCode(*result.response)) {
          promise.reject(*failure);
          return;
        }
      }
      promise.resolve(Response{std::move(*result.body), std::move(result.response)});
      return;
    }
    promise.reject(Error::custom("No response for given request: " + description));
  };
  try {
    client.dataTask(std::move(request), std::move(completion));
  } catch (...) {
    promise.reject(errorFromCurrentException());
  }
  return promise;
}

}  // namespace orvanta::detail
