// The UnifiedPush connector against orvanta-distributor on a private bus: registration, the
// calls it must ignore, the distributor followed across its restarts, a stranger's calls refused,
// the endpoint and the keys kept across a restart, messages that do not decrypt or are in clear,
// and message bytes that are no push.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "core/health.hpp"
#include "linux/file_secure_store.hpp"
#include "orvanta_distributor/distributor.hpp"
#include "testing/dbus/private_session_bus.hpp"
#include "testing/platform_test.hpp"
#include "unified_push_support.hpp"

namespace orvanta {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;
using namespace std::chrono_literals;

class UnifiedPushConnectorTest : public testing::PlatformTest {
 protected:
  void SetUp() override {
    PlatformTest::SetUp();
    enableLogging();
    ASSERT_TRUE(bus_.started()) << bus_.failure();
    // The user's choice of distributor would take precedence over the test's.
    if (std::getenv(linux_platform::kDistributorEnvironmentVariable) != nullptr) {
      ::unsetenv(linux_platform::kDistributorEnvironmentVariable);
    }
  }

  std::unique_ptr<distributor::Distributor> startDistributor(distributor::Options options = {}) {
    options.busAddress = bus_.address();
    return distributor::Distributor::start(std::move(options));
  }

  std::unique_ptr<testing::ConnectorProbe> makeConnector(std::string chosen = {}) {
    return std::make_unique<testing::ConnectorProbe>(bus_.address(), platform()->secureStore,
                                                     std::move(chosen));
  }

  std::string stored(const char* key) const {
    auto record = platform()->secureStore->read(linux_platform::kUnifiedPushAccount);
    return record ? nlohmann::json::parse(*record).value(key, "") : "";
  }
  std::string token() const { return stored("token"); }
  std::string storedPrivateKey() const { return stored("privateKey"); }
  std::string storedEndpoint() const { return stored("endpoint"); }

