#include "testing/child_process.hpp"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

extern char** environ;

namespace orvanta::testing {

std::optional<std::string> readLine(int fd, std::chrono::steady_clock::time_point deadline) {
  std::string text;
  while (text.find('\n') == std::string::npos) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    pollfd entry{fd, POLLIN, 0};
    const int ready = left.count() > 0 ? ::poll(&entry, 1, static_cast<int>(left.count())) : 0;
    if (ready < 0 && errno == EINTR) {
      continue;
    }
    char buffer[512];
    const ssize_t count = ready > 0 ? ::read(fd, buffer, sizeof buffer) : 0;
    if (count < 0 && (errno == EINTR || errno == EAGAIN)) {
      continue;
    }
    if (count <= 0) {
      return std::nullopt;
    }
    text.append(buffer, static_cast<std::size_t>(count));
  }
  return text.substr(0, text.find('\n'));
}

ChildServer::ChildServer(std::vector<std::string> arguments, const std::string& errorLog,
                         std::chrono::seconds limit) {
  constexpr int kReadyDescriptor = 3;
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) {
    failure_ = std::string("pipe2: ") + std::strerror(errno);
    return;
  }
  if (ends[1] == kReadyDescriptor) {
    // dup2 onto itself would keep close-on-exec set; move it out of the way first.
    ends[1] = ::fcntl(kReadyDescriptor, F_DUPFD_CLOEXEC, kReadyDescriptor + 1);
    ::close(kReadyDescriptor);
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, ends[1], kReadyDescriptor);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO,
                                   errorLog.empty() ? "/dev/null" : errorLog.c_str(),
                                   O_WRONLY | O_CREAT | O_TRUNC, 0600);
  std::vector<char*> argv;
  for (auto& argument : arguments) {
    argv.push_back(argument.data());
  }
  argv.push_back(nullptr);
  const int spawned = ::posix_spawnp(&pid_, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  ::close(ends[1]);  // from now on, end of file means the program is gone
  if (spawned != 0) {
    pid_ = -1;
    failure_ = "could not start " + arguments[0] + ": " + std::strerror(spawned);
  } else if (!(line_ = readLine(ends[0], std::chrono::steady_clock::now() + limit))) {
    failure_ = arguments[0] + " did not say it was ready";
    stop();
  }
  ::close(ends[0]);
}

void ChildServer::stop() {
  if (pid_ <= 0) {
    return;
  }
  ::kill(pid_, SIGTERM);
  int status = 0;
  while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
  }
  pid_ = -1;
}

}  // namespace orvanta::testing
