// A hostile local client of the sandbox. It listens on 127.0.0.1 only, but every program of the
// machine reaches it, and so does every web page open in the person's browser (a page may point
// a name of its own at 127.0.0.1: "DNS rebinding"). Such clients neither bring it down, nor lock
// others out, nor read the application's credentials or its devices' push endpoints.

#include <unistd.h>

#include "sandbox_client.hpp"
#include "testing/hostile_input.hpp"
#include "testing/loopback_http_server.hpp"

namespace orvanta::sandbox::testing {
namespace {

using nlohmann::json;
using namespace std::chrono_literals;
using ::orvanta::testing::HostileInput;

class HostileClientTest : public SandboxTest {
 protected:
  std::string own() const { return "127.0.0.1:" + std::to_string(sandbox->port()); }

  HttpAnswer control(const std::string& method, const std::string& path,
                     const std::optional<std::string>& body = std::nullopt,
                     const std::string& host = {}) {
    std::vector<std::string> headers = {"Content-Type: application/json"};
    if (!host.empty()) {
      headers.push_back("Host: " + host);
    }
    return client.send(method, "http://" + own() + "/_sandbox/" + path, headers, body);
  }

  static std::string nested(std::size_t depth) {
    return std::string(depth, '[') + std::string(depth, ']');
  }
};

TEST_F(HostileClientTest, JsonNestedDeeperThan64LevelsIsRefusedUnread) {
  // 800 KB nested 400,000 levels deep once overflowed the stack.
  json device = validDevice(credentials(), "user-1");
  std::string deep = device.dump();
  deep.insert(deep.size() - 1, ",\"x\":" + nested(400'000));
  const HttpAnswer answer = client.send("POST", url("devices"), pushHeaders(credentials()), deep);
  EXPECT_EQ(answer.status, 400);
  EXPECT_EQ(lastViolation(), "devices: the body is nested more than 64 levels deep");
  // 64 levels are read (and then fail the contract for what they are).
  device["custom"]["string_fields"]["deep"] = json::parse(nested(61));
  EXPECT_EQ(post("devices", device).status, 400);
  EXPECT_EQ(lastViolation().find("nested"), std::string::npos) << lastViolation();

  for (const char* path : {"last_push/a1b2c3", "send/a1b2c3", "faults/event"}) {
    SCOPED_TRACE(path);
    const HttpAnswer refused = control("PUT", path, "{\"data\":" + nested(100) + "}");
    EXPECT_EQ(refused.status, path == std::string("send/a1b2c3") ? 405 : 400);
    const HttpAnswer posted = control("POST", path, "{\"data\":" + nested(100) + "}");
    EXPECT_EQ(posted.status, 400);
  }
  EXPECT_NE(control("POST", "send/a1b2c3", nested(70)).body.find("nested more than 64"),
            std::string::npos);
  EXPECT_TRUE(sandbox->sentPushes().empty());
  EXPECT_EQ(post("devices", validDevice(credentials(), "user-1")).status, 204);
}

TEST_F(HostileClientTest, OnlyRequestsNamingTheSandboxItselfAreServed) {
  const std::string port = std::to_string(sandbox->port());
  for (const std::string& host :
       std::vector<std::string>{"evil.example:" + port, "evil.example", "127.0.0.1:1",
                                "127.0.0.1.evil.example:" + port, "localhost"}) {
    SCOPED_TRACE(host);
    EXPECT_EQ(control("GET", "state", std::nullopt, host).status, 403);
    EXPECT_EQ(control("GET", "", std::nullopt, host).status, 403);  // the console page
    EXPECT_EQ(control("POST", "reset", std::nullopt, host).status, 403);
    std::vector<std::string> headers = pushHeaders(credentials());
    headers.push_back("Host: " + host);
    EXPECT_EQ(
        client.send("POST", url("devices"), headers, validDevice(credentials(), "user-1").dump())
            .status,
        403);
    EXPECT_THAT(lastViolation(), ::testing::HasSubstr("\"Host\" does not name this sandbox"));
  }
  EXPECT_TRUE(sandbox->devices().empty());
  for (const std::string& host :
       {"127.0.0.1:" + port, "localhost:" + port, "LocalHost:" + port, "[::1]:" + port}) {
    SCOPED_TRACE(host);
    EXPECT_EQ(control("GET", "state", std::nullopt, host).status, 200);
  }
}

TEST_F(HostileClientTest, IdleConnectionsAreDroppedSoTheyCannotLockOthersOut) {
  // Far more idle connections than the sandbox serves at once: the ones over its limit are
  // closed at once, the others once they have been idle a few seconds.
  std::vector<int> idle;
  for (int i = 0; i < 200; ++i) {
    const int fd = ::orvanta::testing::connectIdle(sandbox->port());
    ASSERT_GE(fd, 0);
    idle.push_back(fd);
  }
  for (const int fd : idle) {
    EXPECT_TRUE(::orvanta::testing::closedByServer(fd, 60s)) << "a connection stayed open";
    ::close(fd);
  }
  EXPECT_EQ(post("devices", validDevice(credentials(), "user-1")).status, 204);
}

TEST_F(HostileClientTest, TheControlPagesMaskTheCredentialsAndThePushEndpoints) {
  ::orvanta::testing::LoopbackHttpServer endpoint([](const ::orvanta::testing::LoopbackRequest&) {
    ::orvanta::testing::LoopbackResponse created;
    created.status = 201;
    return created;
  });
  const std::string endpointUrl = endpoint.url("/up/3f1c9a7e-secret-endpoint");
  std::string token;
  for (const unsigned char byte : endpointUrl) {
    static constexpr char kDigits[] = "0123456789abcdef";
    token += {kDigits[byte >> 4], kDigits[byte & 0x0F]};
  }
  json device = validDevice(credentials(), "user-1");
  device["registration_id"] = token;
  ASSERT_EQ(post("devices", device).status, 204);
  json event = validEvent(credentials());
  event["pushId"] = token + "|||" + credentials().appId;
  ASSERT_EQ(post("event", event).status, 201);
  ASSERT_EQ(post("devices", validDevice(credentials(), "phone-1")).status, 204);  // "a1b2c3"

  // The console sends by user id: the push gets the device's token, as the service addresses it.
  const HttpAnswer sent = control("POST", "send/user-1", R"({"data": {"id": "p-1"}})");
  ASSERT_EQ(sent.status, 200);
  ASSERT_TRUE(endpoint.waitForRequests(1));
  EXPECT_EQ(json::parse(endpoint.requests()[0].body)["data"]["registration_id"], token);

  const std::string shown = sent.body + control("GET", "state").body +
                            control("GET", "requests").body + control("GET", "violations").body;
  for (const std::string& secret : {token, endpointUrl, credentials().secret, credentials().token,
                                    credentials().eventsToken, std::string(kPushAuthorization)}) {
    EXPECT_EQ(shown.find(secret), std::string::npos) << secret;
  }
  EXPECT_NE(shown.find("****" + token.substr(token.size() - 4)), std::string::npos);
  EXPECT_NE(
      shown.find("endpoint ****" + endpointUrl.substr(endpointUrl.size() - 4) + " answered 201"),
      std::string::npos)
      << sent.body;
  const json headers = control("GET", "requests").json()["requests"][0]["headers"];
  EXPECT_NE(std::find(headers.begin(), headers.end(),
                      json::array(
                          {"X-Orvanta-App-Secret",
                           "****" + credentials().secret.substr(credentials().secret.size() - 4)})),
            headers.end())
      << headers;
  EXPECT_EQ(control("GET", "state").json()["devices"][1]["registration_id"], "a1b2c3");
  // The sandbox's own interface, for tests in the same process, keeps them whole.
  EXPECT_EQ(sandbox->devices()[0].registrationId, token);
  EXPECT_EQ(sandbox->requests()[0].header("X-Orvanta-App-Secret"), credentials().secret);
}

TEST_F(HostileClientTest, MalformedRequestsNeitherBringItDownNorLeaveAConnectionHanging) {
  HostileInput input(20'240'601);
  const std::uint16_t port = sandbox->port();
  const auto push = pushHeaders(credentials());
  const auto events = eventHeaders(credentials());
  const std::vector<std::string> valid = {
      ::orvanta::testing::rawRequest("POST", "/v1/devices", port, push,
                                     validDevice(credentials(), "user-1").dump()),
      ::orvanta::testing::rawRequest("POST", "/v1/event", port, events,
                                     validEvent(credentials()).dump()),
      ::orvanta::testing::rawRequest("POST", "/v1/pushes/p-1/reports", port, push,
                                     validReport("p-1").dump()),
      ::orvanta::testing::rawRequest("GET", "/v1/devices/a1b2c3/last_push", port, push),
      ::orvanta::testing::rawRequest("POST", "/_sandbox/send/user-1", port, {},
                                     R"({"data": {"id": "p-1", "title": "Hi"}})"),
      ::orvanta::testing::rawRequest("GET", "/_sandbox/requests?since=0&newest=5", port, {}),
  };
  const std::vector<std::pair<std::string, std::vector<std::string>>> bodies = {
      {"POST /v1/devices", push},
      {"POST /v1/devices/user-1", push},
      {"POST /v1/pushes/p-1/reports", push},
      {"POST /v1/event", events},
      {"PUT /_sandbox/last_push/a1b2c3", {}},
      {"POST /_sandbox/send/user-1", {}},
  };
  for (int i = 0; i < 3000; ++i) {
    std::string request;
    if (i % 2 == 0) {
      request = input.mutate(valid[input.below(valid.size())]);
    } else {
      const auto& [line, headers] = bodies[input.below(bodies.size())];
      const auto space = line.find(' ');
      request = ::orvanta::testing::rawRequest(line.substr(0, space), line.substr(space + 1), port,
                                               headers, input.json());
    }
    ASSERT_TRUE(::orvanta::testing::exchangeRaw(port, request)) << "input " << i;
  }
  // Still serving, and what it shows is still JSON.
  EXPECT_EQ(post("devices", validDevice(credentials(), "user-2")).status, 204);
  for (const char* path : {"state", "requests", "violations"}) {
    const HttpAnswer shown = control("GET", path);
    EXPECT_EQ(shown.status, 200);
    EXPECT_FALSE(json::parse(shown.body, nullptr, false).is_discarded()) << path;
  }
}

}  // namespace
}  // namespace orvanta::sandbox::testing
