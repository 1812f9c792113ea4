// Nothing tracked is lost when the application is killed: a child process tracks events against the
// sandbox and is killed with SIGKILL at random moments; after each kill a fresh child opens the
// same database and flushes it. Every event whose `trackEvent` had returned must reach the sandbox.

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "orvanta_sandbox/sandbox.hpp"
#include "testing/config_plist.hpp"
#include "testing/temporary_directory.hpp"

extern char** environ;

namespace {

using Clock = std::chrono::steady_clock;

struct Child {
  pid_t pid = -1;
  int output = -1;  ///< read end of the child's descriptor 3 (track) or 1 (the others)
};

/// Starts the child program with `arguments`; its descriptor `fd` goes to a pipe we read.
Child spawn(const std::vector<std::string>& arguments, int fd) {
  int pipeEnds[2];
  if (pipe2(pipeEnds, O_CLOEXEC) != 0) {
    ADD_FAILURE() << "pipe";
    return {};
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, pipeEnds[1], fd);
  std::vector<char*> argv;
  std::string program = ORVANTA_CRASH_CHILD;
  argv.push_back(program.data());
  std::vector<std::string> copies = arguments;
  for (auto& argument : copies) {
    argv.push_back(argument.data());
  }
  argv.push_back(nullptr);
  pid_t pid = -1;
  int status = posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(pipeEnds[1]);
  if (status != 0) {
    close(pipeEnds[0]);
    ADD_FAILURE() << "posix_spawn: " << status;
    return {};
  }
  return {pid, pipeEnds[0]};
}

/// Reads what is available until `deadline` (or end of file when there is no deadline), or until
/// `lines` complete lines have arrived when it is given.
void readUntil(int fd, std::string& buffer, std::optional<Clock::time_point> deadline,
               std::optional<long> lines = std::nullopt) {
  char chunk[4096];
  while (!lines || std::count(buffer.begin(), buffer.end(), '\n') < *lines) {
    int timeout = -1;
    if (deadline) {
      auto left = std::chrono::duration_cast<std::chrono::milliseconds>(*deadline - Clock::now());
      if (left.count() <= 0) {
        return;
      }
      timeout = static_cast<int>(left.count());
    }
    pollfd entry{fd, POLLIN, 0};
    int ready = poll(&entry, 1, timeout);
    if (ready == 0) {
      return;
    }
    if (ready < 0) {
      if (errno == EINTR) {
        continue;
      }
      return;
    }
    ssize_t count = read(fd, chunk, sizeof chunk);
    if (count <= 0) {
      return;
    }
    buffer.append(chunk, static_cast<std::size_t>(count));
  }
}

orvanta::sandbox::Fault refusing() {
  orvanta::sandbox::Fault fault;
  fault.status = 503;
  return fault;
}

int waitExit(pid_t pid) {
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  return status;
}

/// Runs a child to its end; its exit code, and what it printed.
int runToEnd(const std::vector<std::string>& arguments, std::string& output) {
  Child child = spawn(arguments, 1);
  if (child.pid < 0) {
    return -1;
  }
  readUntil(child.output, output, std::nullopt);
  close(child.output);
  int status = waitExit(child.pid);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

class CrashTest : public ::testing::Test {
 protected:
  void SetUp() override { startSandbox({}); }

  void startSandbox(orvanta::sandbox::Options options) {
    sandbox_.reset();
    sandbox_ = orvanta::sandbox::Sandbox::start(std::move(options));
    const auto& c = sandbox_->credentials();
    orvanta::testing::writeConfigPlist(
        root_.path() + "/bundle",
        orvanta::testing::credentials(c.appId, c.token, c.secret, c.eventsToken));
  }

  /// Children track events and are killed with SIGKILL at random moments, `runs` times; after
  /// each kill a fresh child opens the database and flushes it empty. Every event whose
  /// `trackEvent` had returned must have reached the sandbox. Prints the figures under `title`.
  void killAndFlush(int runs, const char* title) {
    const auto seed = static_cast<unsigned>(std::random_device{}());
    std::mt19937 random(seed);
    std::uniform_int_distribution<int> killAfterMs(5, 120);

    const auto started = Clock::now();
    std::set<std::string> reported;
    std::size_t leftInDatabase = 0;
    for (int run = 0; run < runs; ++run) {
      Child child =
          spawn({"track", root_.path(), sandbox_->baseUrl(), "r" + std::to_string(run)}, 3);
      ASSERT_GE(child.pid, 0);
      std::string names;
      readUntil(child.output, names, Clock::now() + std::chrono::milliseconds(killAfterMs(random)));
      kill(child.pid, SIGKILL);
      waitExit(child.pid);
      readUntil(child.output, names, std::nullopt);  // what it reported before dying
      close(child.output);
      // A name without its newline was being written when the child died: not reported.
      std::size_t begin = 0;
      for (std::size_t end; (end = names.find('\n', begin)) != std::string::npos; begin = end + 1) {
        reported.insert(names.substr(begin, end - begin));
      }

      std::string flushed;
      ASSERT_EQ(runToEnd({"flush", root_.path(), sandbox_->baseUrl()}, flushed), 0)
          << "run " << run << " (seed " << seed << "): the database did not open cleanly or empty";
      leftInDatabase += std::strtoul(flushed.c_str(), nullptr, 10);
    }
    const auto elapsed = std::chrono::duration<double>(Clock::now() - started).count();

    std::map<std::string, int> deliveries;
    for (const auto& event : sandbox_->events()) {
      deliveries[event.body.value("eventName", "")] += event.deliveries;
    }
    std::size_t missing = 0;
    std::size_t duplicates = 0;
    for (const auto& name : reported) {
      auto found = deliveries.find(name);
      if (found == deliveries.end()) {
        ++missing;
        ADD_FAILURE() << "lost: " << name << " (seed " << seed << ")";
      } else {
        duplicates += static_cast<std::size_t>(found->second - 1);
      }
    }
    EXPECT_EQ(missing, 0u);
    EXPECT_TRUE(sandbox_->violations().empty());
    EXPECT_GT(reported.size(), 0u);
    std::printf(
        "crash test%s: %d runs killed with SIGKILL, %zu events reported, %zu delivered in all, "
        "%zu duplicate deliveries, %zu rows flushed by the next launch, %zu lost, %.1f s "
        "(seed %u)\n",
        title, runs, reported.size(), deliveries.size(), duplicates, leftInDatabase, missing,
        elapsed, seed);
  }

  std::unique_ptr<orvanta::sandbox::Sandbox> sandbox_;
  orvanta::testing::TemporaryDirectory root_;
};

TEST_F(CrashTest, NoReturnedEventIsLostWhenTheProcessIsKilled) {
  killAndFlush(50, "");
}

// The same while the service refuses or fails half of the posts: every post it answers sets the
// next event post to fail, alternately refused (503) and cut off (connection closed), so a
// backlog of rows is always at stake when the process dies.
TEST_F(CrashTest, NoReturnedEventIsLostWhileHalfOfThePostsFail) {
  auto holder = std::make_shared<std::atomic<orvanta::sandbox::Sandbox*>>(nullptr);
  auto failures = std::make_shared<std::atomic<unsigned>>(0);
  orvanta::sandbox::Options options;
  options.onRequest = [holder, failures](const orvanta::sandbox::RecordedRequest& request,
                                         const std::string&) {
    orvanta::sandbox::Sandbox* sandbox = holder->load();
    if (sandbox == nullptr || request.path != "/v1/event" || request.status / 100 != 2) {
      return;
    }
    orvanta::sandbox::Fault fault;
    if (failures->fetch_add(1) % 2 == 0) {
      fault.status = 503;
    } else {
      fault.drop = true;
    }
    fault.count = 1;
    sandbox->setFault(orvanta::sandbox::Endpoint::event, fault);
  };
  startSandbox(std::move(options));
  holder->store(sandbox_.get());
  killAndFlush(50, " (half of the posts failing)");
  holder->store(nullptr);
  std::size_t refused = 0;
  for (const auto& request : sandbox_->requests()) {
    refused += request.path == "/v1/event" && request.status / 100 != 2 ? 1 : 0;
  }
  EXPECT_GT(refused, 0u);
}

TEST_F(CrashTest, ASecondProcessSeesTheRowsOfTheFirst) {
  // The sandbox refuses every event, so the tracked rows stay in the file.
  sandbox_->setFault(std::nullopt, refusing());
  Child child = spawn({"track", root_.path(), sandbox_->baseUrl(), "kept"}, 3);
  ASSERT_GE(child.pid, 0);
  std::string names;
  readUntil(child.output, names, Clock::now() + std::chrono::seconds(30), 3);
  kill(child.pid, SIGKILL);
  waitExit(child.pid);
  readUntil(child.output, names, std::nullopt);
  close(child.output);
  const auto tracked = static_cast<unsigned long>(std::count(names.begin(), names.end(), '\n'));
  ASSERT_GE(tracked, 3u);

  std::string counted;
  ASSERT_EQ(runToEnd({"count", root_.path()}, counted), 0);
  EXPECT_GE(std::strtoul(counted.c_str(), nullptr, 10), tracked);
}

}  // namespace
