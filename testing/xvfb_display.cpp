#include "testing/xvfb_display.hpp"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <stdexcept>
#include <vector>

extern char** environ;

namespace orvanta::testing {

namespace {

constexpr auto kStartLimit = std::chrono::seconds(30);

void stop(pid_t pid) {
  kill(pid, SIGTERM);
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
}

}  // namespace

XvfbDisplay::XvfbDisplay(const std::string& program, const std::string& screen) {
  int fds[2];
  if (pipe(fds) != 0) {
    throw std::runtime_error("Xvfb: cannot create a pipe");
  }
  // Only the write end goes to the server, which writes the display number there when ready.
  fcntl(fds[0], F_SETFD, FD_CLOEXEC);
  const std::string displayFd = std::to_string(fds[1]);
  std::vector<std::string> arguments = {program, "-displayfd", displayFd, "-screen",  "0",
                                        screen,  "-nolisten",  "tcp",     "-noreset", "-nocursor"};
  std::vector<char*> argv;
  for (auto& argument : arguments) {
    argv.push_back(argument.data());
  }
  argv.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  const int spawned = posix_spawn(&pid_, program.c_str(), &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(fds[1]);
  if (spawned != 0) {
    close(fds[0]);
    throw std::runtime_error("Xvfb: cannot start " + program);
  }

  // The number arrives as "N\n"; end of file means the server gave up.
  std::string number;
  const auto deadline = std::chrono::steady_clock::now() + kStartLimit;
  bool complete = false;
  while (!complete) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) {
      break;
    }
    pollfd waiting{fds[0], POLLIN, 0};
    const int ready = poll(&waiting, 1, static_cast<int>(left.count()));
    if (ready < 0 && errno == EINTR) {
      continue;
    }
    if (ready <= 0) {
      break;
    }
    char buffer[16];
    const ssize_t got = read(fds[0], buffer, sizeof buffer);
    if (got < 0 && errno == EINTR) {
      continue;
    }
    if (got <= 0) {
      break;
    }
    for (ssize_t i = 0; i < got; ++i) {
      if (buffer[i] == '\n') {
        complete = true;
        break;
      }
      number.push_back(buffer[i]);
    }
  }
  close(fds[0]);
  if (!complete || number.empty()) {
    stop(pid_);
    throw std::runtime_error("Xvfb: the server did not start (run " + program +
                             " -displayfd 1 by hand to see why)");
  }
  name_ = ":" + number;
}

XvfbDisplay::~XvfbDisplay() {
  if (pid_ > 0) {
    stop(pid_);
  }
}

}  // namespace orvanta::testing
