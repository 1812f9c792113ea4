#include "core/logger.hpp"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>

#include <chrono>
#include <optional>
#include <string>

#include "testing/platform_test.hpp"

namespace orvanta {
namespace {

using namespace std::chrono;

// Runs the test in a fixed time zone and puts the previous one back afterwards.
class LoggerTest : public testing::PlatformTest {
 protected:
  void SetUp() override {
    PlatformTest::SetUp();
    if (const char* tz = std::getenv("TZ")) {
      savedTz_ = tz;
    }
    useTimeZone("UTC");
  }
  void TearDown() override {
    if (savedTz_) {
      ::setenv("TZ", savedTz_->c_str(), 1);
    } else {
      ::unsetenv("TZ");
    }
    ::tzset();
    PlatformTest::TearDown();
  }
  static void useTimeZone(const char* tz) {
    ::setenv("TZ", tz, 1);
    ::tzset();
  }
  static system_clock::time_point at(int hour, int minute, int second, int millisecond) {
    return sys_days{year{2024} / 5 / 7} + hours(hour) + minutes(minute) + seconds(second) +
           milliseconds(millisecond);
  }

 private:
  std::optional<std::string> savedTz_;
};

TEST_F(LoggerTest, WritesTheExactLine) {
  enableLogging();
  clock().setNow(at(14, 5, 9, 42));
  OrvantaLogger::error(Error::statusCode(404));
  OrvantaLogger::info("text");
  OrvantaLogger::debug(std::string("debugging"));
  OrvantaLogger::verbose(12);

  auto lines = logLines();
  ASSERT_EQ(lines.size(), 4u);
  EXPECT_EQ(lines[0],
            "\xF0\x9F\x9A\x80 ORVANTA \xF0\x9F\x9A\x80 2024-05-07 02:05:09042 "
            "\xF0\x9F\x92\xA5 ERROR \xF0\x9F\x92\xA5 Not Found\n");
  EXPECT_EQ(lines[1],
            "\xF0\x9F\x9A\x80 ORVANTA \xF0\x9F\x9A\x80 2024-05-07 02:05:09042 "
            "\xE2\x84\xB9\xEF\xB8\x8F INFO \xE2\x84\xB9\xEF\xB8\x8F text\n");
  EXPECT_NE(lines[2].find(" \xF0\x9F\x92\xAC DEBUG \xF0\x9F\x92\xAC debugging\n"),
            std::string::npos);
  EXPECT_NE(lines[3].find(" \xF0\x9F\x94\xAD VERBOSE \xF0\x9F\x94\xAD 12\n"), std::string::npos);
}

TEST_F(LoggerTest, DateUsesTwelveHourClockGluedMillisecondsAndLocalTime) {
  EXPECT_EQ(OrvantaLogger::formatDate(at(13, 0, 0, 5)), "2024-05-07 01:00:00005");
  EXPECT_EQ(OrvantaLogger::formatDate(at(0, 30, 1, 999)), "2024-05-07 12:30:01999");
  EXPECT_EQ(OrvantaLogger::formatDate(at(12, 0, 0, 0)), "2024-05-07 12:00:00000");

  useTimeZone("EST5");  // five hours behind UTC, no daylight saving
  EXPECT_EQ(OrvantaLogger::formatDate(at(3, 15, 0, 100)), "2024-05-06 10:15:00100");
}

TEST_F(LoggerTest, PrintsNothingWhileLoggingIsOff) {
  OrvantaLogger::error(Error::statusCode(500));
  OrvantaLogger::info("info");
  OrvantaLogger::debug("debug");
  OrvantaLogger::verbose("verbose");
  int built = 0;
  OrvantaLogger::info([&] { return "costly " + std::to_string(++built); });
  EXPECT_TRUE(logLines().empty());
  EXPECT_EQ(built, 0);  // a message given as a function is only made for a printed line

  // The switch is read again on every call.
  enableLogging();
  OrvantaLogger::error(Error::statusCode(500));
  OrvantaLogger::info([&] { return "costly " + std::to_string(++built); });
  ASSERT_EQ(logLines().size(), 2u);
  EXPECT_NE(logLines()[0].find("Internal Server Error\n"), std::string::npos);
  EXPECT_NE(logLines()[1].find("costly 1\n"), std::string::npos);
}

}  // namespace
}  // namespace orvanta
