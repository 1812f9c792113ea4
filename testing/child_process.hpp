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

/// How a program the test ran to its end ended, and what it printed.
struct ProgramRun {
  int exitStatus = -1;  ///< -1 when it did not start, ended by a signal or overran its time
  std::string output;   ///< its standard output
  std::string errors;   ///< its standard error, or why it did not start
};

/// Runs `arguments` (the program first, looked up in PATH) with this process's environment
/// changed by `environment` ("NAME=value" sets a variable, a bare "NAME" removes it), and waits
/// for its end, up to `limit`, after which it is killed. Use it from one thread.
ProgramRun runProgram(std::vector<std::string> arguments,
                      const std::vector<std::string>& environment, std::chrono::seconds limit);

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
