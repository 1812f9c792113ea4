#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "models/json.hpp"
#include "networking/devices_service.hpp"
#include "networking/events_service.hpp"
#include "networking/pushes_service.hpp"
#include "testing/loopback_http_server.hpp"
#include "testing/sandbox_test.hpp"

namespace orvanta {
namespace {

using sandbox::Fault;
using testing::await;

/// What went wrong, for failure messages.
template <class T>
std::string failureText(const std::optional<Result<T>>& outcome) {
  if (!outcome) {
    return "no answer";
  }
  return outcome->isSuccess() ? "success" : outcome->error().localizedDescription();
}

template <class T>
Future<T> promised(std::function<void(CompletionHandler<T>)> call) {
  Promise<T> promise;
  CompletionHandler<T> handler;
  if constexpr (std::is_same_v<T, Void>) {
    handler.onNext = [promise] { promise.resolve(Void{}); };
  } else {
    handler.onNext = [promise](const T& value) { promise.resolve(value); };
  }
  handler.onError = [promise](const Error& error) { promise.reject(error); };
  call(std::move(handler));
  return promise;
}

class ServicesTest : public testing::SandboxTest {
 protected:
  OrvantaDevice device() {
    OrvantaDevice record("8D3E7F0A-1B2C-4D5E-8F90-A1B2C3D4E5F6", "IOS",
                         sandbox().credentials().appId,
                         Constants::DeviceAnalytics::from(*platform()->deviceInfo));
    record.deviceToken = "00ab10ff";
    record.oldDeviceToken = "0011";
    return record;
  }
  OrvantaNotificationStatus status() {
    OrvantaNotificationStatus record;
    record.id = "push-42";
    record.status = OrvantaNotificationStatus::PushReportStatus::reactedOn;
    record.deviceToken = "00ab10ff";
    record.occurredAt = 1715090709;
    record.details = OrvantaNotificationStatus::DetailsType::click;
    record.actionId = "open";
    return record;
  }
  OrvantaEvent event() {
    return OrvantaEvent(
        "00ab10ff", sandbox().credentials().appId, "purchase", 1715090709.25,
        {{"sku", Value("A-1")}, {"count", Value(std::int64_t{3})}, {"gift", Value(true)}});
  }

  void SetUp() override {
    SandboxTest::SetUp();
    devices_ = std::make_unique<DevicesService>(context().router<DevicesEndPoint>());
    pushes_ = std::make_unique<PushesService>(context().router<PushesEndPoint>());
    events_ = std::make_unique<EventsService>(context().router<EventsEndPoint>());
  }

