#include "core/response.hpp"

namespace orvanta {

Future<Void> decodeEmptyResponse(const Future<Response>& response) {
  return response.flatMap([](const Response& answer) -> Future<Void> {
    if (answer.httpResponse && !answer.httpResponse->header("Content-Type")) {
      return Future<Void>::resolved(Void{});
    }
    return Future<Void>::rejected(Error::emptyResponseExists());
  });
}

Future<Void> ignoreSuccessResponseAndMapAsVoid(const Future<Response>& response) {
  return response.map([](const Response&) { return Void{}; });
}

}  // namespace orvanta
