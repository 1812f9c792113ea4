// A remote push the whole way on one machine: the sandbox encrypts it to the keys of the token the
// kit registered and signs it, orvanta-distributor checks the signature and forwards it over a
// private session bus to the kit's connector, which decrypts it, the service extension reports it
// and attaches its image, the notification server shows it with its buttons, and a button press
// is reported back to the sandbox. Pushes altered on the way, or sent in clear, are dropped:
// neither shown nor reported. And the most used sender library, the npm package web-push (run with
// node, tests/desktop/webpush/), reaches the desktop the same way.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>

#include "core/health.hpp"
#include "entry/components.hpp"
#include "linux/gio/gio_notification_center.hpp"
#include "linux/remote_push_delivery.hpp"
#include "orvanta_distributor/distributor.hpp"
#include "push/orvanta_push_impl.hpp"
#include "testing/child_process.hpp"
#include "testing/dbus/fake_notification_server.hpp"
#include "testing/dbus/private_session_bus.hpp"
#include "testing/loopback_http_server.hpp"
#include "testing/sandbox_test.hpp"
#include "testing/temporary_directory.hpp"
#include "unified_push_support.hpp"

namespace orvanta {
namespace {

using ::testing::ElementsAre;

class RemotePushEndToEndTest : public testing::SandboxTest {
 protected:
  testing::TestPlatformOptions platformOptions() const override {
    testing::TestPlatformOptions options;
    options.threadedMainQueue = true;
    return options;
  }

  void SetUp() override {
    SandboxTest::SetUp();
    ASSERT_TRUE(bus_.started()) << bus_.failure();
    server_ = std::make_unique<testing::FakeNotificationServer>(
        bus_.address(), std::vector<std::string>{"actions", "body", "body-images"});
    ASSERT_TRUE(server_->started()) << server_->failure();
    if (std::getenv(linux_platform::kDistributorEnvironmentVariable) != nullptr) {
      ::unsetenv(linux_platform::kDistributorEnvironmentVariable);
    }
  }

  void TearDown() override {
    stack_ = {};
    context_.reset();
    distributor_.reset();
    server_.reset();
    SandboxTest::TearDown();
  }

  // The distributor, and the kit as the default Linux platform assembles it on the test's bus:
  // the notification centre, the connector, and the delivery through the kit's service extension.
  void startDistributorAndKit(const std::string& vapidPublicKey) {
    distributor_ = distributor::Distributor::start({.busAddress = bus_.address()});
    auto desktop = std::make_shared<Platform>(*platform());
    desktop->notificationCenter = linux_platform::makeGioNotificationCenter(
        {bus_.address(), "Orvanta test", "Show", desktop->mainQueue});
    auto contextRef = std::make_shared<std::weak_ptr<detail::KitContext>>();
    auto delivery = linux_platform::RemotePushDelivery::make({
        .notificationCenter = desktop->notificationCenter,
        .mainQueue = desktop->mainQueue,
        .makeExtension = [contextRef]() -> std::shared_ptr<OrvantaNotificationServiceExtension> {
          auto context = contextRef->lock();
          return context ? std::make_shared<OrvantaNotificationServiceExtension>(
                               detail::makeNotificationServiceExtension(context))
                         : nullptr;
        },
        .budget = std::chrono::seconds(20),
    });
    auto connector = linux_platform::makeUnifiedPushConnector({
        .busAddress = bus_.address(),
        .applicationId = testing::kTestApplicationId,
        .description = "Orvanta test",
        .distributor = {},
        .store = desktop->secureStore,
        .vapidPublicKey = vapidPublicKey,
        .acceptPlainMessages = false,
        .onPush = [delivery](ValueMap userInfo) { delivery->deliver(std::move(userInfo)); },
    });
    desktop->application =
        linux_platform::makeGioApplication(desktop->mainQueue, std::move(connector), delivery);
    context_ = std::make_shared<detail::KitContext>(desktop);
    *contextRef = context_;
    stack_ = detail::makePushComponents(context_);
  }

