// What an application pays for the kit at every launch, before its first frame: N fresh
// processes of `startup_host` (a host linked against the shared kit, public headers only), each
// timing the platform's installation, `Orvanta::configure` and the first `trackEvent`, with the
// peak resident memory at that point. Three cases take turns, so that a change of load hits them
// all: a later launch over an empty event database, one over `stored` events left by the earlier
// launch, and the very first launch (no files yet, no push token: the event is dropped). Events
// go to an orvanta-sandbox running as a separate process.
//
//   startup_bench [processes, default 10] [stored, default 1000]
//   startup_bench --prepare FOLDER [stored] [flushed]
//                    an installation as an earlier launch left it (ended by a flush, when
//                    "flushed" is given), for one launch under a profiler: startup_host FOLDER URL
//
// Prints the median and the worst of each figure per case, the goals beside them, and the load
// average before and after.

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "analytics/event_database.hpp"
#include "core/file_snapshot.hpp"
#include "core/logging_switch.hpp"
#include "entry/kit_context.hpp"
#include "orvanta/linux_platform.hpp"
#include "sandbox_process.hpp"

extern char** environ;

namespace {

using namespace orvanta;
using Clock = std::chrono::steady_clock;

double microsecondsSince(Clock::time_point start) {
  return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

std::string loadAverage() {
  std::ifstream file("/proc/loadavg");
  double one = 0, five = 0, fifteen = 0;
  file >> one >> five >> fifteen;
  char text[64];
  std::snprintf(text, sizeof text, "%.2f, %.2f, %.2f", one, five, fifteen);
  return text;
}

/// Starts `arguments` (the program first) with its standard output on `output` (unless -1); its
/// process id, or -1.
pid_t spawn(const std::vector<std::string>& arguments, int output = -1) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  if (output >= 0) {
    posix_spawn_file_actions_adddup2(&actions, output, 1);
  }
  std::vector<char*> argv;
  for (const auto& argument : arguments) {
    argv.push_back(const_cast<char*>(argument.c_str()));
  }
  argv.push_back(nullptr);
  pid_t pid = -1;
  const int failed = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  return failed == 0 ? pid : -1;
}

/// Waits for `pid`; whether it exited with status 0. `usage` receives its resource use.
bool succeeded(pid_t pid, rusage* usage = nullptr) {
  int status = 0;
  rusage ignored{};
  while (::wait4(pid, &status, 0, usage != nullptr ? usage : &ignored) < 0) {
    if (errno != EINTR) {
      return false;
    }
  }
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

void writeConfigurationFile(const std::string& folder) {
  std::filesystem::create_directories(folder + "/bundle");
  std::ofstream(folder + "/bundle/OrvantaConfig.plist")
      << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
      << "<key>AppId</key><string>bench-app</string><key>Token</key><string>bench-token</string>"
      << "<key>Secret</key><string>bench-secret</string>"
      << "<key>EventsToken</key><string>bench-events-token</string></dict></plist>\n";
}

/// An installation as an earlier launch left it (`--prepare`, in a process of its own): the
/// logging switch off, a device record with a push token, ten events tracked and delivered, and
/// `rows` events still stored; when `flushed`, ended as `Orvanta::flush` or a move to the
/// background ends (with a checkpoint). The process then ends as an application does, without
/// closing the database, so that its write-ahead log is left as the kit leaves it. The host's
/// options (startup_host.cpp) name the same folders.
[[noreturn]] void earlierLaunch(const std::string& folder, int rows, bool flushed) {
  writeConfigurationFile(folder);
  std::filesystem::create_directories(folder + "/data");
  auto platform = makeLinuxPlatform({.applicationName = "startup_host",
                                     .dataDirectory = folder + "/data",
                                     .secureStoreDirectory = folder + "/data/keystore",
                                     .preferencesFile = folder + "/config/preferences.json",
                                     .bundleDirectory = folder + "/bundle",
                                     .kitResourcesDirectory = folder + "/bundle"});
  detail::setLoggingEnabled(*platform->preferences, false);
  detail::KitContext context(platform);
  auto device = context.authData()->device();
  device.deviceToken = "c0ffee";
  context.authData()->setDevice(device);
  Database<OrvantaEvent> database(folder + "/data/" + kEventDatabaseFileName);
  for (int i = 0; i < 10; ++i) {
    const OrvantaEvent delivered("c0ffee", "bench-app", "earlier", 1700000000.0 + i,
                                 ValueMap{{"screen", "home"}});
    database.add(delivered);
    database.deleteRow(delivered.uuidId);
  }
  database.inTransaction([&] {
    for (int i = 0; i < rows; ++i) {
      database.add(OrvantaEvent("c0ffee", "bench-app", "earlier", 1700000000.0 + i,
                                ValueMap{{"sku", "A-" + std::to_string(i)}, {"qty", i}}));
    }
  });
  if (flushed) {
    database.checkpoint();
  }
  std::_Exit(0);  // no destructor: the connection is left open, as at an application's exit
}

struct Launch {
  double toMain = 0, install = 0, configure = 0, track = 0, peak = 0, threads = 0, delivered = 0,
         peakDelivered = 0, process = 0, cpu = 0;
  bool ok = false;
};

/// One fresh process of the host over `folder`.
Launch launch(const std::string& folder, const std::string& url) {
  Launch result;
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) {
    return result;
  }
  const auto start = Clock::now();
  const pid_t pid = spawn(
      {STARTUP_HOST_PROGRAM, folder, url,
       std::to_string(
           std::chrono::duration_cast<std::chrono::nanoseconds>(start.time_since_epoch()).count())},
      ends[1]);
  ::close(ends[1]);
  std::string output;
  char chunk[256];
  for (ssize_t got; pid > 0 && (got = ::read(ends[0], chunk, sizeof chunk)) != 0;) {
    if (got < 0) {
      if (errno == EINTR) {
        continue;
      }
      break;
    }
    output.append(chunk, static_cast<std::size_t>(got));
  }
  ::close(ends[0]);
  rusage usage{};
  const bool exited = pid > 0 && succeeded(pid, &usage);
  result.process = microsecondsSince(start);
  const auto seconds = [](const timeval& t) {
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) / 1e6;
  };
  result.cpu = (seconds(usage.ru_utime) + seconds(usage.ru_stime)) * 1e6;
  result.ok = exited &&
              std::sscanf(output.c_str(), "%lf %lf %lf %lf %lf %lf %lf %lf", &result.toMain,
                          &result.install, &result.configure, &result.track, &result.peak,
                          &result.threads, &result.delivered, &result.peakDelivered) == 8 &&
              result.delivered >= 0;
  return result;
}

