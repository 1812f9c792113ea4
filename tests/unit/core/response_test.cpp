#include "core/response.hpp"

#include <gtest/gtest.h>

#include <string_view>

namespace orvanta {
namespace {

struct Greeting {
  std::string text;
  static Result<Greeting> decode(std::string_view json) {
    constexpr std::string_view prefix = "{\"text\":\"";
    if (json.substr(0, prefix.size()) != prefix || json.size() < prefix.size() + 2) {
      return Error(Error::Domain::decoding, 0, "not a greeting");
    }
    return Greeting{std::string(json.substr(prefix.size(), json.size() - prefix.size() - 2))};
  }
};

Future<Response> answer(int status, port::HttpHeaders headers, std::string body) {
  port::HttpResponse response;
  response.statusCode = status;
  response.headers = std::move(headers);
  return Future<Response>::resolved(Response{std::move(body), response});
}

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

TEST(ResponseTest, DecodeAndIgnore) {
  auto decoded = decode<Greeting>(answer(200, {}, "{\"text\":\"hi\"}")).result();
  ASSERT_TRUE(decoded->isSuccess());
  EXPECT_EQ(decoded->value().text, "hi");

  auto broken = decode<Greeting>(answer(200, {}, "[]")).result();
  ASSERT_FALSE(broken->isSuccess());
  EXPECT_EQ(broken->error().domain(), Error::Domain::decoding);

  EXPECT_TRUE(ignoreSuccessResponseAndMapAsVoid(answer(201, {{"Content-Type", "x"}}, "{}"))
                  .result()
                  ->isSuccess());
  EXPECT_EQ(ignoreSuccessResponseAndMapAsVoid(Future<Response>::rejected(Error::statusCode(401)))
                .result()
                ->error(),
            Error::statusCode(401));
}

}  // namespace
}  // namespace orvanta
