#include "orvanta/orvanta.hpp"

#include <gtest/gtest.h>

#include <cstdlib>

#include "core/constants.hpp"
#include "entry/platform_installation.hpp"
#include "testing/platform_test.hpp"
#include "testing/temporary_directory.hpp"

namespace orvanta {
namespace {

constexpr std::string_view kInfoTag = "\xE2\x84\xB9\xEF\xB8\x8F INFO \xE2\x84\xB9\xEF\xB8\x8F ";

std::string messageOf(const std::string& line) {
  auto tag = line.find(kInfoTag);
  return tag == std::string::npos ? line : line.substr(tag + kInfoTag.size());
}

// Creating the shared instance switches logging off, so each test creates it before turning
// logging on.
class OrvantaTest : public testing::PlatformTest {
 protected:
  void SetUp() override {
    PlatformTest::SetUp();
    Orvanta::shared();
  }
};

TEST_F(OrvantaTest, ConfigureLogsTheCredentialsFromTheFileWhileLoggingIsOn) {
  auto withoutFile = std::make_shared<OrvantaConfiguration>();
  withoutFile->setIsLoggingEnabled(true);
  Orvanta::configure(withoutFile);
  writeConfig(testing::credentials("app-1", "token-1", "secret-1", "events-1"));
  auto configuration = OrvantaConfiguration::defaultConfiguration();
  configuration->setIsLoggingEnabled(true);
  Orvanta::configure(configuration);

  ASSERT_EQ(logLines().size(), 2u);
  EXPECT_EQ(messageOf(logLines()[0]),
            "Configuration with token: , secret: , appId:  and eventsToken: \n");
  EXPECT_EQ(messageOf(logLines()[1]),
            "Configuration with token: token-1, secret: secret-1, appId: app-1 and eventsToken: "
            "events-1\n");
  EXPECT_EQ(Orvanta::shared().configuration(), configuration);

  // A default configuration turns logging off; no configuration keeps the one in place.
  Orvanta::configure(OrvantaConfiguration::defaultConfiguration());
  Orvanta::configure(nullptr);
  EXPECT_EQ(logLines().size(), 2u);
  EXPECT_NE(Orvanta::shared().configuration(), nullptr);
}

TEST_F(OrvantaTest, TheLoggingSwitchIsSharedAndPersisted) {
  OrvantaConfiguration first;
  OrvantaConfiguration second;
  EXPECT_FALSE(first.isLoggingEnabled());
  first.setIsLoggingEnabled(true);
  EXPECT_TRUE(second.isLoggingEnabled());

  // A later launch still has it; a default configuration or a new entry point turns it off.
  detail::reinstallPlatform(testPlatform().relaunch());
  EXPECT_TRUE(OrvantaConfiguration().isLoggingEnabled());
  Orvanta another;
  EXPECT_FALSE(first.isLoggingEnabled());
  EXPECT_FALSE(another.configuration()->isLoggingEnabled());
}

using PlatformInstallationTest = testing::PlatformTest;

TEST_F(PlatformInstallationTest, AnIncompletePlatformIsCompletedPortByPort) {
  auto partial = std::make_shared<Platform>(*platform());
  partial->clock = nullptr;
  partial->bundle = nullptr;
  installPlatform(partial);
  auto installed = currentPlatform();
  EXPECT_NE(installed->clock, nullptr);
  EXPECT_NE(installed->bundle, nullptr);
  // Everything the host gave is used as it is: no second main queue, HTTP client or store.
  EXPECT_EQ(installed->mainQueue, platform()->mainQueue);
  EXPECT_EQ(installed->httpClient, platform()->httpClient);
  EXPECT_EQ(installed->preferences, platform()->preferences);
  EXPECT_EQ(installed->logSink, platform()->logSink);
  // A complete platform is installed as it is.
  EXPECT_TRUE(installPlatform(platform()));
  EXPECT_EQ(currentPlatform(), platform());
}

TEST_F(PlatformInstallationTest, AnInstallationAfterTheKitsFirstUseIsRefusedAndNamesThatUse) {
  Orvanta::analytics();
  enableLogging();  // building the kit switched it off
  Orvanta::user();

  EXPECT_FALSE(installPlatform(testPlatform().relaunch()));
  EXPECT_EQ(currentPlatform(), platform());
  ASSERT_EQ(logLines().size(), 1u);
  EXPECT_NE(logLines()[0].find("installPlatform came after the kit's first use "
                               "(Orvanta::analytics()), whose platform stays in force"),
            std::string::npos)
      << logLines()[0];
}

TEST_F(PlatformInstallationTest, TheDefaultPlatformBoundByAnEarlyCallCannotBeReplacedLater) {
  detail::reinstallPlatform(nullptr);
  testing::TemporaryDirectory home;
  ::setenv("XDG_DATA_HOME", (home.path() + "/data").c_str(), 1);
  ::setenv("XDG_CONFIG_HOME", (home.path() + "/config").c_str(), 1);
  auto bound = currentPlatform();  // nothing installed: the Linux default, for good

  EXPECT_FALSE(installPlatform(platform()));
  EXPECT_EQ(currentPlatform(), bound);
}

}  // namespace
}  // namespace orvanta