  testing::PrivateSessionBus bus_;
};

TEST_F(UnifiedPushConnectorTest,
       RegistrationGivesAnEndpointThatDeliversPushesThroughEitherVersion) {
  for (const bool version2 : {true, false}) {
    SCOPED_TRACE(version2 ? "Distributor2" : "Distributor1");
    auto distributor = startDistributor({.offerVersion2 = version2});
    auto connector = makeConnector();
    const auto outcome = connector->registerAndWait();
    ASSERT_TRUE(outcome.endpoint) << outcome.error.value_or("");
    EXPECT_THAT(*outcome.endpoint, StartsWith(distributor->endpointBase()));

    const auto registrations = distributor->registrations();
    ASSERT_EQ(registrations.size(), 1U);
    EXPECT_EQ(registrations[0].service, testing::kTestApplicationId);
    EXPECT_EQ(registrations[0].description, "Orvanta test");
    EXPECT_EQ(registrations[0].token, token());
    EXPECT_EQ(registrations[0].token.size(), 36U);  // a UUID
    EXPECT_EQ(registrations[0].interfaceVersion, version2 ? 2 : 1);
    EXPECT_FALSE(registrations[0].vapid);

    EXPECT_EQ(
        testing::postTo(*outcome.endpoint, outcome.sealed(R"({"data": {"id": "p-1", "n": 2}})")),
        201);
    ASSERT_TRUE(connector->pushes.waitFor(1));
    EXPECT_EQ(connector->pushes.items()[0],
              (ValueMap{{"data", ValueMap{{"id", "p-1"}, {"n", 2}}}}));

    // Giving the address up tells the distributor, which forgets the endpoint.
    connector->unregister();
    ASSERT_TRUE(distributor->waitFor([&] { return distributor->registrations().empty(); }, 20s));
    EXPECT_EQ(testing::postTo(*outcome.endpoint, "{}"), 404);
  }
}

TEST_F(UnifiedPushConnectorTest, EveryFailureSaysWhy) {
  struct Case {
    const char* name;
    std::vector<distributor::Options> distributors;
    std::string chosen;
    std::string applicationId;
    const char* expected;
  };
  const std::string app = testing::kTestApplicationId;
  // clang-format off
  const std::vector<Case> cases = {
      {"no distributor", {}, "", app, "No push distributor on the session D-Bus"},
      {"a refusal", {{.refuseReason = "not today"}}, "", app,
       "The push distributor org.unifiedpush.Distributor.orvanta refused the registration: not "
       "today"},
      {"a refusal through Distributor1", {{.refuseReason = "full", .offerVersion2 = false}}, "",
       app, "refused the registration: full"},
      {"the chosen one is missing", {{}}, "elsewhere", app,
       "The chosen push distributor org.unifiedpush.Distributor.elsewhere is not on the session "
       "D-Bus"},
      {"several, none chosen", {{.name = "one"}, {.name = "two"}}, "", app,
       "Several push distributors on the session D-Bus (org.unifiedpush.Distributor.one, "
       "org.unifiedpush.Distributor.two): choose one with ORVANTA_PUSH_DISTRIBUTOR"},
      {"no application id", {{}}, "", "", "No application id"},
      {"an application id that is no bus name", {{}}, "", "shop", "is not a reverse-DNS name"},
      {"a VAPID key that is none", {{}}, "", app,
       "The VAPID public key \"BAAA\" is not a P-256 public key"},
  };
  // clang-format on
  for (const auto& each : cases) {
    SCOPED_TRACE(each.name);
    testing::PrivateSessionBus bus;
    ASSERT_TRUE(bus.started()) << bus.failure();
    std::vector<std::unique_ptr<distributor::Distributor>> running;
    for (auto options : each.distributors) {
      options.busAddress = bus.address();
      running.push_back(distributor::Distributor::start(options));
    }
    testing::ConnectorProbe connector(
        bus.address(),
        std::make_shared<linux_platform::FileSecureStore>(bus.directory().file("store")),
        testing::ConnectorProbe::Settings{
            .distributor = each.chosen,
            .applicationId = each.applicationId,
            .vapidPublicKey =
                std::string(each.name).find("VAPID") != std::string::npos ? "BAAA" : ""});
    const auto outcome = connector.registerAndWait();
    EXPECT_FALSE(outcome.endpoint);
    EXPECT_THAT(outcome.error.value_or(""), HasSubstr(each.expected));
  }
}

TEST_F(UnifiedPushConnectorTest, OfSeveralDistributorsTheChosenOneIsUsed) {
  auto one = startDistributor({.name = "one"});
  auto two = startDistributor({.name = "two"});
  auto connector = makeConnector("two");
  ASSERT_TRUE(connector->registerAndWait().endpoint);
  EXPECT_TRUE(one->registrations().empty());
  EXPECT_EQ(two->registrations().size(), 1U);
}

TEST_F(UnifiedPushConnectorTest, TheApplicationsNameHeldByAnotherProgramEndsTheRegistration) {
  auto distributor = startDistributor();
  auto first = makeConnector();
  ASSERT_TRUE(first->registerAndWait().endpoint);
  auto second = makeConnector();
  EXPECT_THAT(second->registerAndWait().error.value_or(""),
              HasSubstr("Another program owns io.orvanta.Test on the session D-Bus"));
}

TEST_F(UnifiedPushConnectorTest,
       TheDistributorsCallsWithAnotherTokenAndEndpointsThatAreNoUrlsAreIgnored) {
  auto distributor = startDistributor();
  auto connector = makeConnector();
  const auto registered = connector->registerAndWait();
  ASSERT_TRUE(registered.endpoint);
  const std::string ours = token();
  const std::string valid = "http://127.0.0.1:1/up/moved";
  // The distributor restarts as a program that kept its registrations: the test's own, which the
  // connector follows under the distributor's name.
  const std::string name = distributor->busName();
  distributor->stop();
  testing::BusPeer restarted(bus_.address(), name);
  ASSERT_TRUE(restarted.ready()) << restarted.failure();
  using testing::endpointArguments;
  using testing::messageArguments;
  // Each call returns once the connector has handled it.
  const std::string push = registered.sealed(R"({"data": {"id": "p-1"}})");
  ASSERT_FALSE(restarted.callConnector("NewEndpoint", endpointArguments("other", valid)));
  ASSERT_FALSE(restarted.callConnector("NewEndpoint", endpointArguments("", valid)));
  ASSERT_FALSE(restarted.callConnector("Message", messageArguments("other", push)));
  ASSERT_FALSE(restarted.callConnector("Unregistered", g_variant_new("(s)", "x")));
  for (const char* notUrl :
       {"not a url", "/up/relative", "mailto:someone@example.com", "ftp://127.0.0.1/up", ""}) {
    ASSERT_FALSE(restarted.callConnector("NewEndpoint", endpointArguments(ours, notUrl)));
  }
  EXPECT_EQ(connector->outcomes.items().size(), 1U);
  EXPECT_TRUE(connector->pushes.items().empty());
  EXPECT_EQ(logSink().linesContaining("sent an endpoint that is not a URL; ignored").size(), 5U);
  // A call that is not typed as the interface says never reaches the connector.
  EXPECT_TRUE(restarted.callConnector("NewEndpoint", g_variant_new("(s)", "x")));

  // With our token the same calls count: the endpoint moves, a push arrives.
  ASSERT_FALSE(restarted.callConnector("NewEndpoint", endpointArguments(ours, valid)));
  ASSERT_FALSE(restarted.callConnector("Message", messageArguments(ours, push)));
  ASSERT_EQ(connector->outcomes.items().size(), 2U);
  EXPECT_EQ(connector->outcomes.items()[1].endpoint, valid);
  EXPECT_EQ(connector->outcomes.items()[1].publicKey, registered.publicKey);  // the keys stay
  EXPECT_EQ(connector->pushes.items().size(), 1U);
  EXPECT_TRUE(logSink().linesContaining("Ignored a").empty());
}

TEST_F(UnifiedPushConnectorTest, TheDistributorIsFollowedWhenItRestarts) {
  auto distributor = startDistributor();
  auto connector = makeConnector();
  const auto registered = connector->registerAndWait();
  const auto first = registered.endpoint.value_or("");
  ASSERT_FALSE(first.empty());
  // A new process under the same name knows the application once it registers again, and
  // moves it to an endpoint of its own.
  distributor->stop();
  distributor = startDistributor();
  EXPECT_EQ(connector->registerAndWait().endpoint, first);  // the kept endpoint answers at once
  ASSERT_TRUE(connector->outcomes.waitFor(3));
  const auto moved = connector->outcomes.items()[2].endpoint.value_or("");
  EXPECT_THAT(moved, StartsWith(distributor->endpointBase()));
  EXPECT_EQ(storedEndpoint(), moved);
  EXPECT_EQ(testing::postTo(moved, registered.sealed(R"({"data": {"id": "p-1"}})")), 201);
  ASSERT_TRUE(connector->pushes.waitFor(1));
  EXPECT_TRUE(logSink().linesContaining("Ignored a").empty());
}

// --- A stranger on the bus --------------------------------------------------------------------
// Any program on the session bus can call the connector, and the connection token is no secret
// (it travels in every message and lies in the key store's folder).

TEST_F(UnifiedPushConnectorTest, AStrangersCallsAreRefusedAndChangeNothing) {
  auto distributor = startDistributor();
  auto connector = makeConnector();
  const auto registered = connector->registerAndWait();
  const auto endpoint = registered.endpoint.value_or("");
  ASSERT_FALSE(endpoint.empty());
  const std::string ours = token();
  // Even sealed to the application's keys, which travel to the service in the clear token.
  const std::string push =
      registered.sealed(R"({"data": {"id": "forged", "action": {"type": "BROWSER"}}})");
  // A program that owns no name, and one that owns another distributor's name.
  testing::BusPeer stranger(bus_.address());
  testing::BusPeer otherDistributor(bus_.address(), "org.unifiedpush.Distributor.other");
  ASSERT_TRUE(otherDistributor.ready()) << otherDistributor.failure();
  const auto refusedBefore = health::snapshot().pushesDroppedRefused;
  for (auto* peer : {&stranger, &otherDistributor}) {
    EXPECT_THAT(peer->callConnector("Message", testing::messageArguments(ours, push)).value_or(""),
                HasSubstr("AccessDenied"));
    EXPECT_THAT(peer->callConnector("NewEndpoint", testing::endpointArguments(
                                                       ours, "https://attacker.example/collect"))
                    .value_or(""),
                HasSubstr("AccessDenied"));
    EXPECT_THAT(
        peer->callConnector("Unregistered", g_variant_new("(s)", ours.c_str())).value_or(""),
        HasSubstr("AccessDenied"));
  }
  // Nothing shown, no new token reported, the endpoint kept; the forged pushes counted refused.
  EXPECT_TRUE(connector->pushes.items().empty());
  EXPECT_EQ(health::snapshot().pushesDroppedRefused - refusedBefore, 2U);
  EXPECT_EQ(connector->outcomes.items().size(), 1U);
  EXPECT_EQ(storedEndpoint(), endpoint);
  const auto warnings = logSink().linesContaining("call on the push connector from :");
  ASSERT_EQ(warnings.size(), 6U);
  EXPECT_THAT(warnings[1], HasSubstr("Ignored a NewEndpoint call on the push connector from :"));
  EXPECT_THAT(warnings[1],
              HasSubstr("it is not the push distributor org.unifiedpush.Distributor.orvanta"));

  // The distributor's own calls still get through.
  EXPECT_EQ(testing::postTo(endpoint, registered.sealed(R"({"data": {"id": "p-1"}})")), 201);
  ASSERT_TRUE(connector->pushes.waitFor(1));
  EXPECT_EQ(connector->pushes.items()[0], (ValueMap{{"data", ValueMap{{"id", "p-1"}}}}));
}

TEST_F(UnifiedPushConnectorTest, TheEndpointSurvivesARestartOfTheApplication) {
  auto distributor = startDistributor();
  testing::RegistrationOutcome first;
  {
    auto before = makeConnector();
    first = before->registerAndWait();
    ASSERT_TRUE(first.endpoint);
  }
  const std::string endpoint = *first.endpoint;
  // A new launch over the same files: same token, same distributor, same endpoint, same keys.
  auto platformAgain = testPlatform().relaunch();
  {
    testing::ConnectorProbe after(bus_.address(), platformAgain->secureStore);
    EXPECT_EQ(after.registerAndWait().token, first.token);
    EXPECT_EQ(distributor->registrations().size(), 1U);
    EXPECT_EQ(testing::postTo(endpoint, first.sealed(R"({"data": {"id": "p-2"}})")), 201);
    ASSERT_TRUE(after.pushes.waitFor(1));
    // The distributor sent the endpoint again after the registration: nothing new to tell.
    EXPECT_EQ(after.outcomes.items().size(), 1U);
  }
  // A damaged record is no record: a new token, so a new endpoint.
  auto& store = *platformAgain->secureStore;
  store.remove(linux_platform::kUnifiedPushAccount);
  store.add(linux_platform::kUnifiedPushAccount, R"({"token": 5, "endpoint": ["x"]})");
  testing::ConnectorProbe damaged(bus_.address(), platformAgain->secureStore);
  const auto fresh = damaged.registerAndWait().endpoint;
  ASSERT_TRUE(fresh);
  EXPECT_NE(*fresh, endpoint);
  EXPECT_EQ(distributor->registrations().size(), 2U);
}

TEST_F(UnifiedPushConnectorTest, MessageBytesThatAreNoPushAreDroppedWithOneLineEach) {
  auto distributor = startDistributor();
  auto connector = makeConnector();
  const auto registered = connector->registerAndWait();
  const std::string huge = R"({"data": {"id": "p-1", "pad": ")" + std::string(70'000, 'x') + "\"}}";
  const std::vector<std::pair<std::string, std::string>> malformed = {
      {"not JSON", "not JSON"},
      {"[1, 2]", "a JSON array, not an object"},
      {"\"text\"", "a JSON string, not an object"},
      {"", "not JSON"},
      {"{\"a\": \"\xff\"}", "not JSON"},
      {std::string(600, '[') + std::string(600, ']'), "not JSON"},
      {huge, "more than the 65536 a push may have"},
  };
  const std::string endpoint = registered.endpoint.value_or("");
  ASSERT_FALSE(endpoint.empty());
  for (const auto& [bytes, why] : malformed) {
    ASSERT_EQ(testing::postTo(endpoint, registered.sealed(bytes)), 201);
  }
  // Messages are handled in order: once this one arrived, every one before it was handled.
  ASSERT_EQ(testing::postTo(endpoint, registered.sealed(R"({"data": {"id": "p-2"}})")), 201);
  ASSERT_TRUE(connector->pushes.waitFor(1));
  EXPECT_EQ(connector->pushes.items().size(), 1U);
  const auto dropped = logSink().linesContaining("Dropped a push message: ");
  ASSERT_EQ(dropped.size(), malformed.size());
  for (std::size_t i = 0; i < malformed.size(); ++i) {
    EXPECT_THAT(dropped[i], HasSubstr(malformed[i].second));
  }
}