  std::unique_ptr<DevicesService> devices_;
  std::unique_ptr<PushesService> pushes_;
  std::unique_ptr<EventsService> events_;
};

// Method, path and headers of each call are judged by the sandbox, which refuses anything else
// (see tests/sandbox/request_checks_test.cpp); here the bodies must be the records as written.
TEST_F(ServicesTest, EveryCallArrivesAsTheServiceExpectsIt) {
  auto registered = await(promised<Void>([&](auto h) { devices_->registerDevice(device(), h); }));
  ASSERT_TRUE(registered && registered->isSuccess()) << failureText(registered);
  EXPECT_EQ(onlyRequest().body, json(device())->dump(2));
  ASSERT_TRUE(sandbox().device(device().deviceUUID));
  EXPECT_EQ(sandbox().device(device().deviceUUID)->registrationId, "00ab10ff");
  sandbox().reset();

  auto reported = await(promised<Void>([&](auto h) { pushes_->report(status(), h); }));
  ASSERT_TRUE(reported && reported->isSuccess()) << failureText(reported);
  EXPECT_EQ(onlyRequest().path, "/v1/pushes/push-42/reports");
  EXPECT_EQ(onlyRequest().body, json(status())->dump(2));
  sandbox().reset();

  auto sentEvent = event();
  auto added = await(promised<Void>([&](auto h) { events_->addEvent(sentEvent, h); }));
  ASSERT_TRUE(added && added->isSuccess()) << failureText(added);
  auto expectedEvent = *json(sentEvent);
  expectedEvent.erase("uuidId");
  EXPECT_EQ(onlyRequest().body, expectedEvent.dump(2));
  sandbox().reset();

  sandbox().setLastPush("00ab10ff", {{"id", "push-9"}, {"title", "Hello"}});
  auto last = await(
      promised<OrvantaNotificationPayload>([&](auto h) { devices_->lastPush("00ab10ff", h); }));
  ASSERT_TRUE(last && last->isSuccess()) << failureText(last);
  EXPECT_EQ(last->value().id, "push-9");
  EXPECT_EQ(last->value().title, "Hello");
  EXPECT_EQ(onlyRequest().path, "/v1/devices/00ab10ff/last_push");
  sandbox().reset();

  // Defined and routable, though no service sends it.
  auto router = context().router<DevicesEndPoint>();
  ASSERT_TRUE(await(router->request(DevicesEndPoint::unregister(device().deviceUUID))));
  EXPECT_EQ(onlyRequest().path, "/v1/devices/" + device().deviceUUID);
  EXPECT_TRUE(onlyRequest().body.empty());

  EXPECT_TRUE(sandbox().violations().empty()) << sandbox().violationsJson().dump();
}

TEST_F(ServicesTest, EmptyAnswersAreDemandedOnlyWhereTheCallSaysSo) {
  Fault contentType;
  contentType.addContentType = true;
  sandbox().setFault(std::nullopt, contentType);

  auto registered = await(promised<Void>([&](auto h) { devices_->registerDevice(device(), h); }));
  ASSERT_TRUE(registered);
  ASSERT_FALSE(registered->isSuccess());
  EXPECT_EQ(registered->error(), Error::emptyResponseExists());
  auto reported = await(promised<Void>([&](auto h) { pushes_->report(status(), h); }));
  ASSERT_TRUE(reported);
  EXPECT_EQ(reported->error(), Error::emptyResponseExists());
  auto added = await(promised<Void>([&](auto h) { events_->addEvent(event(), h); }));
  ASSERT_TRUE(added);
  EXPECT_TRUE(added->isSuccess());

  // A 201 with a JSON body is fine for events too.
  testing::LoopbackHttpServer server([](const testing::LoopbackRequest&) {
    return testing::LoopbackResponse{201, {{"Content-Type", "application/json"}}, "{\"ok\":true}"};
  });
  ASSERT_TRUE(setServiceBaseURLs(server.url("/v1/"), server.url("/v1/")));
  added = await(promised<Void>([&](auto h) { events_->addEvent(event(), h); }));
  ASSERT_TRUE(added);
  EXPECT_TRUE(added->isSuccess());
  // ...but not a payload for the last push.
  auto last =
      await(promised<OrvantaNotificationPayload>([&](auto h) { devices_->lastPush("ab", h); }));
  ASSERT_TRUE(last);
  ASSERT_FALSE(last->isSuccess());
  EXPECT_EQ(last->error().domain(), Error::Domain::decoding);
}

TEST_F(ServicesTest, ANonSuccessStatusReachesOnErrorInEveryCall) {
  Fault fault;
  fault.status = 404;
  sandbox().setFault(std::nullopt, fault);
  std::vector<std::optional<Result<Void>>> outcomes = {
      await(promised<Void>([&](auto h) { devices_->registerDevice(device(), h); })),
      await(promised<Void>([&](auto h) { pushes_->report(status(), h); })),
      await(promised<Void>([&](auto h) { events_->addEvent(event(), h); })),
  };
  for (const auto& outcome : outcomes) {
    ASSERT_TRUE(outcome);
    EXPECT_EQ(failureText(outcome), "Not Found");
  }
  auto last =
      await(promised<OrvantaNotificationPayload>([&](auto h) { devices_->lastPush("ab", h); }));
  EXPECT_EQ(failureText(last), "Not Found");
}

TEST_F(ServicesTest, CallsWithoutHandlersAreStillSent) {
  devices_->registerDevice(device(), {});
  pushes_->report(status(), {});
  events_->addEvent(event(), {});
  EXPECT_TRUE(sandbox().waitForRequestCount(3, testing::kPatience));
  EXPECT_EQ(sandbox().devices().size(), 1u);
  EXPECT_EQ(sandbox().reports().size(), 1u);
  EXPECT_EQ(sandbox().events().size(), 1u);
}

}  // namespace
}  // namespace orvanta
