#include "testing/dbus/private_session_bus.hpp"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <vector>

extern char** environ;

namespace orvanta::testing {
namespace {

// The daemon writes its address on this descriptor of its own.
constexpr int kAddressDescriptor = 3;
constexpr auto kStartDeadline = std::chrono::seconds(20);

std::string configuration(const std::string& folder) {
  return R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>unix:dir=)" +
         folder + R"(</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
)";
}

class Descriptor {
 public:
  explicit Descriptor(int fd = -1) : fd_(fd) {}
  ~Descriptor() { reset(); }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return fd_; }
  void reset(int fd = -1) {
    if (fd_ >= 0) {
      ::close(fd_);
    }
    fd_ = fd;
  }

 private:
  int fd_;
};

}  // namespace

PrivateSessionBus::PrivateSessionBus() : directory_(std::make_unique<TemporaryDirectory>()) {
  start();
}

PrivateSessionBus::~PrivateSessionBus() {
  stopDaemon();
}

void PrivateSessionBus::start() {
  const std::string configFile = directory_->file("bus.conf");
  const std::string logFile = directory_->file("dbus-daemon.log");
  writeFile(configFile, configuration(directory_->path()));

  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) {
    failure_ = std::string("pipe2: ") + std::strerror(errno);
    return;
  }
  Descriptor readEnd(ends[0]);
  Descriptor writeEnd(ends[1]);
  if (writeEnd.get() == kAddressDescriptor) {
    // dup2 onto itself would keep close-on-exec set; move it out of the way first.
    writeEnd.reset(::fcntl(kAddressDescriptor, F_DUPFD_CLOEXEC, kAddressDescriptor + 1));
    ::close(kAddressDescriptor);
  }

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, writeEnd.get(), kAddressDescriptor);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, logFile.c_str(),
                                   O_WRONLY | O_CREAT | O_TRUNC, 0600);
  std::vector<std::string> arguments = {ORVANTA_DBUS_DAEMON, "--config-file=" + configFile,
                                        "--nofork",
                                        "--print-address=" + std::to_string(kAddressDescriptor)};
  std::vector<char*> argv;
  for (auto& argument : arguments) {
    argv.push_back(argument.data());
  }
  argv.push_back(nullptr);
  const int spawned =
      ::posix_spawnp(&pid_, ORVANTA_DBUS_DAEMON, &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  writeEnd.reset();  // from now on, end of file means the daemon is gone
  if (spawned != 0) {
    pid_ = -1;
    failure_ = std::string("could not start " ORVANTA_DBUS_DAEMON ": ") + std::strerror(spawned);
    return;
  }

  // Read the address line; the daemon closes nothing before printing it, so a deadline only
  // guards against a daemon that hangs.
  std::string printed;
  const auto deadline = std::chrono::steady_clock::now() + kStartDeadline;
  while (printed.find('\n') == std::string::npos) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    pollfd entry{readEnd.get(), POLLIN, 0};
    const int ready = left.count() > 0 ? ::poll(&entry, 1, static_cast<int>(left.count())) : 0;
    if (ready < 0 && errno == EINTR) {
      continue;
    }
    if (ready <= 0) {
      failure_ = "dbus-daemon printed no address in time";
      break;
    }
    char buffer[512];
    const ssize_t count = ::read(readEnd.get(), buffer, sizeof buffer);
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count <= 0) {
      failure_ = "dbus-daemon ended before printing its address";
      break;
    }
    printed.append(buffer, static_cast<std::size_t>(count));
  }
  if (failure_.empty()) {
    address_ = printed.substr(0, printed.find('\n'));
    return;
  }
  stopDaemon();
  failure_ += "; its messages: " + readFile(logFile);
}

void PrivateSessionBus::stopDaemon() {
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