TEST_F(UnifiedPushConnectorTest, KeysAreMadeAtRegistrationKeptAndForgottenWhenUnregistering) {
  // A registration kept by a version without encrypted pushes gets keys at the next registration.
  auto& store = *platform()->secureStore;
  store.add(linux_platform::kUnifiedPushAccount,
            R"({"token": "kept-token", "distributor": "", "endpoint": ""})");
  auto distributor = startDistributor();
  auto connector = makeConnector();
  const auto first = connector->registerAndWait();
  ASSERT_TRUE(first.endpoint) << first.error.value_or("");
  EXPECT_EQ(distributor->registrations()[0].token, "kept-token");
  EXPECT_EQ(first.publicKey.size(), 65U);
  EXPECT_EQ(first.authSecret.size(), 16U);
  EXPECT_FALSE(storedPrivateKey().empty());

  // From then on only what decrypts: neither the push in clear nor one sealed to other keys. An
  // encrypted push begins with its random salt: one that happens to open like JSON is still
  // judged by decryption, not taken for a push in clear.
  const std::string push = R"({"data": {"id": "p-1"}})";
  const auto otherKeys = linux_platform::WebPushKeys::generate().value();
  const auto senderKey =
      *sandbox::webpush::fromBase64Url("yfWPiYE-n46HLnH0KqZOF1fJJU3MYrct3AELtAQ-oRw");
  const std::string jsonLikeSalt = "  {\"id\": \"p-0\"}\n";
  ASSERT_EQ(jsonLikeSalt.size(), 16U);
  ASSERT_EQ(testing::postTo(*first.endpoint, push), 201);
  ASSERT_EQ(testing::postTo(*first.endpoint, *sandbox::webpush::encryptWith(
                                                 push, otherKeys.publicKey(), first.authSecret,
                                                 senderKey, jsonLikeSalt)),
            201);
  ASSERT_EQ(testing::postTo(*first.endpoint, first.sealed(push)), 201);
  ASSERT_TRUE(connector->pushes.waitFor(1));
  const auto dropped = logSink().linesContaining("Dropped a push message: ");
  ASSERT_EQ(dropped.size(), 2U);
  EXPECT_THAT(dropped[0],
              HasSubstr("not encrypted (this registration takes encrypted pushes only)"));
  EXPECT_THAT(dropped[1], HasSubstr("does not authenticate"));

  // A damaged key: new keys, said once; the endpoint stays.
  connector.reset();
  auto record = nlohmann::json::parse(*store.read(linux_platform::kUnifiedPushAccount));
  record["privateKey"] = "AAAA";
  store.remove(linux_platform::kUnifiedPushAccount);
  store.add(linux_platform::kUnifiedPushAccount, record.dump());
  connector = makeConnector();
  const auto renewed = connector->registerAndWait();
  EXPECT_EQ(renewed.endpoint, first.endpoint);
  EXPECT_NE(renewed.publicKey, first.publicKey);
  EXPECT_EQ(logSink().linesContaining("are damaged; made new ones").size(), 1U);

  // Unregistering forgets them: the next registration makes others.
  // The kit's loop sends Unregister and then writes the record: the distributor may see the call
  // before the keys are gone from the store.
  connector->unregister();
  ASSERT_TRUE(distributor->waitFor(
      [&] { return distributor->registrations().empty() && storedPrivateKey().empty(); }, 20s));
  const auto again = connector->registerAndWait();
  ASSERT_TRUE(again.endpoint);
  EXPECT_NE(again.publicKey, renewed.publicKey);

  // A host that must take pushes in clear says so; encrypted ones still arrive.
  connector.reset();
  testing::ConnectorProbe plainToo(bus_.address(), platform()->secureStore,
                                   testing::ConnectorProbe::Settings{.acceptPlainMessages = true});
  const auto taking = plainToo.registerAndWait();
  ASSERT_TRUE(taking.endpoint);
  ASSERT_EQ(testing::postTo(*taking.endpoint, push), 201);
  ASSERT_EQ(testing::postTo(*taking.endpoint, taking.sealed(R"({"data": {"id": "p-2"}})")), 201);
  ASSERT_EQ(testing::postTo(*taking.endpoint, *sandbox::webpush::encryptWith(
                                                  R"({"data": {"id": "p-3"}})", taking.publicKey,
                                                  taking.authSecret, senderKey, jsonLikeSalt)),
            201);
  ASSERT_TRUE(plainToo.pushes.waitFor(3));
  EXPECT_EQ(plainToo.pushes.items()[1], (ValueMap{{"data", ValueMap{{"id", "p-2"}}}}));
  EXPECT_EQ(plainToo.pushes.items()[2], (ValueMap{{"data", ValueMap{{"id", "p-3"}}}}));
}

}  // namespace
}  // namespace orvanta
