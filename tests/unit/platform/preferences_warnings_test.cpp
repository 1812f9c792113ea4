// Lines of the Linux preferences store, where the store cannot be written (as when neither HOME
// nor XDG_CONFIG_HOME is set).

#include <gtest/gtest.h>

#include <string>

#include "core/logging_switch.hpp"
#include "orvanta/orvanta_configuration.hpp"
#include "testing/platform_test.hpp"

namespace orvanta {
namespace {

class PreferencesWarningsTest : public testing::PlatformTest {
 protected:
  testing::TestPlatformOptions platformOptions() const override {
    testing::TestPlatformOptions options;
    options.preferencesFile = "";  // nowhere to write
    return options;
  }
};

TEST_F(PreferencesWarningsTest, NothingWhileLoggingIsOffThenOneErrorThroughTheLogger) {
  auto& preferences = *platform()->preferences;
  for (int i = 0; i < 3; ++i) {
    detail::setLoggingEnabled(preferences, false);  // every configuration does this
    preferences.setObject("orvanta.userDefaults.other", port::PreferenceValue(true));
  }
  EXPECT_TRUE(logLines().empty());

  for (int i = 0; i < 3; ++i) {
    detail::setLoggingEnabled(preferences, true);
    preferences.setObject("orvanta.userDefaults.other", port::PreferenceValue(false));
  }
  auto lines = logSink().linesContaining("Could not write the preferences file");
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_NE(lines[0].find(std::string(OrvantaLogger::rawValue(OrvantaLogger::LogLevel::error))),
            std::string::npos);
  EXPECT_NE(lines[0].find("neither XDG_CONFIG_HOME nor HOME is set"), std::string::npos);
  EXPECT_EQ(logLines().size(), 1u);
  EXPECT_TRUE(detail::isLoggingEnabled(preferences));  // the switch still works in memory
}

}  // namespace
}  // namespace orvanta
