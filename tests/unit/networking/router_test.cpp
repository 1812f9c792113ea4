#include "networking/router.hpp"

#include <gtest/gtest.h>

#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "networking/networking_error.hpp"
#include "testing/platform_test.hpp"

namespace orvanta {
namespace {

/// An HTTP client that keeps each request and its completion for the test to finish by hand.
class HeldHttpClient : public port::HttpClient {
 public:
  std::shared_ptr<port::HttpTask> dataTask(port::HttpRequest request,
                                           port::DataTaskCompletion completion) override {
    std::lock_guard lock(mutex_);
    requests.push_back(std::move(request));
    completions.push_back(std::move(completion));
    return nullptr;
  }
  std::shared_ptr<port::HttpTask> downloadTask(port::HttpRequest,
                                               port::DownloadTaskCompletion) override {
    return nullptr;
  }

  std::mutex mutex_;
  std::vector<port::HttpRequest> requests;
  std::vector<port::DataTaskCompletion> completions;
};

/// A family of one call whose body and base URL the test chooses.
struct ProbeEndPoint {
  std::optional<nlohmann::ordered_json> body;
  static constexpr Service service = Service::api;
  std::string path() const { return "probe"; }
  HTTPMethod httpMethod() const { return HTTPMethod::post; }
  HTTPTask task() const { return HTTPTask::requestWithParameters(body); }
  port::HttpHeaders headers(const CredentialsSource&) const { return {{"Authorization", "probe"}}; }
};
static_assert(EndPointType<ProbeEndPoint>);

port::HttpResponse httpResponse(int status) {
  port::HttpResponse response;
  response.statusCode = status;
  return response;
}

class RouterTest : public testing::PlatformTest {
 protected:
  void SetUp() override {
    PlatformTest::SetUp();
    enableLogging();
    auto urls = std::make_shared<ServiceBaseURLs>();
    urls->set("https://unused.example/", "https://probe.example/v1/");
    router_ = Router<ProbeEndPoint>::make({client_, context().configFile(), urls});
  }
  // The rows the real HTTP client cannot produce; the others run against loopback servers.
  std::shared_ptr<HeldHttpClient> client_ = std::make_shared<HeldHttpClient>();
  std::shared_ptr<Router<ProbeEndPoint>> router_;
};

TEST_F(RouterTest, EncodingFailureRejectsAndSendsNothing) {
  // Text that is not UTF-8, and a record that could not be written at all: never a request
  // without the body it should carry.
  for (const auto& body :
       {std::optional<nlohmann::ordered_json>(nlohmann::ordered_json{{"name", "\xc3"}}),
        std::optional<nlohmann::ordered_json>()}) {
    auto answer = router_->request({body});
    ASSERT_TRUE(answer.isCompleted());
    EXPECT_EQ(answer.result()->error(), makeError(NetworkingError::encodingFailed));
  }
  EXPECT_TRUE(client_->requests.empty());
  EXPECT_TRUE(logLines().empty());
}

TEST_F(RouterTest, NoBodyOrNoHttpResponseRejectsWithTheRequestDescription) {
  auto noBody = router_->request({nlohmann::ordered_json::object()});
  auto noResponse = router_->request({nlohmann::ordered_json::object()});
  ASSERT_EQ(client_->completions.size(), 2u);
  client_->completions[0]({std::nullopt, httpResponse(200), std::nullopt});
  client_->completions[1]({std::string("{}"), std::nullopt, std::nullopt});
  for (const auto& answer : {noBody, noResponse}) {
    ASSERT_TRUE(answer.isCompleted());
    EXPECT_EQ(answer.result()->error(),
              Error::custom("No response for given request: POST https://probe.example/v1/probe"));
  }
  EXPECT_TRUE(logLines().empty());
}

}  // namespace
}  // namespace orvanta