  // Registers the kit and waits for the device's token at the sandbox.
  std::string registerKit() {
    stack_.push->registerForPushNotifications(OrvantaPushOptions::defaultOptions());
    std::string token;
    sandbox().waitFor(
        [&] {
          auto devices = sandbox().devices();
          if (devices.size() == 1 && devices[0].registrationId) {
            token = *devices[0].registrationId;
          }
          return !token.empty();
        },
        testing::kPatience);
    return token;
  }

  bool waitForReports(std::size_t count) {
    return sandbox().waitFor([&] { return sandbox().reports().size() >= count; },
                             testing::kPatience);
  }

  static nlohmann::json withoutTime(nlohmann::json report) {
    report.erase("occurred_at");
    return report;
  }

  testing::PrivateSessionBus bus_;
  std::unique_ptr<testing::FakeNotificationServer> server_;
  std::unique_ptr<distributor::Distributor> distributor_;
  std::shared_ptr<detail::KitContext> context_;
  detail::PushComponents stack_;
  testing::LoopbackHttpServer images_{[](const testing::LoopbackRequest&) {
    return testing::LoopbackResponse{200, {{"Content-Type", "image/png"}}, testing::kTinyPng, {}};
  }};
};

TEST_F(RemotePushEndToEndTest, APushTravelsFromTheSandboxToTheDesktopAndTheButtonPressBack) {
  // The kit is given the sandbox's VAPID key, which it registers with the distributor.
  startDistributorAndKit(sandbox().vapidPublicKey());

  // Registration: the endpoint and the keys become the device token, which the sandbox reads
  // back from its hex.
  const std::string token = registerKit();
  ASSERT_FALSE(token.empty());
  ASSERT_EQ(distributor_->registrations().size(), 1U);
  EXPECT_EQ(distributor_->registrations()[0].vapid, sandbox().vapidPublicKey());
  const auto subscription = sandbox::webpush::subscriptionFromToken(token);
  ASSERT_TRUE(subscription);
  EXPECT_EQ(subscription->endpoint, distributor_->registrations()[0].endpoint);
  EXPECT_TRUE(subscription->encrypted());
  // The line follows the registration it starts, so the sandbox may see that first.
  EXPECT_EQ(awaitLinesContaining(logSink(), "APNs token retrieved: " + token, 1).size(), 1U);

  // The sandbox sends a push with buttons and an image.
  const nlohmann::json push = {
      {"aps", {{"alert", {{"title", "Flash sale"}, {"body", "Two hours only"}}}}},
      {"data",
       {{"id", "p-21"},
        {"registration_id", token},
        {"image", images_.url("/images/sale.png")},
        {"action_buttons",
         {{"category_id", "ORVANTA_PUSH_CATEGORY_ACCEPTANCE"},
          {"items",
           {{{"text", "Accept"},
             {"action",
              {{"id", "ORVANTA_PUSH_ACTION_ACCEPT"},
               {"type", "DEEPLINK"},
               {"url", "myapp://a"}}}}}}}}}}};
  const auto delivery = sandbox().send(token, push);
  EXPECT_EQ(delivery.outcome, sandbox::Delivery::Outcome::delivered) << delivery.detail;
  EXPECT_TRUE(delivery.encrypted);
  // What travelled through the distributor was ciphertext.
  ASSERT_EQ(distributor_->forwarded().size(), 1U);
  EXPECT_EQ(distributor_->forwarded()[0].body.find("Flash sale"), std::string::npos);

  // Shown with its buttons and its image.
  ASSERT_TRUE(server_->waitForNotifications(1));
  const auto shown = server_->notifications()[0];
  EXPECT_EQ(shown.summary, "Flash sale");
  EXPECT_EQ(shown.body, "Two hours only");
  EXPECT_THAT(shown.actions,
              ElementsAre("ORVANTA_PUSH_ACTION_ACCEPT", "Accept", "ORVANTA_PUSH_ACTION_DECLINE",
                          "Decline", "default", "Show"));
  ASSERT_EQ(shown.hints.count("image-path"), 1U);
  gchar* path = g_filename_from_uri(shown.hints.at("image-path").c_str(), nullptr, nullptr);
  ASSERT_NE(path, nullptr);
  const std::string file = path;
  g_free(path);
  EXPECT_EQ(testing::readFile(file), testing::kTinyPng);
  std::filesystem::remove(file);

  // Reported received by the extension, then reacted on: a tap on the body, then the button.
  const auto report = [&](nlohmann::json fields) {
    fields.update({{"id", "p-21"}, {"type", "IOS"}, {"registration_id", token}});
    return fields;
  };
  ASSERT_TRUE(waitForReports(1));
  EXPECT_EQ(withoutTime(sandbox().reports()[0].body), report({{"status", 0}}));
  server_->emitActionInvoked(shown.id, "default");
  ASSERT_TRUE(waitForReports(2));
  EXPECT_EQ(withoutTime(sandbox().reports()[1].body),
            report({{"status", 1}, {"details", "NOTIFICATION_CLICK_ACTION"}}));
  // The tap closed it, as the server leaves to its client; the same push sent again is shown
  // afresh and its button pressed.
  ASSERT_TRUE(server_->waitForCloseRequests(1));
  EXPECT_THAT(server_->closeRequests(), ElementsAre(shown.id));
  EXPECT_EQ(sandbox().send(token, push).outcome, sandbox::Delivery::Outcome::delivered);
  ASSERT_TRUE(server_->waitForNotifications(2));
  server_->emitActionInvoked(server_->notifications()[1].id, "ORVANTA_PUSH_ACTION_ACCEPT");
  ASSERT_TRUE(waitForReports(3));  // the second "received" is the same report again
  EXPECT_EQ(withoutTime(sandbox().reports()[2].body),
            report({{"status", 1}, {"actionId", "ORVANTA_PUSH_ACTION_ACCEPT"}}));
  EXPECT_TRUE(sandbox().violations().empty()) << sandbox().violationsJson().dump();
}

TEST_F(RemotePushEndToEndTest, AlteredPushesAndPushesInClearAreDroppedNeitherShownNorReported) {
  const auto server = sandbox::webpush::VapidKey::generate();
  startDistributorAndKit(server.publicKey());
  const std::string token = registerKit();
  const auto subscription = sandbox::webpush::subscriptionFromToken(token);
  ASSERT_TRUE(subscription && subscription->encrypted()) << token;
  const auto pushWithId = [&](const std::string& id) {
    return nlohmann::json{{"aps", {{"alert", {{"title", "Sale " + id}}}}},
                          {"data", {{"id", id}, {"registration_id", token}}}}
        .dump();
  };
  const auto post = [&](const std::string& body) {
    return testing::postTo(
        subscription->endpoint, body,
        {"Authorization: " + server.authorization(subscription->endpoint, "mailto:a@example.com",
                                                  std::chrono::system_clock::now())});
  };
  const std::string sealed =
      sandbox::webpush::encrypt(pushWithId("forged"), *subscription->publicKey,
                                *subscription->authSecret)
          .value();
  // Salt 0-15, record size, key id length, the sender's key 21-85, the record, its tag last.
  const auto flipped = [&](std::size_t offset) {
    std::string altered = sealed;
    altered[offset] = static_cast<char>(altered[offset] ^ 0x10);
    return altered;
  };
  const std::vector<std::pair<std::string, std::string>> dropped = {
      {flipped(90), "does not authenticate"},                     // the ciphertext
      {flipped(sealed.size() - 5), "does not authenticate"},      // the tag
      {flipped(7), "does not authenticate"},                      // the salt
      {flipped(50), "the sender's key is not a point of P-256"},  // the sender's key
      {pushWithId("forged"), "not encrypted"},                    // in clear
  };
  const auto before = health::snapshot();
  for (const auto& [body, why] : dropped) {
    ASSERT_EQ(post(body), 201);
  }
  // Pushes are handled in order: once the next one is shown, every one before it was handled.
  ASSERT_EQ(post(sandbox::webpush::encrypt(pushWithId("p-ok"), *subscription->publicKey,
                                           *subscription->authSecret)
                     .value()),
            201);
  ASSERT_TRUE(server_->waitForNotifications(1));
  ASSERT_TRUE(waitForReports(1));
  EXPECT_EQ(server_->notifications().size(), 1U);
  EXPECT_EQ(server_->notifications()[0].summary, "Sale p-ok");
  for (const auto& report : sandbox().reports()) {
    EXPECT_EQ(report.pushId, "p-ok");
  }
  const auto lines = logSink().linesContaining("Dropped a push message: ");
  ASSERT_EQ(lines.size(), dropped.size());
  for (std::size_t i = 0; i < dropped.size(); ++i) {
    EXPECT_THAT(lines[i], ::testing::HasSubstr(dropped[i].second));
  }
  EXPECT_EQ(health::snapshot().pushesDroppedInvalid - before.pushesDroppedInvalid, dropped.size());
}

TEST_F(RemotePushEndToEndTest, APushEncryptedAndSignedByTheWebPushLibraryIsShownAndReported) {
  const std::string node = ORVANTA_NODE;
  if (node.empty()) {
    GTEST_SKIP() << "web-push test skipped: node not found (Debian package nodejs)";
  }
  const auto run = [&](std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {node, ORVANTA_WEBPUSH_SENDER});
    return testing::runProgram(std::move(arguments), {}, std::chrono::seconds(60));
  };
  // The application server's VAPID keys, made by web-push; the kit is given the public one.
  const auto keys = run({"keys"});
  ASSERT_EQ(keys.exitStatus, 0) << keys.errors
                                << "\n(the npm packages come with scripts/bootstrap.sh)";
  const auto vapid = nlohmann::json::parse(keys.output);
  startDistributorAndKit(vapid["publicKey"].get<std::string>());
  const std::string token = registerKit();
  // The subscription web-push wants, decoded from the token the service holds.
  const auto subscription = sandbox::webpush::subscriptionFromToken(token);
  ASSERT_TRUE(subscription && subscription->encrypted()) << token;
  const nlohmann::json push = {
      {"aps", {{"alert", {{"title", "From web-push"}, {"body", "Encrypted and signed"}}}}},
      {"data",
       {{"id", "wp-1"},
        {"registration_id", token},
        {"action_buttons",
         {{"category_id", "ORVANTA_PUSH_CATEGORY_ACCEPTANCE"},
          {"items",
           {{{"text", "Accept"},
             {"action", {{"id", "ORVANTA_PUSH_ACTION_ACCEPT"}, {"type", "NONE"}}}}}}}}}}};
  const auto sent = run(
      {"send", subscription->endpoint, sandbox::webpush::base64Url(*subscription->publicKey),
       sandbox::webpush::base64Url(*subscription->authSecret),
       vapid["publicKey"].get<std::string>(), vapid["privateKey"].get<std::string>(), push.dump()});
  ASSERT_EQ(sent.exitStatus, 0) << sent.output << sent.errors;
  EXPECT_EQ(sent.output, "201\n");

  ASSERT_TRUE(server_->waitForNotifications(1));
  const auto shown = server_->notifications()[0];
  EXPECT_EQ(shown.summary, "From web-push");
  EXPECT_EQ(shown.body, "Encrypted and signed");
  EXPECT_THAT(shown.actions,
              ElementsAre("ORVANTA_PUSH_ACTION_ACCEPT", "Accept", "ORVANTA_PUSH_ACTION_DECLINE",
                          "Decline", "default", "Show"));
  ASSERT_TRUE(waitForReports(1));
  EXPECT_EQ(
      withoutTime(sandbox().reports()[0].body),
      (nlohmann::json{{"id", "wp-1"}, {"type", "IOS"}, {"registration_id", token}, {"status", 0}}));
  EXPECT_TRUE(logSink().linesContaining("Dropped a push message").empty());
}

}  // namespace
}  // namespace orvanta
