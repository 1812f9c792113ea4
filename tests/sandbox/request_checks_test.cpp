#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "sandbox_client.hpp"

namespace orvanta::sandbox::testing {
namespace {

using nlohmann::json;

class RequestChecksTest : public SandboxTest {
 protected:
  // Sends raw bytes on a fresh connection and returns what comes back until the server closes
  // the connection or a complete answer head has arrived.
  std::string sendRaw(const std::string& bytes) const {
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(sandbox->port());
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(bytes.size()));
    ::shutdown(fd, SHUT_WR);
    std::string answer;
    char buffer[512];
    ssize_t got = 0;
    while ((got = ::recv(fd, buffer, sizeof buffer, 0)) > 0) {
      answer.append(buffer, static_cast<std::size_t>(got));
    }
    ::close(fd);
    return answer;
  }

  void expectStillServing() { EXPECT_EQ(post("event", validEvent(credentials())).status, 201); }
};

TEST_F(RequestChecksTest, CredentialsAreCheckedPerService) {
  const Credentials& c = credentials();
  const std::string auth = "Authorization: " + std::string(kPushAuthorization);
  const std::string device = validDevice(c, "user-1").dump();
  struct Case {
    std::vector<std::string> headers;
    const char* expected;
  };
  const std::vector<Case> pushCases = {
      {{"X-Orvanta-App-Token: wrong", "X-Orvanta-App-Secret: " + c.secret, auth},
       "wrong \"X-Orvanta-App-Token\""},
      {{"X-Orvanta-App-Token: " + c.token, "X-Orvanta-App-Secret: wrong", auth},
       "wrong \"X-Orvanta-App-Secret\""},
      {{"X-Orvanta-App-Token: " + c.token, auth}, "missing \"X-Orvanta-App-Secret\""},
      {{"X-Orvanta-App-Token: " + c.token, "X-Orvanta-App-Secret: " + c.secret,
        "Authorization: " + c.eventsToken},
       "not the push service's fixed value"},
      {{"X-Orvanta-App-Token: " + c.token, "X-Orvanta-App-Secret: " + c.secret},
       "missing \"Authorization\""},
  };
  for (const auto& pushCase : pushCases) {
    SCOPED_TRACE(pushCase.expected);
    auto headers = pushCase.headers;
    headers.emplace_back("Content-Type: application/json");
    const HttpAnswer answer = client.send("POST", url("devices"), headers, device);
    EXPECT_EQ(answer.status, 401);
    EXPECT_NE(lastViolation().find(pushCase.expected), std::string::npos) << lastViolation();
    EXPECT_EQ(sandbox->violations().back().kind, Violation::Kind::credentials);
  }
  EXPECT_EQ(
      client.send("GET", url("devices/a1b2c3/last_push"), {"X-Orvanta-App-Token: wrong"}).status,
      401);

  // The event service wants its own token, not the push service's value.
  const std::string event = validEvent(c).dump();
  EXPECT_EQ(
      client.send("POST", url("event"), {"Content-Type: application/json", auth}, event).status,
      401);
  EXPECT_EQ(client.send("POST", url("event"), {"Content-Type: application/json"}, event).status,
            401);
  EXPECT_TRUE(sandbox->devices().empty());
  EXPECT_EQ(sandbox->eventCount(), 0U);

  // Header names are not case-sensitive.
  EXPECT_EQ(client
                .send("POST", url("devices"),
                      {"content-type: application/json", "x-orvanta-app-token: " + c.token,
                       "X-ORVANTA-APP-SECRET: " + c.secret,
                       "authorization: " + std::string(kPushAuthorization)},
                      device)
                .status,
            204);
}

TEST_F(RequestChecksTest, BodiesMustBeLabelledAndValidJsonAndTheServerKeepsServing) {
  const auto withoutContentType = [&](std::vector<std::string> headers) {
    headers.erase(headers.begin());  // "Content-Type: application/json" comes first
    return headers;
  };
  EXPECT_EQ(client
                .send("POST", url("event"), withoutContentType(eventHeaders(credentials())),
                      validEvent(credentials()).dump())
                .status,
            400);
  EXPECT_NE(lastViolation().find("Content-Type"), std::string::npos);
  auto textPlain = withoutContentType(pushHeaders(credentials()));
  textPlain.emplace_back("Content-Type: text/plain");
  EXPECT_EQ(
      client.send("POST", url("devices"), textPlain, validDevice(credentials(), "u").dump()).status,
      400);

  for (const std::string path : {"event", "devices", "pushes/p-1/reports"}) {
    SCOPED_TRACE(path);
    const auto headers = path == "event" ? eventHeaders(credentials()) : pushHeaders(credentials());
    const HttpAnswer answer = client.send("POST", url(path), headers, R"({"pushId": "a|||b",)");
    EXPECT_EQ(answer.status, 400);
    EXPECT_NE(lastViolation().find("the body is not JSON"), std::string::npos);
    expectStillServing();
  }
  EXPECT_EQ(sandbox->eventCount(), 1U);
}

TEST_F(RequestChecksTest, EveryRequestIsLabelledExactlyAsJsonWithBodyOrWithout) {
  const Credentials& c = credentials();
  const auto pushWith = [&](const std::string& contentType) {
    auto headers = pushHeaders(c);
    headers.erase(headers.begin());  // "Content-Type: application/json" comes first
    if (!contentType.empty()) {
      headers.push_back("Content-Type: " + contentType);
    }
    return headers;
  };
  const std::string device = validDevice(c, "user-1").dump();
  for (const std::string contentType :
       {"application/json; charset=utf-8", "Application/JSON", "application/json;"}) {
    SCOPED_TRACE(contentType);
    EXPECT_EQ(client.send("POST", url("devices"), pushWith(contentType), device).status, 400);
    EXPECT_NE(lastViolation().find("not exactly \"application/json\""), std::string::npos)
        << lastViolation();
  }
  // The body-less requests carry the header too.
  EXPECT_EQ(client.send("GET", url("devices/a1b2c3/last_push"), pushWith("")).status, 400);
  EXPECT_NE(lastViolation().find("missing \"Content-Type"), std::string::npos);
  EXPECT_EQ(client.send("POST", url("devices/a1b2c3"), pushWith("")).status, 400);
  EXPECT_EQ(client.send("POST", url("devices/a1b2c3"), pushWith("text/plain")).status, 400);
  EXPECT_TRUE(sandbox->devices().empty());
  EXPECT_EQ(sandbox->violations().size(), 6U);
  EXPECT_EQ(sandbox->violations().back().kind, Violation::Kind::contract);
  EXPECT_EQ(
      client.send("GET", url("devices/a1b2c3/last_push"), pushWith("application/json")).status,
      404);
}

TEST_F(RequestChecksTest, EventsCarryNoPushCredentialsAndNoHeaderFieldTwice) {
  const Credentials& c = credentials();
  const std::string event = validEvent(c).dump();
  for (const std::string& extra :
       std::vector<std::string>{"X-Orvanta-App-Token: " + c.token, "x-orvanta-app-secret: s"}) {
    SCOPED_TRACE(extra);
    auto headers = eventHeaders(c);
    headers.push_back(extra);
    EXPECT_EQ(client.send("POST", url("event"), headers, event).status, 400);
    EXPECT_NE(lastViolation().find("the push service's header"), std::string::npos)
        << lastViolation();
  }

  const auto twice = [](std::vector<std::string> headers, const std::string& repeated) {
    headers.push_back(repeated);
    return headers;
  };
  // Even a repeat with the same value, and whatever the case of the name.
  EXPECT_EQ(client
                .send("POST", url("event"),
                      twice(eventHeaders(c), "authorization: " + c.eventsToken), event)
                .status,
            400);
  EXPECT_NE(lastViolation().find("appears more than once"), std::string::npos) << lastViolation();
  EXPECT_EQ(
      client
          .send("POST", url("devices"), twice(pushHeaders(c), "Content-Type: application/json"),
                validDevice(c, "u").dump())
          .status,
      400);
  EXPECT_EQ(client
                .send("GET", url("devices/a1b2c3/last_push"),
                      twice(pushHeaders(c), "X-Orvanta-App-Secret: " + c.secret))
                .status,
            400);
  const auto violations = sandbox->violations();
  ASSERT_EQ(violations.size(), 5U);
  for (const auto& violation : violations) {
    EXPECT_EQ(violation.kind, Violation::Kind::contract);
  }
  EXPECT_EQ(sandbox->eventCount(), 0U);
  EXPECT_TRUE(sandbox->devices().empty());
}

TEST_F(RequestChecksTest, UnknownPathsAndWrongMethodsAreRefused) {
  const auto headers = pushHeaders(credentials());
  EXPECT_EQ(client.send("POST", url("device"), headers, "{}").status, 404);
  EXPECT_EQ(client.send("POST", url("devices/"), headers, "{}").status, 404);
  EXPECT_EQ(client.send("GET", url("pushes/p-1/report"), headers).status, 404);
  EXPECT_EQ(client.send("POST", sandbox->baseUrl() + "../v2/event", headers, "{}").status, 404);
  EXPECT_EQ(client.send("GET", url("devices"), headers).status, 405);
  EXPECT_EQ(client.send("POST", url("devices/a1b2c3/last_push"), headers, "{}").status, 405);
  EXPECT_EQ(client.send("PUT", url("event"), eventHeaders(credentials()), "{}").status, 405);
  const auto violations = sandbox->violations();
  ASSERT_EQ(violations.size(), 7U);
  for (const auto& violation : violations) {
    EXPECT_EQ(violation.kind, Violation::Kind::routing);
  }
}

TEST_F(RequestChecksTest, MalformedHttpIsRefusedAndTheServerKeepsServing) {
  EXPECT_EQ(sendRaw("POST /v1/event HTTP/1.1\r\nHost: x\r\nno colon here\r\n\r\n").substr(0, 12),
            "HTTP/1.1 400");
  expectStillServing();
  EXPECT_EQ(
      sendRaw("POST /v1/event HTTP/1.1\r\nHost: x\r\nContent-Length: lots\r\n\r\n").substr(0, 12),
      "HTTP/1.1 400");
  expectStillServing();
  const std::string garbage =
      sendRaw(std::string("\x16\x03\x01\x02\x00\x01\x00\x01\xfc\r\n\r\n", 13));
  EXPECT_TRUE(garbage.empty() || garbage.substr(0, 10) == "HTTP/1.1 4") << garbage;
  expectStillServing();
  EXPECT_EQ(sendRaw("GET /v1/event HTTP/7.0\r\nHost: x\r\n\r\n").substr(0, 12), "HTTP/1.1 505");
  expectStillServing();
}

}  // namespace
}  // namespace orvanta::sandbox::testing
