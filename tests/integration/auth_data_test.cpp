#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "models/json.hpp"
#include "networking/auth_data.hpp"
#include "testing/sandbox_test.hpp"

namespace orvanta {
namespace {

using sandbox::Endpoint;
using sandbox::Fault;
using testing::awaitLinesContaining;
using testing::kPatience;
using testing::WatchedMainQueue;

constexpr auto kMinute = std::chrono::milliseconds(60'000);

class AuthDataIntegrationTest : public testing::SandboxTest {
 protected:
  void SetUp() override {
    SandboxTest::SetUp();
    queue_ = std::make_shared<WatchedMainQueue>(mainQueue());
    auth_ = AuthData::make(authDataDependencies(
        std::make_shared<DevicesService>(context().router<DevicesEndPoint>()), queue_));
  }

  void failNext(int count, std::optional<int> status, bool contentType = false) {
    Fault fault;
    fault.status = status;
    fault.addContentType = contentType;
    fault.count = count;
    sandbox().setFault(Endpoint::devices, fault);
  }

  std::size_t deviceRequests() {
    std::size_t count = 0;
    for (const auto& request : sandbox().requests()) {
      count += request.path == "/v1/devices" ? 1 : 0;
    }
    return count;
  }

  std::shared_ptr<WatchedMainQueue> queue_;
  std::shared_ptr<AuthData> auth_;
};

TEST_F(AuthDataIntegrationTest, AFailedRegistrationIsRetriedEveryMinuteUntilAccepted) {
  // Accepted twice with a "Content-Type": both count as failures.
  failNext(2, std::nullopt, true);

  auth_->storeDeviceTokenAndRegister("aa01");
  ASSERT_TRUE(queue_->waitForScheduled(1));
  EXPECT_EQ(deviceRequests(), 1u);
  EXPECT_EQ(
      awaitLinesContaining(logSink(), "Expected empty response but recieved something", 1).size(),
      1u);

  mainQueue().advance(kMinute - std::chrono::milliseconds(1));
  EXPECT_EQ(deviceRequests(), 1u);
  mainQueue().advance(std::chrono::milliseconds(1));
  ASSERT_TRUE(queue_->waitForScheduled(2));
  EXPECT_EQ(deviceRequests(), 2u);

  mainQueue().advance(kMinute);
  EXPECT_EQ(awaitLinesContaining(logSink(), "Successfully registered deviceToken", 1).size(), 1u);
  EXPECT_EQ(deviceRequests(), 3u);
  EXPECT_EQ(queue_->scheduled(), 2u);
  EXPECT_FALSE(auth_->hasPendingRetry());
  auto registered = sandbox().device(auth_->device().deviceUUID);
  ASSERT_TRUE(registered);
  EXPECT_EQ(registered->registrationId, "aa01");
  EXPECT_EQ(registered->registrations, 3);
}

TEST_F(AuthDataIntegrationTest, ServerErrorsAreRetriedAndANewTokenCancelsTheRetry) {
  failNext(1, 500);
  auth_->storeDeviceTokenAndRegister("aa01");
  ASSERT_TRUE(queue_->waitForScheduled(1));
  EXPECT_EQ(awaitLinesContaining(logSink(), "Internal Server Error", 1).size(), 1u);
  EXPECT_TRUE(auth_->hasPendingRetry());

  auth_->storeDeviceTokenAndRegister("bb02");
  EXPECT_EQ(awaitLinesContaining(logSink(), "Successfully registered deviceToken", 1).size(), 1u);
  mainQueue().advance(3 * kMinute);
  EXPECT_EQ(deviceRequests(), 2u);

  auto stored = auth_->device();
  EXPECT_EQ(stored.deviceToken, "bb02");
  EXPECT_EQ(stored.oldDeviceToken, "aa01");
  auto registered = sandbox().device(stored.deviceUUID);
  ASSERT_TRUE(registered);
  EXPECT_EQ(registered->registrationId, "bb02");
  EXPECT_EQ(registered->oldDeviceToken, "aa01");
  EXPECT_EQ(sandbox().requests().back().body, json(stored)->dump(2));
}

}  // namespace
}  // namespace orvanta
