#include "core/response.hpp"

#include <gtest/gtest.h>

namespace orvanta {
namespace {

Future<Response> answer(int status, port::HttpHeaders headers, std::string body) {
  port::HttpResponse response;
  response.statusCode = status;
  response.headers = std::move(headers);
  return Future<Response>::resolved(Response{std::move(body), response});
}

// Decoding and ignoring answers are covered end to end by the services' integration tests.
TEST(ResponseTest, EmptyIsJudgedByTheContentTypeHeaderAlone) {
  EXPECT_TRUE(decodeEmptyResponse(answer(204, {}, "")).result()->isSuccess());
  // A body without a Content-Type still counts as empty.
  EXPECT_TRUE(
      decodeEmptyResponse(answer(200, {{"X-Other", "1"}}, "ignored")).result()->isSuccess());

  for (const char* name : {"Content-Type", "content-type", "CONTENT-TYPE"}) {
    auto result = decodeEmptyResponse(answer(200, {{name, "application/json"}}, "")).result();
    ASSERT_FALSE(result->isSuccess()) << name;
    EXPECT_EQ(result->error(), Error::emptyResponseExists());
  }

  auto notHttp = Future<Response>::resolved(Response{"", std::nullopt});
  EXPECT_EQ(decodeEmptyResponse(notHttp).result()->error(), Error::emptyResponseExists());

  auto failed = Future<Response>::rejected(Error::statusCode(500));
  EXPECT_EQ(decodeEmptyResponse(failed).result()->error(), Error::statusCode(500));
}

}  // namespace
}  // namespace orvanta