void report(const std::string& title, const std::vector<Launch>& all) {
  std::vector<Launch> good;
  std::copy_if(all.begin(), all.end(), std::back_inserter(good),
               [](const Launch& one) { return one.ok; });
  std::printf("%s (%zu fresh processes, %zu failed)\n", title.c_str(), all.size(),
              all.size() - good.size());
  if (good.empty()) {
    return;
  }
  const auto figure = [&](double Launch::*field, const char* name, const char* unit, double scale,
                          const char* goal) {
    std::vector<double> values;
    for (const auto& one : good) {
      values.push_back(one.*field * scale);
    }
    std::sort(values.begin(), values.end());
    std::printf("  %-34s median %8.2f %s, worst %8.2f %s%s\n", name, values[values.size() / 2],
                unit, values.back(), unit, goal);
  };
  figure(&Launch::toMain, "spawn to main (loading the kit)", "ms", 1e-3, "");
  figure(&Launch::install, "installPlatform", "ms", 1e-3, "");
  figure(&Launch::configure, "configure", "ms", 1e-3, "   (goal <= 1 ms)");
  figure(&Launch::track, "first trackEvent", "ms", 1e-3, "   (goal <= 1 ms, empty database)");
  figure(&Launch::peak, "peak resident at that point", "MB", 1.0, "   (goal <= 10 MB)");
  figure(&Launch::threads, "threads right after configure", "  ", 1.0, "");
  figure(&Launch::delivered, "then Orvanta::flush, until delivered", "ms", 1e-3, "");
  figure(&Launch::peakDelivered, "peak resident once delivered", "MB", 1.0, "");
  figure(&Launch::process, "whole process (spawn to exit)", "ms", 1e-3, "");
  figure(&Launch::cpu, "CPU time of the whole process", "ms", 1e-3, "");
}

}  // namespace

