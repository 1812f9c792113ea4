#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "sandbox_client.hpp"

namespace orvanta::sandbox::testing {
namespace {

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

// Each request breaks one rule of the services' contract: it is refused with a status, a
// violation of its kind is recorded with a reason, and nothing is stored.
TEST_F(RequestChecksTest, RequestsThatBreakTheContractAreRefusedWithTheirReason) {
  const Credentials& c = credentials();
  const std::string typed = "Content-Type: application/json";
  const std::string token = "X-Orvanta-App-Token: " + c.token;
  const std::string secret = "X-Orvanta-App-Secret: " + c.secret;
  const std::string auth = "Authorization: " + std::string(kPushAuthorization);
  const std::string events = "Authorization: " + c.eventsToken;
  const std::string device = validDevice(c, "user-1").dump();
  const std::string event = validEvent(c).dump();
  const std::string notJson = R"({"pushId": "a|||b",)";
  using Kind = Violation::Kind;
  struct Case {
    std::string method;
    std::string path;
    std::vector<std::string> headers;
    std::optional<std::string> body;
    long status;
    Kind kind;
    std::string reason;  // a fragment of it
  };
  const std::string withCharset = "Content-Type: application/json; charset=utf-8";
  // clang-format off
  const std::vector<Case> cases = {
      // Credentials, per service.
      {"POST", "devices", {typed, "X-Orvanta-App-Token: wrong", secret, auth}, device, 401,
       Kind::credentials, "wrong \"X-Orvanta-App-Token\""},
      {"POST", "devices", {typed, token, "X-Orvanta-App-Secret: wrong", auth}, device, 401,
       Kind::credentials, "wrong \"X-Orvanta-App-Secret\""},
      {"POST", "devices", {typed, token, auth}, device, 401, Kind::credentials,
       "missing \"X-Orvanta-App-Secret\""},
      {"POST", "devices", {typed, token, secret, events}, device, 401, Kind::credentials,
       "not the push service's fixed value"},
      {"POST", "devices", {typed, token, secret}, device, 401, Kind::credentials,
       "missing \"Authorization\""},
      {"GET", "devices/a1b2c3/last_push", {"X-Orvanta-App-Token: wrong"}, {}, 401,
       Kind::credentials, ""},
      {"POST", "event", {typed, auth}, event, 401, Kind::credentials, ""},
      {"POST", "event", {typed}, event, 401, Kind::credentials, "missing \"Authorization\""},
      // Every request, with a body or without, is labelled exactly as JSON.
      {"POST", "event", {events}, event, 400, Kind::contract, "Content-Type"},
      {"POST", "devices", {token, secret, auth, "Content-Type: text/plain"}, device, 400,
       Kind::contract, "Content-Type"},
      {"POST", "devices", {token, secret, auth, withCharset}, device, 400, Kind::contract,
       "not exactly \"application/json\""},
      {"POST", "devices", {token, secret, auth, "Content-Type: Application/JSON"}, device, 400,
       Kind::contract, "not exactly \"application/json\""},
      {"POST", "devices", {token, secret, auth, "Content-Type: application/json;"}, device, 400,
       Kind::contract, "not exactly \"application/json\""},
      {"GET", "devices/a1b2c3/last_push", {token, secret, auth}, {}, 400, Kind::contract,
       "missing \"Content-Type"},
      {"POST", "devices/a1b2c3", {token, secret, auth}, {}, 400, Kind::contract, "Content-Type"},
      {"POST", "devices/a1b2c3", {token, secret, auth, "Content-Type: text/plain"}, {}, 400,
       Kind::contract, "Content-Type"},
      // Bodies that are not JSON.
      {"POST", "event", {typed, events}, notJson, 400, Kind::contract, "the body is not JSON"},
      {"POST", "devices", {typed, token, secret, auth}, notJson, 400, Kind::contract,
       "the body is not JSON"},
      {"POST", "pushes/p-1/reports", {typed, token, secret, auth}, notJson, 400, Kind::contract,
       "the body is not JSON"},
      // Events carry no push credentials; no header field comes twice, whatever the case of its
      // name and even with the same value.
      {"POST", "event", {typed, events, token}, event, 400, Kind::contract,
       "the push service's header"},
      {"POST", "event", {typed, events, "x-orvanta-app-secret: s"}, event, 400, Kind::contract,
       "the push service's header"},
      {"POST", "event", {typed, events, "authorization: " + c.eventsToken}, event, 400,
       Kind::contract, "appears more than once"},
      {"POST", "devices", {typed, token, secret, auth, typed}, device, 400, Kind::contract,
       "appears more than once"},
      {"GET", "devices/a1b2c3/last_push", {typed, token, secret, auth, secret}, {}, 400,
       Kind::contract, "appears more than once"},
      // Unknown paths and wrong methods.
      {"POST", "device", {typed, token, secret, auth}, "{}", 404, Kind::routing, ""},
      {"POST", "devices/", {typed, token, secret, auth}, "{}", 404, Kind::routing, ""},
      {"GET", "pushes/p-1/report", {typed, token, secret, auth}, {}, 404, Kind::routing, ""},
      {"POST", "../v2/event", {typed, token, secret, auth}, "{}", 404, Kind::routing, ""},
      {"GET", "devices", {typed, token, secret, auth}, {}, 405, Kind::routing, ""},
      {"POST", "devices/a1b2c3/last_push", {typed, token, secret, auth}, "{}", 405,
       Kind::routing, ""},
      {"PUT", "event", {typed, events}, "{}", 405, Kind::routing, ""},
  };
  // clang-format on
  for (const auto& each : cases) {
    SCOPED_TRACE(each.method + " " + each.path + " " + each.reason);
    const std::size_t before = sandbox->violations().size();
    EXPECT_EQ(client.send(each.method, url(each.path), each.headers, each.body).status,
              each.status);
    const auto violations = sandbox->violations();
    ASSERT_EQ(violations.size(), before + 1);
    EXPECT_EQ(violations.back().kind, each.kind);
    EXPECT_NE(violations.back().reason.find(each.reason), std::string::npos)
        << violations.back().reason;
  }
  EXPECT_TRUE(sandbox->devices().empty());
  EXPECT_EQ(sandbox->eventCount(), 0U);
  EXPECT_TRUE(sandbox->reports().empty());

  // Header names are not case-sensitive; a body-less call labelled as JSON passes.
  EXPECT_EQ(client
                .send("POST", url("devices"),
                      {"content-type: application/json", "x-orvanta-app-token: " + c.token,
                       "X-ORVANTA-APP-SECRET: " + c.secret,
                       "authorization: " + std::string(kPushAuthorization)},
                      device)
                .status,
            204);
  EXPECT_EQ(client.send("GET", url("devices/a1b2c3/last_push"), pushHeaders(c)).status, 404);
  // The services' root answers reachability checks, with no credentials and no violation.
  const std::size_t violations = sandbox->violations().size();
  EXPECT_EQ(client.send("GET", url(""), {}).status, 204);
  EXPECT_EQ(sandbox->violations().size(), violations);
  expectStillServing();
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
