// A hostile local client of orvanta-distributor: a web page that POSTs to an application's
// endpoint, a program that registers or unregisters in another application's name, POSTs that an
// application with a VAPID key did not have signed, and malformed requests and calls in a loop.
// The distributor is a development tool, but it runs on the developer's own desktop. (The
// connector here takes pushes in clear, so that what the distributor forwards is seen as it
// came.)

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "linux/file_secure_store.hpp"
#include "orvanta_distributor/distributor.hpp"
#include "testing/dbus/private_session_bus.hpp"
#include "testing/hostile_input.hpp"
#include "testing/platform_test.hpp"
#include "unified_push_support.hpp"

namespace orvanta {
namespace {

using ::testing::HasSubstr;
using namespace std::chrono_literals;

constexpr const char* kDistributorPath = "/org/unifiedpush/Distributor";

class DistributorTest : public testing::PlatformTest {
 protected:
  void SetUp() override {
    PlatformTest::SetUp();
    ASSERT_TRUE(bus_.started()) << bus_.failure();
    if (std::getenv(linux_platform::kDistributorEnvironmentVariable) != nullptr) {
      ::unsetenv(linux_platform::kDistributorEnvironmentVariable);
    }
    distributor_ = distributor::Distributor::start({.busAddress = bus_.address()});
    connector_ = std::make_unique<testing::ConnectorProbe>(
        bus_.address(), platform()->secureStore,
        testing::ConnectorProbe::Settings{.acceptPlainMessages = true});
    endpoint_ = connector_->registerAndWait().endpoint.value_or("");
    ASSERT_FALSE(endpoint_.empty());
  }

  // Register through Distributor1 as `peer`: the answer's result and reason.
  std::pair<std::string, std::string> registerAs(testing::BusPeer& peer, const std::string& service,
                                                 const std::string& token) {
    GVariant* reply = nullptr;
    auto answer = peer.call(
        distributor_->busName(), kDistributorPath, "org.unifiedpush.Distributor1", "Register",
        g_variant_new("(sss)", service.c_str(), token.c_str(), "Evil"), "(ss)", &reply);
    if (reply == nullptr) {
      return {"", answer.failure.value_or("")};
    }
    const gchar* result = nullptr;
    const gchar* reason = nullptr;
    g_variant_get(reply, "(&s&s)", &result, &reason);
    std::pair<std::string, std::string> outcome{result, reason};
    g_variant_unref(reply);
    return outcome;
  }

