#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <memory>
#include <string>

#include "networking/devices_end_point.hpp"
#include "networking/router.hpp"
#include "testing/loopback_http_server.hpp"
#include "testing/loopback_tcp_server.hpp"
#include "testing/sandbox_test.hpp"

namespace orvanta {
namespace {

using testing::await;
using ::testing::HasSubstr;
using testing::LoopbackHttpServer;
using testing::LoopbackRequest;
using testing::LoopbackResponse;
using testing::LoopbackTcpServer;

class RouterIntegrationTest : public testing::SandboxTest {
 protected:
  /// Sends a last-push call to `base` and waits for the answer.
  std::optional<Result<Response>> call(
      const std::string& base, std::chrono::milliseconds timeout = detail::kRequestTimeout) {
    EXPECT_TRUE(setServiceBaseURLs(base, base)) << base;
    auto router = Router<DevicesEndPoint>::make(
        {platform()->httpClient, context().configFile(), context().serviceURLs(), timeout});
    return await(router->request(DevicesEndPoint::lastPush("abc")));
  }

  /// The kit still talks to the sandbox after whatever the test did.
  void expectStillWorking() {
    sandbox().setLastPush("abc", {{"id", "p"}});
    auto answer = call(sandbox().baseUrl());
    ASSERT_TRUE(answer);
    EXPECT_TRUE(answer->isSuccess());
  }

  static std::optional<Error> errorOf(const std::optional<Result<Response>>& answer) {
    if (!answer || answer->isSuccess()) {
      return std::nullopt;
    }
    return answer->error();
  }
};

TEST_F(RouterIntegrationTest, StatusTable) {
  for (int code : {200, 201, 204, 299}) {
    LoopbackHttpServer server([code](const LoopbackRequest&) {
      return LoopbackResponse{code, {}, code == 204 ? "" : "body"};
    });
    auto answer = call(server.url("/v1/"));
    ASSERT_TRUE(answer && answer->isSuccess()) << code;
    EXPECT_EQ(answer->value().httpResponse->statusCode, code);
  }
  for (int code : {301, 302, 404, 500}) {
    LoopbackHttpServer elsewhere;
    LoopbackHttpServer server([&](const LoopbackRequest&) {
      return LoopbackResponse{code, {{"Location", elsewhere.url("/v1/devices/abc/last_push")}}, ""};
    });
    EXPECT_EQ(errorOf(call(server.url("/v1/"))), Error::statusCode(code)) << code;
    EXPECT_EQ(elsewhere.requestCount(), 0u) << "redirects are not followed";
  }
  EXPECT_TRUE(logSink().linesContaining("Failed to perform request").empty());
}

TEST_F(RouterIntegrationTest, TransportFailuresAreRejectedAndLogged) {
  std::string refusedBase;
  {
    LoopbackHttpServer closed;
    refusedBase = closed.url("/v1/");
  }
  auto refused = errorOf(call(refusedBase));
  ASSERT_TRUE(refused);
  EXPECT_EQ(refused->domain(), Error::Domain::transport);

  LoopbackTcpServer silent(LoopbackTcpServer::Behaviour::neverAnswer);
  auto timedOut = errorOf(call(silent.url("/v1/"), std::chrono::milliseconds(300)));
  ASSERT_TRUE(timedOut);
  EXPECT_EQ(timedOut->domain(), Error::Domain::transport);

  // The line is written just after the rejection, on the network thread.
  auto lines =
      testing::awaitLinesContaining(logSink(), "Failed to perform request with error: ", 2);
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_THAT(lines[0], HasSubstr(refused->localizedDescription()));
  EXPECT_THAT(lines[1], HasSubstr(timedOut->localizedDescription()));
  expectStillWorking();
}

TEST_F(RouterIntegrationTest, AnAnswerAfterTheRouterWasReleasedIsNotJudged) {
  std::promise<void> released;
  auto gate = released.get_future().share();
  LoopbackHttpServer server([gate](const LoopbackRequest&) {
    gate.wait();
    return LoopbackResponse{404, {}, "late"};
  });
  ASSERT_TRUE(setServiceBaseURLs(server.url("/v1/"), server.url("/v1/")));
  auto router = context().router<DevicesEndPoint>();
  auto future = router->request(DevicesEndPoint::lastPush("abc"));
  ASSERT_TRUE(server.waitForRequests(1));
  router.reset();
  released.set_value();
  auto answer = await(future);
  ASSERT_TRUE(answer && answer->isSuccess());
  EXPECT_EQ(answer->value().httpResponse->statusCode, 404);
  EXPECT_EQ(answer->value().data, "late");
}

}  // namespace
}  // namespace orvanta
