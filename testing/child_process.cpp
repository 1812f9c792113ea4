#include "testing/child_process.hpp"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

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

ProgramRun runProgram(std::vector<std::string> arguments,
                      const std::vector<std::string>& environment, std::chrono::seconds limit) {
  ProgramRun run;
  std::vector<std::string> variables;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    variables.emplace_back(*entry);
  }
  for (const std::string& change : environment) {
    const std::string name = change.substr(0, change.find('='));
    std::erase_if(variables, [&name](const std::string& variable) {
      return variable.compare(0, name.size() + 1, name + "=") == 0;
    });
    if (change.find('=') != std::string::npos) {
      variables.push_back(change);
    }
  }
  int output[2];
  int errors[2];
  if (::pipe2(output, O_CLOEXEC) != 0 || ::pipe2(errors, O_CLOEXEC) != 0) {
    run.errors = std::string("pipe2: ") + std::strerror(errno);
    return run;
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, errors[1], STDERR_FILENO);
  std::vector<char*> argv;
  for (auto& argument : arguments) {
    argv.push_back(argument.data());
  }
  argv.push_back(nullptr);
  std::vector<char*> envp;
  for (auto& variable : variables) {
    envp.push_back(variable.data());
  }
  envp.push_back(nullptr);
  pid_t pid = -1;
  const int spawned = ::posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), envp.data());
  posix_spawn_file_actions_destroy(&actions);
  ::close(output[1]);
  ::close(errors[1]);
  if (spawned != 0) {
    ::close(output[0]);
    ::close(errors[0]);
    run.errors = "could not start " + arguments[0] + ": " + std::strerror(spawned);
    return run;
  }
  // Both pipes are read until the program closes them (at its end), or until the time is up.
  const auto deadline = std::chrono::steady_clock::now() + limit;
  pollfd ends[2] = {{output[0], POLLIN, 0}, {errors[0], POLLIN, 0}};
  std::string* texts[2] = {&run.output, &run.errors};
  bool overran = false;
  while (ends[0].fd >= 0 || ends[1].fd >= 0) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) {
      overran = true;
      break;
    }
    if (::poll(ends, 2, static_cast<int>(left.count())) < 0 && errno != EINTR) {
      break;
    }
    for (int i = 0; i < 2; ++i) {
      if (ends[i].fd < 0 || ends[i].revents == 0) {
        continue;
      }
      char buffer[4096];
      const ssize_t count = ::read(ends[i].fd, buffer, sizeof buffer);
      if (count > 0) {
        texts[i]->append(buffer, static_cast<std::size_t>(count));
      } else if (count == 0 || (errno != EINTR && errno != EAGAIN)) {
        ::close(ends[i].fd);
        ends[i].fd = -1;
      }
    }
  }
  for (const pollfd& end : ends) {
    if (end.fd >= 0) {
      ::close(end.fd);
    }
  }
  if (overran) {
    ::kill(pid, SIGKILL);
  }
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  if (!overran && WIFEXITED(status)) {
    run.exitStatus = WEXITSTATUS(status);
  }
  return run;
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
