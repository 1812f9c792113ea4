#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "networking/auth_data.hpp"
#include "orvanta/orvanta.hpp"
#include "testing/sandbox_test.hpp"

namespace orvanta {
namespace {

using testing::awaitLinesContaining;

// The host's side: configure with logging on, then hand the kit its push token.
class DeviceRegistrationTest : public testing::SandboxTest {
 protected:
  void SetUp() override {
    SandboxTest::SetUp();
    auto configuration = OrvantaConfiguration::defaultConfiguration();
    configuration->setIsLoggingEnabled(true);
    Orvanta::configure(configuration);
  }
};

TEST_F(DeviceRegistrationTest, APushTokenFromTheHostEndsUpRegisteredAtTheService) {
  std::vector<std::uint8_t> token(32);
  for (std::size_t i = 0; i < token.size(); ++i) {
    token[i] = static_cast<std::uint8_t>(i * 8 + 5);
  }
  token[0] = 0x00;
  token[31] = 0xff;
  const std::string hex = "000d151d252d353d454d555d656d757d858d959da5adb5bdc5cdd5dde5edf5ff";

  Orvanta::push().didRegisterForRemoteNotifications(token);

  EXPECT_EQ(logSink().linesContaining("APNs token retrieved: " + hex).size(), 1u);
  EXPECT_EQ(awaitLinesContaining(logSink(), "Successfully registered deviceToken", 1).size(), 1u);
  const auto device = AuthData::shared()->device();
  EXPECT_EQ(device.deviceToken, hex);
  auto registered = sandbox().device(device.deviceUUID);
  ASSERT_TRUE(registered);
  EXPECT_EQ(registered->registrationId, hex);
  EXPECT_TRUE(sandbox().violations().empty()) << sandbox().violationsJson().dump();
}

}  // namespace
}  // namespace orvanta
