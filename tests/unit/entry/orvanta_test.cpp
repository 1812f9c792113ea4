#include "orvanta/orvanta.hpp"

#include <gtest/gtest.h>

#include "core/constants.hpp"
#include "testing/platform_test.hpp"

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

TEST_F(OrvantaTest, ConfigureLogsTheCredentialsFromTheFile) {
  writeConfig(testing::credentials("app-1", "token-1", "secret-1", "events-1"));
  auto configuration = OrvantaConfiguration::defaultConfiguration();
  configuration->setIsLoggingEnabled(true);
  Orvanta::configure(configuration);

  ASSERT_EQ(logLines().size(), 1u);
  EXPECT_EQ(messageOf(logLines()[0]),
            "Configuration with token: token-1, secret: secret-1, appId: app-1 and eventsToken: "
            "events-1\n");
  EXPECT_EQ(Orvanta::shared().configuration(), configuration);
}

TEST_F(OrvantaTest, ConfigureWithoutAFileLogsEmptyValues) {
  auto configuration = std::make_shared<OrvantaConfiguration>();
  configuration->setIsLoggingEnabled(true);
  Orvanta::configure(configuration);
  ASSERT_EQ(logLines().size(), 1u);
  EXPECT_EQ(messageOf(logLines()[0]),
            "Configuration with token: , secret: , appId:  and eventsToken: \n");
}

TEST_F(OrvantaTest, ConfigureWithLoggingOffPrintsNothing) {
  writeConfig(testing::credentials("app-1", "token-1", "secret-1", "events-1"));
  Orvanta::configure(OrvantaConfiguration::defaultConfiguration());
  Orvanta::configure(nullptr);
  EXPECT_TRUE(logLines().empty());
  EXPECT_NE(Orvanta::shared().configuration(), nullptr);
}

TEST_F(OrvantaTest, TheLoggingSwitchIsSharedAndPersisted) {
  OrvantaConfiguration first;
  OrvantaConfiguration second;
  EXPECT_FALSE(first.isLoggingEnabled());
  first.setIsLoggingEnabled(true);
  EXPECT_TRUE(second.isLoggingEnabled());

  // A later launch still has it; a default configuration or a new entry point turns it off.
  installPlatform(testPlatform().relaunch());
  EXPECT_TRUE(OrvantaConfiguration().isLoggingEnabled());
  Orvanta another;
  EXPECT_FALSE(first.isLoggingEnabled());
  EXPECT_FALSE(another.configuration()->isLoggingEnabled());
}

TEST_F(OrvantaTest, AuthorizationHeadersAreReadFromTheFileOnEveryCall) {
  writeConfig(testing::credentials("app", "token-1", "secret-1", "events-1"));
  port::HttpHeaders expected = {{"X-Orvanta-App-Token", "token-1"},
                                {"X-Orvanta-App-Secret", "secret-1"},
                                {"Authorization", "u8jzPde0IgxLd6GncfBAepfJBd0Kh8oOOL8"}};
  EXPECT_EQ(Constants::Authorization::Push::authorizationHeaders(), expected);
  writeConfig(testing::credentials("app", "token-2", "secret-2", "events-2"));
  EXPECT_EQ(port::findHeader(Constants::Authorization::Push::authorizationHeaders(),
                             "x-orvanta-app-token"),
            "token-2");
  EXPECT_EQ(Constants::Authorization::Events::authorizationHeaders(),
            (port::HttpHeaders{{"Authorization", "events-2"}}));

  EXPECT_EQ(Constants::Networking::pushSDKURL(), "https://push.orvanta.io/v1/");
  Constants::Networking::overrideServiceURLs("http://127.0.0.1:9/v1/", std::nullopt);
  EXPECT_EQ(Constants::Networking::pushSDKURL(), "http://127.0.0.1:9/v1/");
  EXPECT_EQ(Constants::Networking::eventsSDKURL(), "https://api.orvanta.io/v1/");
  Constants::Networking::overrideServiceURLs(std::nullopt, std::nullopt);
  EXPECT_EQ(Constants::Networking::pushSDKURL(), "https://push.orvanta.io/v1/");
}

}  // namespace
}  // namespace orvanta
