#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "networking/devices_end_point.hpp"
#include "networking/events_end_point.hpp"
#include "networking/json_parameter_encoder.hpp"
#include "networking/pushes_end_point.hpp"
#include "networking/router.hpp"
#include "orvanta/orvanta.hpp"
#include "orvanta/service_urls.hpp"
#include "testing/platform_test.hpp"

namespace orvanta {
namespace {

using ::testing::ElementsAre;
using ::testing::Pair;

class RequestBuildingTest : public testing::PlatformTest {};

// The body's exact text is checked end to end by the services' integration test, a body that
// cannot be encoded by the router's test.
TEST(JSONParameterEncoderTest, SetsOneContentTypeUnlessTheRequestHasOne) {
  port::HttpRequest request;
  JSONParameterEncoder().encode(request, {{"a", 1}});
  EXPECT_THAT(request.headers, ElementsAre(Pair("Content-Type", "application/json")));
  port::HttpRequest typed;
  typed.headers = {{"content-type", "text/plain"}};
  JSONParameterEncoder().encode(typed, {{"a", 1}});
  EXPECT_THAT(typed.headers, ElementsAre(Pair("content-type", "text/plain")));
}

TEST(RequestTest, HeadersAreSetInOrderAndALaterNameReplacesAnEarlierOne) {
  auto request = detail::buildRequest(
      HTTPMethod::post, "https://push.example/v1/devices",
      {{"CONTENT-TYPE", "application/json; charset=utf-8"}, {"Authorization", "a"}},
      HTTPTask::requestWithParametersAndHeaders(nlohmann::ordered_json{{"k", "v"}},
                                                {{"authorization", "b"}, {"X-Extra", "1"}}),
      std::chrono::milliseconds(1234));
  EXPECT_EQ(request.method, "POST");
  EXPECT_EQ(request.url, "https://push.example/v1/devices");
  EXPECT_EQ(request.timeout, std::chrono::milliseconds(1234));
  EXPECT_TRUE(request.ignoreCache);
  EXPECT_THAT(request.headers, ElementsAre(Pair("CONTENT-TYPE", "application/json; charset=utf-8"),
                                           Pair("authorization", "b"), Pair("X-Extra", "1")));
  EXPECT_EQ(request.body, "{\n  \"k\": \"v\"\n}");
  EXPECT_EQ(detail::describe(request), "POST https://push.example/v1/devices");

  auto bare =
      detail::buildRequest(HTTPMethod::get, "u", {}, HTTPTask::request(), detail::kRequestTimeout);
  EXPECT_EQ(bare.timeout, std::chrono::seconds(10));
  EXPECT_TRUE(bare.body.empty());
  // A record that could not be written as JSON is never sent without its body.
  EXPECT_THROW(
      detail::buildRequest(HTTPMethod::post, "u", {}, HTTPTask::requestWithParameters(std::nullopt),
                           detail::kRequestTimeout),
      Error);
}

TEST(RequestTest, IdentifiersStayInsideTheirPathSegment) {
  EXPECT_EQ(appendingPathComponent("https://h/v1/", "devices/ab-9_.~:@"),
            "https://h/v1/devices/ab-9_.~:@");
  EXPECT_EQ(appendingPathComponent("https://h/v1", "pushes/a b?c#d%e\xc3\xa9/reports"),
            "https://h/v1/pushes/a%20b%3Fc%23d%25e%C3%A9/reports");
}

TEST_F(RequestBuildingTest, CredentialsAreReadAtBuildingTimeAndSentEvenWhenEmpty) {
  const CredentialsSource& credentials = *context().configFile();
  auto reg = DevicesEndPoint::lastPush("tok");
  auto eventCall = EventsEndPoint::event(OrvantaEvent("tok", "app", "opened", 1.5, {}));
  OrvantaNotificationStatus status;
  EXPECT_THAT(reg.headers(credentials),
              ElementsAre(Pair("X-Orvanta-App-Token", ""), Pair("X-Orvanta-App-Secret", ""),
                          Pair("Authorization", "u8jzPde0IgxLd6GncfBAepfJBd0Kh8oOOL8")));
  EXPECT_THAT(eventCall.headers(credentials), ElementsAre(Pair("Authorization", "")));

  writeConfig(testing::credentials("app", "tok-1", "sec-1", "ev-1"));
  EXPECT_THAT(
      PushesEndPoint::reports(status).headers(credentials),
      ElementsAre(Pair("X-Orvanta-App-Token", "tok-1"), Pair("X-Orvanta-App-Secret", "sec-1"),
                  Pair("Authorization", "u8jzPde0IgxLd6GncfBAepfJBd0Kh8oOOL8")));
  EXPECT_THAT(eventCall.headers(credentials), ElementsAre(Pair("Authorization", "ev-1")));
}

TEST(ServiceBaseURLsTest, OnlyHttpsOrLoopbackHttpBasesEndingInASlash) {
  for (const char* good : {"https://push.example.com/v1/", "https://staging.example:8443/",
                           "http://127.0.0.1:8080/v1/", "http://127.8.9.10/", "http://[::1]:80/v1/",
                           "http://LOCALHOST:1/", "HTTPS://push.example.com/v1/"}) {
    EXPECT_TRUE(isAcceptableServiceBaseURL(good)) << good;
  }
  for (const char* bad :
       {"", "https://push.example.com/v1", "http://push.example.com/v1/", "http://10.0.0.1/",
        "http://128.0.0.1/", "http://[::2]/", "http://localhost.evil.com/", "ftp://127.0.0.1/",
        "push.example.com/v1/", "/v1/", "https:///v1/", "https://push.example.com/v1/?a=1/",
        "https://user:pw@push.example.com/", "https://push example.com/", "file:///tmp/"}) {
    EXPECT_FALSE(isAcceptableServiceBaseURL(bad)) << bad;
  }

  // The process's URLs, which every context's routers read.
  const auto& urls = detail::processServiceURLs();
  ASSERT_TRUE(setServiceBaseURLs("http://127.0.0.1:9/a/", "https://api.example/b/"));
  EXPECT_EQ(urls->url(Service::push), "http://127.0.0.1:9/a/");
  EXPECT_EQ(urls->url(Service::api), "https://api.example/b/");
  // One bad URL changes nothing.
  EXPECT_FALSE(setServiceBaseURLs("https://ok.example/", "http://remote.example/"));
  EXPECT_EQ(urls->url(Service::push), "http://127.0.0.1:9/a/");
  resetServiceBaseURLs();
  EXPECT_EQ(urls->url(Service::push), "https://push.orvanta.io/v1/");
  EXPECT_EQ(urls->url(Service::api), "https://api.orvanta.io/v1/");
}

}  // namespace
}  // namespace orvanta
