#include "testing/capturing_log_sink.hpp"

namespace orvanta::testing {

void CapturingLogSink::write(std::string_view line) {
  {
    std::lock_guard lock(mutex_);
    lines_.emplace_back(line);
  }
  changed_.notify_all();
}

std::vector<std::string> CapturingLogSink::lines() const {
  std::lock_guard lock(mutex_);
  return lines_;
}

std::vector<std::string> CapturingLogSink::linesContaining(std::string_view text) const {
  std::lock_guard lock(mutex_);
  std::vector<std::string> found;
  for (const auto& line : lines_) {
    if (line.find(text) != std::string::npos) {
      found.push_back(line);
    }
  }
  return found;
}

void CapturingLogSink::clear() {
  std::lock_guard lock(mutex_);
  lines_.clear();
}

std::size_t CapturingLogSink::countContaining(std::string_view text) const {
  std::size_t count = 0;
  for (const auto& line : lines_) {
    count += line.find(text) != std::string::npos ? 1 : 0;
  }
  return count;
}

bool CapturingLogSink::waitForLines(std::size_t count, std::chrono::milliseconds timeout,
                                    std::string_view text) {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, timeout, [&] { return countContaining(text) >= count; });
}

}  // namespace orvanta::testing
