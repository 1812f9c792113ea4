// What an application pays for the kit at every launch, before its first frame: N fresh
// processes, each timing the platform's installation, `Orvanta::configure` and the first
// `trackEvent`, with the peak resident memory at that point; once over an empty event database
// and once over `stored` rows left by an earlier launch. The first event is posted to an
// orvanta-sandbox running as a separate process.
//
//   startup_bench [processes, default 10] [stored, default 1000]
//
// Prints the median and the worst of each figure per case. A child run (`--child DATA URL`)
// measures one launch and prints one line of figures.

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "analytics/event_database.hpp"
#include "entry/kit_context.hpp"
#include "orvanta/linux_platform.hpp"
#include "orvanta/orvanta.hpp"
#include "orvanta/service_urls.hpp"
#include "sandbox_process.hpp"

namespace {

using namespace orvanta;
using Clock = std::chrono::steady_clock;

double microsecondsSince(Clock::time_point start) {
  return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

LinuxPlatformOptions optionsFor(const std::string& folder) {
  return {.applicationName = "startup_bench",
          .dataDirectory = folder + "/data",
          .secureStoreDirectory = folder + "/data/keystore",
          .preferencesFile = folder + "/config/preferences.json",
          .bundleDirectory = folder + "/../bundle",
          .kitResourcesDirectory = folder + "/../bundle"};
}

/// One launch, measured: install, configure, first event. Prints "install configure track
/// peak-MB" in microseconds and megabytes.
int child(const std::string& folder, const std::string& url) {
  const auto start = Clock::now();
  installPlatform(makeLinuxPlatform(optionsFor(folder)));
  const double install = microsecondsSince(start);
  setServiceBaseURLs(url, url);
  const auto configureStart = Clock::now();
  Orvanta::configure(OrvantaConfiguration::defaultConfiguration());
  const double configure = microsecondsSince(configureStart);
  const auto trackStart = Clock::now();
  Orvanta::analytics().trackEvent("launch", {{"screen", "home"}});
  const double track = microsecondsSince(trackStart);
  const double peak = bench::statusMegabytes("VmHWM");
  std::printf("%.0f %.0f %.0f %.2f\n", install, configure, track, peak);
  std::fflush(stdout);
  return 0;
}

/// An installation as an earlier launch left it: a device record with a push token and `rows`
/// stored events.
void prepare(const std::string& folder, int rows) {
  std::filesystem::create_directories(folder + "/data");
  auto platform = makeLinuxPlatform(optionsFor(folder));
  detail::KitContext context(platform);
  auto device = context.authData()->device();
  device.deviceToken = "c0ffee";
  context.authData()->setDevice(device);
  Database<OrvantaEvent> database(folder + "/data/" + kEventDatabaseFileName);
  database.inTransaction([&] {
    for (int i = 0; i < rows; ++i) {
      database.add(OrvantaEvent("c0ffee", "bench-app", "earlier", 1700000000.0 + i,
                                ValueMap{{"sku", "A-" + std::to_string(i)}, {"qty", i}}));
    }
  });
}

struct Launch {
  double install = 0, configure = 0, track = 0, peak = 0, process = 0;
};

std::vector<Launch> launches(const std::string& self, const std::string& root,
                             const std::string& url, int processes, int rows) {
  std::vector<Launch> result;
  for (int i = 0; i < processes; ++i) {
    const std::string folder = root + "/run-" + std::to_string(rows) + "-" + std::to_string(i);
    prepare(folder, rows);
    const std::string command = self + " --child " + folder + " " + url;
    const auto start = Clock::now();
    FILE* pipe = ::popen(command.c_str(), "r");
    Launch launch;
    if (pipe == nullptr || std::fscanf(pipe, "%lf %lf %lf %lf", &launch.install, &launch.configure,
                                       &launch.track, &launch.peak) != 4) {
      std::fprintf(stderr, "launch %d failed\n", i);
    }
    if (pipe != nullptr) {
      ::pclose(pipe);
    }
    launch.process = microsecondsSince(start);
    result.push_back(launch);
  }
  return result;
}

void report(const char* title, const std::vector<Launch>& all) {
  const auto figure = [&](double Launch::*field, const char* name, const char* unit, double scale) {
    std::vector<double> values;
    for (const auto& launch : all) {
      values.push_back(launch.*field * scale);
    }
    std::sort(values.begin(), values.end());
    std::printf("  %-30s median %8.2f %s, worst %8.2f %s\n", name, values[values.size() / 2], unit,
                values.back(), unit);
  };
  std::printf("%s (%zu fresh processes)\n", title, all.size());
  figure(&Launch::install, "installPlatform", "ms", 1e-3);
  figure(&Launch::configure, "configure", "ms", 1e-3);
  figure(&Launch::track, "first trackEvent", "ms", 1e-3);
  figure(&Launch::peak, "peak resident at that point", "MB", 1.0);
  figure(&Launch::process, "whole process (spawn to exit)", "ms", 1e-3);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 4 && std::string(argv[1]) == "--child") {
    return child(argv[2], argv[3]);
  }
  const int processes = argc > 1 ? std::max(1, std::atoi(argv[1])) : 10;
  const int stored = argc > 2 ? std::max(0, std::atoi(argv[2])) : 1000;

  std::string root = "/tmp/startup_bench.XXXXXX";
  if (mkdtemp(root.data()) == nullptr) {
    std::perror("mkdtemp");
    return 1;
  }
  std::filesystem::create_directories(root + "/bundle");
  std::ofstream(root + "/bundle/OrvantaConfig.plist")
      << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
      << "<key>AppId</key><string>bench-app</string><key>Token</key><string>bench-token</string>"
      << "<key>Secret</key><string>bench-secret</string>"
      << "<key>EventsToken</key><string>bench-events-token</string></dict></plist>\n";
  bench::SandboxProcess sandbox(ORVANTA_SANDBOX_PROGRAM, root + "/bundle/OrvantaConfig.plist");
  const std::string self = std::filesystem::read_symlink("/proc/self/exe");

  std::printf("start-up of the kit, %d fresh processes per case, service %s\n", processes,
              sandbox.baseUrl().c_str());
  report("empty event database", launches(self, root + "/empty", sandbox.baseUrl(), processes, 0));
  report(("" + std::to_string(stored) + " stored events").c_str(),
         launches(self, root + "/stored", sandbox.baseUrl(), processes, stored));
  std::filesystem::remove_all(root);
  return 0;
}
