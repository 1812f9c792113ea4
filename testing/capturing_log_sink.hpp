#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "orvanta/port/log_sink.hpp"

namespace orvanta::testing {

/// Keeps every log line written to it, in order, for the test to inspect. Thread-safe.
class CapturingLogSink : public port::LogSink {
 public:
  void write(std::string_view line) override;

  /// Every line so far, each with its newline.
  std::vector<std::string> lines() const;
  /// Lines containing `text`.
  std::vector<std::string> linesContaining(std::string_view text) const;
  void clear();
  /// Waits until at least `count` lines containing `text` have been written; false on time-out.
  bool waitForLines(std::size_t count, std::chrono::milliseconds timeout,
                    std::string_view text = {});

 private:
  std::size_t countContaining(std::string_view text) const;

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::string> lines_;
};

}  // namespace orvanta::testing
