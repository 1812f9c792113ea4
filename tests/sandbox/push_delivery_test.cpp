// Sending a push to a device's push endpoint: the endpoint (and the keys) are decoded from the
// device's token, the payload is POSTed to it (encrypted to the keys and signed with the sandbox's
// VAPID key), and what the endpoint answered is recorded.

#include "linux/web_push_crypto.hpp"
#include "orvanta_sandbox/web_push.hpp"
#include "sandbox_client.hpp"
#include "testing/loopback_http_server.hpp"

namespace orvanta::sandbox::testing {
namespace {

using nlohmann::json;

std::string hex(const std::string& bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const unsigned char byte : bytes) {
    text.push_back(kDigits[byte >> 4]);
    text.push_back(kDigits[byte & 0x0F]);
  }
  return text;
}

class PushDeliveryTest : public SandboxTest {
 protected:
  HttpAnswer sendPush(const std::string& target, const json& push) {
    return client.send(
        "POST", "http://127.0.0.1:" + std::to_string(sandbox->port()) + "/_sandbox/send/" + target,
        {"Content-Type: application/json"}, push.dump());
  }

  orvanta::testing::LoopbackHttpServer endpoint{[this](const orvanta::testing::LoopbackRequest&) {
    return orvanta::testing::LoopbackResponse{status, {}, "ok", {}};
  }};
  int status = 201;
};

TEST_F(PushDeliveryTest, ThePayloadIsPostedToTheEndpointTheTokenStandsFor) {
  const std::string token = hex(endpoint.url("/up/device-1"));
  const json payload = {{"aps", {{"alert", "Hi"}}}, {"data", {{"id", "p-1"}}}};
  const HttpAnswer sent = sendPush(token, payload);
  ASSERT_EQ(sent.status, 200);
  EXPECT_EQ(sent.json()["delivery"]["outcome"], "delivered");

  ASSERT_EQ(endpoint.requestCount(), 1U);
  const auto received = endpoint.requests()[0];
  EXPECT_EQ(received.method, "POST");
  EXPECT_EQ(received.path, "/up/device-1");
  EXPECT_EQ(received.header("Content-Type"), "application/json");
  EXPECT_EQ(json::parse(received.body), payload);
  EXPECT_EQ(sandbox->sentPushes()[0].delivery.outcome, Delivery::Outcome::delivered);

  // A bare "data" object reaches the device as a push's dictionary; a device's user id names its
  // token, which the push then carries (upper-case hex reads the same). The control API shows
  // the token masked: it is the device's push endpoint.
  auto device = validDevice(credentials(), "user-7");
  device["registration_id"] = token;
  ASSERT_EQ(post("devices", device).status, 204);
  EXPECT_EQ(sandbox->send(token, {{"id", "p-2"}}).outcome, Delivery::Outcome::delivered);
  ASSERT_EQ(sendPush("user-7", {{"id", "p-3"}}).json()["token"],
            "****" + token.substr(token.size() - 4));
  std::string upper = token;
  std::transform(upper.begin(), upper.end(), upper.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  EXPECT_EQ(sandbox->send(upper, {{"id", "p-4"}}).outcome, Delivery::Outcome::delivered);
  ASSERT_EQ(endpoint.requestCount(), 4U);
  EXPECT_EQ(json::parse(endpoint.requests()[1].body), (json{{"data", {{"id", "p-2"}}}}));
  EXPECT_EQ(json::parse(endpoint.requests()[2].body),
            (json{{"data", {{"id", "p-3"}, {"registration_id", token}}}}));
  EXPECT_TRUE(sandbox->violations().empty());
}

TEST_F(PushDeliveryTest, APushToATokenWithKeysIsEncryptedToThemAndSigned) {
  const auto keys = linux_platform::WebPushKeys::generate().value();
  const auto bytes = linux_platform::pushToken(endpoint.url("/up/device-2"), keys);
  const std::string token = hex(std::string(bytes.begin(), bytes.end()));
  const json payload = {{"aps", {{"alert", "Hi"}}}, {"data", {{"id", "p-1"}}}};
  const Delivery delivery = sandbox->send(token, payload);
  EXPECT_EQ(delivery.outcome, Delivery::Outcome::delivered) << delivery.detail;
  EXPECT_TRUE(delivery.encrypted);
  EXPECT_NE(delivery.detail.find("encrypted to the device's key"), std::string::npos);

  ASSERT_EQ(endpoint.requestCount(), 1U);
  const auto received = endpoint.requests()[0];
  EXPECT_EQ(received.path, "/up/device-2");
  EXPECT_EQ(received.header("Content-Encoding"), "aes128gcm");
  EXPECT_EQ(received.header("Content-Type"), "application/octet-stream");
  EXPECT_EQ(received.body.find("p-1"), std::string::npos);  // nothing in clear
  const auto opened = keys.decrypt(received.body);
  ASSERT_TRUE(opened.plaintext) << opened.error;
  EXPECT_EQ(json::parse(*opened.plaintext), payload);
  // Signed: a JWT for the endpoint's origin and the sandbox's key, which the control API serves.
  const std::string authorization = received.header("Authorization").value_or("");
  EXPECT_EQ(authorization.rfind("vapid t=", 0), 0U) << authorization;
  const std::string key = sandbox->vapidPublicKey();
  EXPECT_EQ(authorization.substr(authorization.size() - key.size() - 4), ", k=" + key);
  const auto claims =
      json::parse(webpush::fromBase64Url(
                      authorization.substr(authorization.find('.') + 1,
                                           authorization.rfind('.') - authorization.find('.') - 1))
                      .value());
  EXPECT_EQ(claims["aud"], "http://127.0.0.1:" + std::to_string(endpoint.port()));
  EXPECT_EQ(
      client
          .send("GET", "http://127.0.0.1:" + std::to_string(sandbox->port()) + "/_sandbox/vapid",
                {}, "")
          .json()["publicKey"],
      key);

  // The console's state says which devices get encrypted pushes: keys in the token, or an
  // endpoint alone (a kit of an earlier version), or none.
  const std::vector<std::pair<std::string, std::string>> devices = {
      {token, "encrypted"}, {hex(endpoint.url("/up/old")), "plain"}, {"a1b2c3d4", "none"}};
  for (std::size_t i = 0; i < devices.size(); ++i) {
    auto device = validDevice(credentials(), "user-" + std::to_string(i));
    device["registration_id"] = devices[i].first;
    ASSERT_EQ(post("devices", device).status, 204);
  }
  const auto shown = sandbox->stateJson()["devices"];
  ASSERT_EQ(shown.size(), devices.size());
  for (std::size_t i = 0; i < devices.size(); ++i) {
    EXPECT_EQ(shown[i]["push_delivery"], devices[i].second);
  }
  EXPECT_EQ(sandbox->sentPushes()[0].delivery.encrypted, true);
}

TEST(SandboxVapidKeyTest, AGivenPrivateKeyIsUsedAndOneThatIsNoneRefused) {
  const auto key = webpush::VapidKey::generate();
  auto sandbox = Sandbox::start({.vapidPrivateKey = key.privateKey()});
  EXPECT_EQ(sandbox->vapidPublicKey(), key.publicKey());
  EXPECT_THROW(Sandbox::start({.vapidPrivateKey = "not a key"}), std::invalid_argument);
}

TEST_F(PushDeliveryTest, EachOutcomeIsRecordedWithWhatHappened) {
  const auto closedPort = [] {
    orvanta::testing::LoopbackHttpServer gone;
    return gone.port();
  }();
  struct Case {
    std::string token;
    int endpointStatus;
    Delivery::Outcome outcome;
    std::string detail;
  };
  const std::vector<Case> cases = {
      {hex(endpoint.url("/up/a")), 201, Delivery::Outcome::delivered, "answered 201"},
      {hex(endpoint.url("/up/a")), 404, Delivery::Outcome::failed, "answered 404: ok"},
      {hex("http://127.0.0.1:" + std::to_string(closedPort) + "/up/a"), 201,
       Delivery::Outcome::failed, "no answer from"},
      // Tokens of other transports: not hex, or bytes that are no http(s) URL.
      {"a1b2c3", 201, Delivery::Outcome::notAvailable, "not a push endpoint address"},
      {"not-hex!", 201, Delivery::Outcome::notAvailable, "not a push endpoint address"},
      {hex("ftp://127.0.0.1/up"), 201, Delivery::Outcome::notAvailable, "not a push endpoint"},
      {hex("http:// 127.0.0.1/"), 201, Delivery::Outcome::notAvailable, "not a push endpoint"},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.token);
    status = each.endpointStatus;
    const Delivery delivery = sandbox->send(each.token, {{"id", "p-1"}});
    EXPECT_EQ(delivery.outcome, each.outcome);
    EXPECT_NE(delivery.detail.find(each.detail), std::string::npos) << delivery.detail;
    EXPECT_EQ(sandbox->sentPushes().back().delivery.outcome, each.outcome);
  }
  // Every push became the device's last push, whatever its delivery.
  EXPECT_EQ(sandbox->stateJson()["last_pushes"].size(), 6U);
}

}  // namespace
}  // namespace orvanta::sandbox::testing
