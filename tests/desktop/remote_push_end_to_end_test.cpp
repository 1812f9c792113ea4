// A remote push the whole way on one machine: the sandbox sends it to the endpoint the kit
// registered, orvanta-distributor forwards it over a private session bus to the kit's connector,
// the service extension reports it and attaches its image, the notification server shows it with
// its buttons, and a button press is reported back to the sandbox.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>

#include "entry/components.hpp"
#include "linux/gio/gio_notification_center.hpp"
#include "linux/remote_push_delivery.hpp"
#include "orvanta_distributor/distributor.hpp"
#include "push/orvanta_push_impl.hpp"
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
  void startDistributorAndKit() {
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
        .onPush = [delivery](ValueMap userInfo) { delivery->deliver(std::move(userInfo)); },
    });
    desktop->application =
        linux_platform::makeGioApplication(desktop->mainQueue, std::move(connector), delivery);
    context_ = std::make_shared<detail::KitContext>(desktop);
    *contextRef = context_;
    stack_ = detail::makePushComponents(context_);
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
  startDistributorAndKit();

  // Registration: the endpoint becomes the device token, which the sandbox reads back as hex.
  stack_.push->registerForPushNotifications(OrvantaPushOptions::defaultOptions());
  ASSERT_TRUE(sandbox().waitFor(
      [&] {
        auto devices = sandbox().devices();
        return devices.size() == 1 && devices[0].registrationId;
      },
      testing::kPatience));
  ASSERT_EQ(distributor_->registrations().size(), 1U);
  const std::string endpoint = distributor_->registrations()[0].endpoint;
  const std::string token = testing::hex(endpoint);
  EXPECT_EQ(sandbox().devices()[0].registrationId, token);
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

}  // namespace
}  // namespace orvanta
