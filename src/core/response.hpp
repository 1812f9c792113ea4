#pragma once

#include <concepts>
#include <optional>
#include <string>
#include <string_view>

#include "core/future.hpp"
#include "core/result.hpp"
#include "orvanta/port/http_client.hpp"

namespace orvanta {

/// What the router hands back for a request: the body bytes and the response that carried them.
/// `httpResponse` is empty when the answer was not an HTTP response at all.
struct Response {
  std::string data;
  std::optional<port::HttpResponse> httpResponse;
};

/// A record that decodes itself from JSON text: `static Result<T> T::decode(std::string_view)`,
/// failing with an error of the `decoding` domain.
template <class T>
concept JsonDecodable = requires(std::string_view json) {
  { T::decode(json) } -> std::same_as<Result<T>>;
};

/// The body decoded as `T`; a body that does not decode rejects the future with the decoder's
/// error.
template <JsonDecodable T>
Future<T> decode(const Future<Response>& response) {
  return response.flatMap([](const Response& answer) -> Future<T> {
    Result<T> decoded = T::decode(answer.data);
    if (decoded.isSuccess()) {
      return Future<T>::resolved(std::move(decoded).value());
    }
    return Future<T>::rejected(decoded.error());
  });
}

/// Resolves when the answer is an HTTP response without a "Content-Type" header field (whatever the
/// length of its body); rejects with `Error::emptyResponseExists()` otherwise, including when the
/// answer is not an HTTP response.
Future<Void> decodeEmptyResponse(const Future<Response>& response);

/// Resolves as soon as an answer arrives, whatever it holds; failures still pass through.
Future<Void> ignoreSuccessResponseAndMapAsVoid(const Future<Response>& response);

}  // namespace orvanta