int main(int argc, char** argv) {
  if (argc >= 3 && std::string(argv[1]) == "--prepare") {
    earlierLaunch(argv[2], argc > 3 ? std::max(0, std::atoi(argv[3])) : 0,
                  argc > 4 && std::string(argv[4]) == "flushed");
  }
  const int processes = argc > 1 ? std::max(1, std::atoi(argv[1])) : 10;
  const int stored = argc > 2 ? std::max(0, std::atoi(argv[2])) : 1000;
  const std::string self = std::filesystem::read_symlink("/proc/self/exe");

  std::string root = "/tmp/startup_bench.XXXXXX";
  if (mkdtemp(root.data()) == nullptr) {
    std::perror("mkdtemp");
    return 1;
  }
  writeConfigurationFile(root + "/sandbox");  // the sandbox takes the same credentials
  bench::SandboxProcess sandbox(ORVANTA_SANDBOX_PROGRAM,
                                root + "/sandbox/bundle/OrvantaConfig.plist");
  const std::string url = sandbox.baseUrl();

  std::printf(
      "start-up of a host linked against the shared kit, %d fresh processes per case, service "
      "%s\nload average before: %s\n",
      processes, url.c_str(), loadAverage().c_str());
  // The earlier launch's arguments to --prepare (none: no earlier launch), and the case's title.
  struct Case {
    std::vector<std::string> earlier;
    std::string title;
    std::vector<Launch> launches;
  };
  std::vector<Case> cases = {
      {{"0", "flushed"},
       "later launch, empty event database, the earlier one ended by a flush",
       {}},
      {{"0"}, "later launch, empty event database, the earlier one ended without a flush", {}},
      {{std::to_string(stored)},
       "later launch, " + std::to_string(stored) + " stored events, no flush before",
       {}},
      {{}, "first launch (no files yet, no push token: the event is dropped)", {}}};
  const auto folderOf = [&](std::size_t c, int i) {
    return root + "/case-" + std::to_string(c) + "-" + std::to_string(i);
  };
  bool prepared = true;
  for (int i = 0; i < processes; ++i) {
    for (std::size_t c = 0; c < cases.size(); ++c) {
      if (cases[c].earlier.empty()) {
        writeConfigurationFile(folderOf(c, i));
      } else {
        std::vector<std::string> arguments = {self, "--prepare", folderOf(c, i)};
        arguments.insert(arguments.end(), cases[c].earlier.begin(), cases[c].earlier.end());
        prepared = prepared && succeeded(spawn(arguments));
      }
    }
  }
  // An installed application's files are older than this: a file changed in the last two seconds
  // is read in full at every access (see detail::FileSnapshot), an older one costs a stat.
  std::this_thread::sleep_for(detail::FileSnapshot::kDefaultSettleTime +
                              std::chrono::milliseconds(100));
  for (int i = 0; i < processes; ++i) {
    for (std::size_t c = 0; c < cases.size(); ++c) {
      cases[c].launches.push_back(launch(folderOf(c, i), url));
    }
  }
  if (!prepared) {
    std::fprintf(stderr, "could not prepare the installations\n");
  }
  bool allGood = prepared;
  for (const auto& one : cases) {
    report(one.title, one.launches);
    allGood = allGood && std::all_of(one.launches.begin(), one.launches.end(),
                                     [](const Launch& launch) { return launch.ok; });
  }
  std::printf("load average after: %s\n", loadAverage().c_str());
  std::filesystem::remove_all(root);
  return allGood ? 0 : 1;
}