  testing::PrivateSessionBus bus_;
  std::unique_ptr<distributor::Distributor> distributor_;
  std::unique_ptr<testing::ConnectorProbe> connector_;
  std::string endpoint_;
};

TEST_F(DistributorTest, AWebPageCannotPushToTheDesktop) {
  // What a page's fetch() or form sends: "text/plain" needs no permission, but names the page.
  for (const char* origin : {"https://evil.example", "null", "http://127.0.0.1:1"}) {
    SCOPED_TRACE(origin);
    EXPECT_EQ(testing::postTo(endpoint_, R"({"data": {"id": "forged"}})",
                              {"Content-Type: text/plain", std::string("Origin: ") + origin}),
              403);
  }
  EXPECT_TRUE(distributor_->forwarded().empty());
  // The application server sends no "Origin".
  EXPECT_EQ(testing::postTo(endpoint_, R"({"data": {"id": "p-1"}})"), 201);
  ASSERT_TRUE(connector_->pushes.waitFor(1));
  EXPECT_EQ(connector_->pushes.items().size(), 1U);
}

TEST_F(DistributorTest, AProgramRegistersAndUnregistersOnlyItself) {
  testing::BusPeer stranger(bus_.address());
  // Another application's name, on the bus or not: its messages would come to the stranger.
  for (const char* service : {testing::kTestApplicationId, "io.orvanta.Elsewhere"}) {
    SCOPED_TRACE(service);
    const auto [result, reason] = registerAs(stranger, service, "stolen-token");
    EXPECT_EQ(result, "REGISTRATION_FAILED");
    EXPECT_EQ(reason, std::string("the caller does not own the service name ") + service);
  }
  GVariantBuilder arguments;
  g_variant_builder_init(&arguments, linux_platform::variantType("a{sv}"));
  g_variant_builder_add(&arguments, "{sv}", "service",
                        g_variant_new_string(testing::kTestApplicationId));
  g_variant_builder_add(&arguments, "{sv}", "token", g_variant_new_string("stolen-token"));
  GVariant* reply = nullptr;
  stranger.call(distributor_->busName(), kDistributorPath, "org.unifiedpush.Distributor2",
                "Register", g_variant_new("(@a{sv})", g_variant_builder_end(&arguments)), "(a{sv})",
                &reply);
  ASSERT_NE(reply, nullptr);
  gchar* printed = g_variant_print(reply, FALSE);
  EXPECT_THAT(printed, HasSubstr("REGISTRATION_FAILED"));
  g_free(printed);
  g_variant_unref(reply);
  EXPECT_EQ(distributor_->registrations().size(), 1U);
  EXPECT_EQ(distributor_->refusals(), 3U);

  // The application's token is no secret, but only the application unregisters itself.
  const std::string token = distributor_->registrations()[0].token;
  EXPECT_THAT(stranger
                  .call(distributor_->busName(), kDistributorPath, "org.unifiedpush.Distributor1",
                        "Unregister", g_variant_new("(s)", token.c_str()))
                  .failure.value_or(""),
              HasSubstr("AccessDenied"));
  EXPECT_EQ(distributor_->registrations().size(), 1U);
  EXPECT_EQ(testing::postTo(endpoint_, R"({"data": {"id": "p-1"}})"), 201);
  ASSERT_TRUE(connector_->pushes.waitFor(1));

  // A program that owns a name registers under it.
  testing::BusPeer other(bus_.address(), "io.orvanta.Other");
  ASSERT_TRUE(other.ready()) << other.failure();
  EXPECT_EQ(registerAs(other, "io.orvanta.Other", "its-token").first, "REGISTRATION_SUCCEEDED");
}

TEST_F(DistributorTest, AnApplicationWithAVapidKeyGetsOnlyThePushesItsServerSigned) {
  namespace webpush = sandbox::webpush;
  const auto server = webpush::VapidKey::generate();
  const auto stranger = webpush::VapidKey::generate();
  testing::ConnectorProbe signedOnly(
      bus_.address(),
      std::make_shared<linux_platform::FileSecureStore>(bus_.directory().file("vapid-store")),
      testing::ConnectorProbe::Settings{.applicationId = "io.orvanta.Signed",
                                        .vapidPublicKey = server.publicKey()});
  const auto registered = signedOnly.registerAndWait();
  ASSERT_TRUE(registered.endpoint) << registered.error.value_or("");
  const std::string endpoint = *registered.endpoint;
  ASSERT_EQ(distributor_->registrations().size(), 2U);
  EXPECT_EQ(distributor_->registrations()[1].vapid, server.publicKey());

  const auto now = std::chrono::system_clock::now();
  const std::string good = server.authorization(endpoint, "mailto:a@example.com", now);
  std::string badSignature = good;
  const auto signatureEnd = badSignature.find(", k=");
  badSignature[signatureEnd - 3] = badSignature[signatureEnd - 3] == 'A' ? 'B' : 'A';
  std::string otherKeyNamed = stranger.authorization(endpoint, "mailto:a@example.com", now);
  // The server's key named, but the token signed by another.
  std::string forgedWithServerKey =
      otherKeyNamed.substr(0, otherKeyNamed.find(", k=")) + ", k=" + server.publicKey();
  const std::vector<std::tuple<const char*, std::vector<std::string>, long>> cases = {
      {"unsigned", {}, 401},
      {"another scheme", {"Authorization: Bearer x"}, 401},
      {"no key", {"Authorization: vapid t=a.b.c"}, 401},
      {"another key", {"Authorization: " + otherKeyNamed}, 403},
      {"signed by another key", {"Authorization: " + forgedWithServerKey}, 403},
      {"a changed signature", {"Authorization: " + badSignature}, 403},
      {"expired",
       {"Authorization: " + server.authorization(endpoint, "mailto:a@example.com", now - 13h)},
       403},
      {"too far ahead",
       {"Authorization: " + server.authorization(endpoint, "mailto:a@example.com", now + 13h)},
       403},
      {"another push server",
       {"Authorization: " + server.authorization("http://127.0.0.1:1/up/x", "mailto:a@e.com", now)},
       403},
  };
  const std::string push = registered.sealed(R"({"data": {"id": "p-1"}})");
  for (const auto& [name, headers, status] : cases) {
    SCOPED_TRACE(name);
    EXPECT_EQ(testing::postTo(endpoint, push, headers), status);
  }
  EXPECT_TRUE(distributor_->forwarded().empty());
  EXPECT_EQ(testing::postTo(endpoint, push, {"Authorization: " + good}), 201);
  ASSERT_TRUE(signedOnly.pushes.waitFor(1));
  EXPECT_EQ(signedOnly.pushes.items()[0], (ValueMap{{"data", ValueMap{{"id", "p-1"}}}}));
  // Forwarded byte for byte: the push stays encrypted on its way.
  ASSERT_EQ(distributor_->forwarded().size(), 1U);
  EXPECT_EQ(distributor_->forwarded()[0].body, push);

  // A key that is none is refused at registration.
  testing::BusPeer other(bus_.address(), "io.orvanta.Other");
  ASSERT_TRUE(other.ready()) << other.failure();
  GVariantBuilder arguments;
  g_variant_builder_init(&arguments, linux_platform::variantType("a{sv}"));
  g_variant_builder_add(&arguments, "{sv}", "service", g_variant_new_string("io.orvanta.Other"));
  g_variant_builder_add(&arguments, "{sv}", "token", g_variant_new_string("its-token"));
  g_variant_builder_add(&arguments, "{sv}", "vapid", g_variant_new_string("BAAA"));
  GVariant* reply = nullptr;
  other.call(distributor_->busName(), kDistributorPath, "org.unifiedpush.Distributor2", "Register",
             g_variant_new("(@a{sv})", g_variant_builder_end(&arguments)), "(a{sv})", &reply);
  ASSERT_NE(reply, nullptr);
  gchar* printed = g_variant_print(reply, FALSE);
  EXPECT_THAT(printed, HasSubstr("the VAPID key is not a P-256 public key"));
  g_free(printed);
  g_variant_unref(reply);
}

TEST_F(DistributorTest, MalformedRequestsAndCallsNeitherBringItDownNorReachTheApplication) {
  testing::HostileInput input(20'240'602);
  const std::uint16_t port = distributor_->port();
  const std::string path = endpoint_.substr(endpoint_.find("/up/"));
  // Whoever knows an endpoint of an application without a VAPID key may post to it: these reach
  // the application when they happen to be whole, and it drops what is no push.
  const std::string post = testing::rawRequest("POST", path, port, {"Content-Type: text/plain"},
                                               R"({"data": {"id": "p-1"}})");
  const std::string fromPage = testing::rawRequest(
      "POST", path, port, {"Content-Type: text/plain", "Origin: https://evil.example"}, "{}");
  for (int i = 0; i < 2000; ++i) {
    std::string request;
    switch (i % 3) {
      case 0:
        request = testing::rawRequest("POST", i % 2 == 0 ? path : input.mutate(path), port, {},
                                      input.json());
        break;
      case 1:
        request = input.mutate(post);
        break;
      default:
        request = input.mutate(fromPage);
        break;
    }
    ASSERT_TRUE(testing::exchangeRaw(port, request))
        << "input " << i << ": " << ::testing::PrintToString(request);
  }
  const std::size_t reached = distributor_->forwarded().size();
  // Calls of every shape GIO lets through: the types are the interface's, the values anything.
  testing::BusPeer stranger(bus_.address());
  const std::vector<std::string> texts = {"",
                                          testing::kTestApplicationId,
                                          ":1.1",
                                          "org.unifiedpush.Distributor.orvanta",
                                          "a..b",
                                          std::string(20'000, 'x'),
                                          "io.orvanta.Test\n",
                                          "stolen-token"};
  for (int i = 0; i < 200; ++i) {
    const auto text = [&] { return texts[input.below(texts.size())]; };
    if (i % 2 == 0) {
      stranger.call(distributor_->busName(), kDistributorPath, "org.unifiedpush.Distributor1",
                    i % 4 == 0 ? "Register" : "Unregister",
                    i % 4 == 0
                        ? g_variant_new("(sss)", text().c_str(), text().c_str(), text().c_str())
                        : g_variant_new("(s)", text().c_str()));
      continue;
    }
    GVariantBuilder arguments;
    g_variant_builder_init(&arguments, linux_platform::variantType("a{sv}"));
    for (std::size_t member = input.below(6); member > 0; --member) {
      static const char* const kKeys[] = {"service", "token", "description", "vapid", "x"};
      GVariant* value = input.below(3) == 0 ? g_variant_new_int32(static_cast<gint32>(i))
                                            : g_variant_new_string(text().c_str());
      g_variant_builder_add(&arguments, "{sv}", kKeys[input.below(std::size(kKeys))], value);
    }
    stranger.call(distributor_->busName(), kDistributorPath, "org.unifiedpush.Distributor2",
                  i % 3 == 0 ? "Unregister" : "Register",
                  g_variant_new("(@a{sv})", g_variant_builder_end(&arguments)));
  }
  // No call changed the registrations: the application is still registered and reached.
  EXPECT_EQ(distributor_->registrations().size(), 1U);
  EXPECT_EQ(testing::postTo(endpoint_, R"({"data": {"id": "last"}})"), 201);
  ASSERT_TRUE(
      distributor_->waitFor([&] { return distributor_->forwarded().size() == reached + 1; }, 20s));
  ASSERT_TRUE(connector_->pushes.waitUntil([](const std::vector<ValueMap>& pushes) {
    return !pushes.empty() && pushes.back() == ValueMap{{"data", ValueMap{{"id", "last"}}}};
  }));
}

}  // namespace
}  // namespace orvanta
