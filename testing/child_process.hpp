#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace orvanta::testing {

/// Reads from `fd` until a newline arrives; the text before it, or none when the writer closed
/// its end or `deadline` passed first.
std::optional<std::string> readLine(int fd, std::chrono::steady_clock::time_point deadline);

/// A server program the test starts, which says on descriptor 3 that it is ready by writing one
/// line there (its address, its display number...). Its standard output goes nowhere, its errors
/// to `errorLog` (or nowhere). The constructor waits for the line, up to `limit`; the destructor
/// ends the program (SIGTERM) and reaps it. Use it from one thread.
class ChildServer {
 public:
  ChildServer(std::vector<std::string> arguments, const std::string& errorLog,
              std::chrono::seconds limit);
  ~ChildServer() { stop(); }
  ChildServer(const ChildServer&) = delete;
  ChildServer& operator=(const ChildServer&) = delete;

  /// The line the program wrote; none when it did not start (see `failure`).
  const std::optional<std::string>& readyLine() const { return line_; }
  const std::string& failure() const { return failure_; }
  void stop();

 private:
  pid_t pid_ = -1;
  std::optional<std::string> line_;
  std::string failure_;
};

}  // namespace orvanta::testing
