#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "networking/auth_data.hpp"
#include "testing/mock_auth_data.hpp"
#include "testing/platform_test.hpp"

namespace orvanta {
namespace {

/// Refuses every registration, at once, on the calling thread.
class RefusingDevicesService : public DevicesServiceProtocol {
 public:
  void registerDevice(const OrvantaDevice&, CompletionHandler<Void> handler) override {
    ++calls;
    handler.onError(Error::statusCode(500));
  }
  void lastPush(const std::string&, CompletionHandler<OrvantaNotificationPayload>) override {}
  std::atomic<int> calls{0};
};

class AuthDataConcurrencyTest : public testing::PlatformTest {};

// Tokens arrive on several threads while failures schedule retries and the main queue runs them:
// whatever the interleaving, at most one retry is ever waiting, and the last one stays.
TEST_F(AuthDataConcurrencyTest, OneRetryAtMostWhateverTheInterleaving) {
  auto service = std::make_shared<RefusingDevicesService>();
  auto auth = MockAuthData::make(testing::makeDevice("u"), authDataDependencies(service));

  std::atomic<bool> stop{false};
  std::thread mainThread([&] {
    while (!stop.load()) {
      mainQueue().advance(std::chrono::milliseconds(60'000));
      EXPECT_LE(mainQueue().pendingCount(), 1u);
    }
  });
  std::vector<std::thread> senders;
  for (int t = 0; t < 4; ++t) {
    senders.emplace_back([&, t] {
      for (int i = 0; i < 200; ++i) {
        auth->storeDeviceTokenAndRegister("token-" + std::to_string(t) + "-" + std::to_string(i));
        (void)auth->device();
      }
    });
  }
  for (auto& sender : senders) {
    sender.join();
  }
  stop = true;
  mainThread.join();

  EXPECT_TRUE(auth->hasPendingRetry());
  EXPECT_EQ(mainQueue().pendingCount(), 1u);
  EXPECT_GE(service->calls.load(), 800);
}

}  // namespace
}  // namespace orvanta
