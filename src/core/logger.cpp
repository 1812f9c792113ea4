#include "core/logger.hpp"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <mutex>

#include "core/constants.hpp"
#include "core/logging_switch.hpp"

namespace orvanta {
namespace {

constexpr std::array<std::string_view, 5> kTags = {
    "\xF0\x9F\x94\xAD VERBOSE \xF0\x9F\x94\xAD",               // 🔭 VERBOSE 🔭
    "\xF0\x9F\x92\xAC DEBUG \xF0\x9F\x92\xAC",                 // 💬 DEBUG 💬
    "\xE2\x84\xB9\xEF\xB8\x8F INFO \xE2\x84\xB9\xEF\xB8\x8F",  // ℹ️ INFO ℹ️ (with U+FE0F)
    "\xE2\x9D\x8C WARNING \xE2\x9D\x8C",                       // ❌ WARNING ❌
    "\xF0\x9F\x92\xA5 ERROR \xF0\x9F\x92\xA5",                 // 💥 ERROR 💥
};

constexpr std::string_view kLinePrefix =
    "\xF0\x9F\x9A\x80 ORVANTA \xF0\x9F\x9A\x80 ";  // 🚀 ORVANTA 🚀

}  // namespace

std::string_view OrvantaLogger::rawValue(LogLevel level) {
  return kTags.at(static_cast<std::size_t>(level));
}

std::optional<OrvantaLogger::LogLevel> OrvantaLogger::levelFromRawValue(std::string_view tag) {
  for (std::size_t i = 0; i < kTags.size(); ++i) {
    if (kTags[i] == tag) {
      return static_cast<LogLevel>(i);
    }
  }
  return std::nullopt;
}

std::string OrvantaLogger::formatDate(std::chrono::system_clock::time_point time) {
  using namespace std::chrono;
  auto milliseconds = floor<std::chrono::milliseconds>(time.time_since_epoch());
  auto wholeSeconds = floor<seconds>(milliseconds);
  auto fraction = (milliseconds - wholeSeconds).count();
  std::time_t seconds = static_cast<std::time_t>(wholeSeconds.count());
  std::tm local{};
  if (localtime_r(&seconds, &local) == nullptr) {
    return {};
  }
  int hour12 = local.tm_hour % 12;
  if (hour12 == 0) {
    hour12 = 12;
  }
  char buffer[64];
  int length = std::snprintf(buffer, sizeof(buffer), "%04d-%02d-%02d %02d:%02d:%02d%03d",
                             local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, hour12,
                             local.tm_min, local.tm_sec, static_cast<int>(fraction));
  if (length <= 0) {
    return {};
  }
  return std::string(buffer, std::min(static_cast<std::size_t>(length), sizeof(buffer) - 1));
}

std::string OrvantaLogger::formatLine(LogLevel level, std::chrono::system_clock::time_point time,
                                      std::string_view message) {
  std::string line;
  std::string date = formatDate(time);
  std::string_view tag = rawValue(level);
  line.reserve(kLinePrefix.size() + date.size() + tag.size() + message.size() + 3);
  line.append(kLinePrefix);
  line.append(date);
  line.push_back(' ');
  line.append(tag);
  line.push_back(' ');
  line.append(message);
  line.push_back('\n');
  return line;
}

namespace {

struct BoundOutput {
  std::mutex mutex;
  std::shared_ptr<const OrvantaLogger::Output> output;
};

BoundOutput& boundOutput() {
  // Never destroyed: threads still running at exit may log.
  static auto* bound = new BoundOutput();
  return *bound;
}

}  // namespace

void OrvantaLogger::bind(std::shared_ptr<const Output> output) {
  auto& bound = boundOutput();
  std::lock_guard lock(bound.mutex);
  std::swap(bound.output, output);
  // The previous output is released outside the lock.
}

std::shared_ptr<const OrvantaLogger::Output> OrvantaLogger::printingOutput(LogLevel level) {
  std::shared_ptr<const Output> output;
  {
    auto& bound = boundOutput();
    std::lock_guard lock(bound.mutex);
    output = bound.output;
  }
  if (!output || !output->sink || !output->preferences ||
      !detail::isLoggingEnabled(*output->preferences)) {
    return nullptr;
  }
  const auto& visible = Constants::Logging::sdkVisibleLogLevels;
  if (std::find(visible.begin(), visible.end(), level) == visible.end()) {
    return nullptr;
  }
  return output;
}

void OrvantaLogger::write(const Output& output, LogLevel level, std::string_view message) {
  auto now = output.clock ? output.clock->now() : std::chrono::system_clock::now();
  output.sink->write(formatLine(level, now, message));
}

}  // namespace orvanta
