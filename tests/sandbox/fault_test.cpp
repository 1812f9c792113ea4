#include <future>
#include <thread>

#include "sandbox_client.hpp"

namespace orvanta::sandbox::testing {
namespace {

using namespace std::chrono_literals;

class FaultTest : public SandboxTest {
 protected:
  HttpAnswer postEvent() { return post("event", validEvent(credentials())); }
  HttpAnswer postDevice() { return post("devices", validDevice(credentials(), "user-1")); }
};

TEST_F(FaultTest, StatusFaultsAnswerWithoutStoringForTheirCountOrUntilCleared) {
  sandbox->setFault(Endpoint::event, Fault{.status = 503, .count = 2});
  EXPECT_EQ(postEvent().status, 503);
  EXPECT_EQ(postDevice().status, 204);  // other endpoints are untouched
  EXPECT_EQ(postEvent().status, 503);
  EXPECT_EQ(sandbox->eventCount(), 0U);
  EXPECT_EQ(postEvent().status, 201);

  // "*" applies where an endpoint has no fault of its own.
  sandbox->setFault(std::nullopt, Fault{.status = 500});
  sandbox->setFault(Endpoint::devices, Fault{.status = 429});
  EXPECT_EQ(postDevice().status, 429);
  EXPECT_EQ(postEvent().status, 500);
  EXPECT_EQ(client.send("GET", url("devices/x/last_push"), pushHeaders(credentials())).status, 500);
  sandbox->clearFault(Endpoint::devices);
  EXPECT_EQ(postDevice().status, 500);
  sandbox->clearFaults();
  EXPECT_EQ(postDevice().status, 204);

  // A fault answers before any check: even a request the service would refuse gets it.
  sandbox->setFault(Endpoint::event, Fault{.status = 502, .count = 1});
  EXPECT_EQ(client.send("POST", url("event"), {}, "not json").status, 502);
  EXPECT_TRUE(sandbox->violations().empty());

  const auto requests = sandbox->requests();
  ASSERT_FALSE(requests.empty());
  EXPECT_EQ(requests.front().status, 503);
  EXPECT_EQ(requests.back().status, 502);
  EXPECT_EQ(sandbox->events().at(0).deliveries, 1);
}

// A content type added to a success, and a dropped connection, are the console test's
// (LastPushesAndFaultsAreSetOverHttp) and the kit's services test's (EmptyAnswersAreDemanded...);
// delays that hold many connections at once until cleared are the concurrency test's.
TEST_F(FaultTest, ADelayHoldsOnlyItsOwnRequestAndStoppingTheSandboxEndsIt) {
  sandbox->setFault(Endpoint::event, Fault{.delay = 60s});
  auto held = std::async(std::launch::async, [&] {
    SandboxClient own;
    return own.send("POST", url("event"), eventHeaders(credentials()),
                    validEvent(credentials()).dump());
  });
  ASSERT_TRUE(sandbox->waitFor([&] { return sandbox->inFlight(Endpoint::event).now == 1; }, 5s));
  EXPECT_EQ(postDevice().status, 204);
  const auto stopping = std::chrono::steady_clock::now();
  sandbox->stop();
  EXPECT_NE(held.get().error, CURLE_OK);
  EXPECT_LT(std::chrono::steady_clock::now() - stopping, 10s);
}

}  // namespace
}  // namespace orvanta::sandbox::testing
