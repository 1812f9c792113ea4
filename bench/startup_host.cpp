// One launch of a host built against the shared kit, as an application starts it: install the
// Linux platform, configure, track the first event. Uses the public headers only and links the
// shared library, so what it measures includes loading the kit and its libraries.
//
//   startup_host FOLDER SERVICE-URL [SPAWNED-AT]
//
// FOLDER holds "bundle/OrvantaConfig.plist" and the installation's "data" and "config" folders;
// SPAWNED-AT is the steady clock's reading (nanoseconds) when the parent started this process.
// Prints one line: "spawn-to-main install configure track" in microseconds, the peak resident
// memory at that point in megabytes, the threads of the process right after `configure`; then
// how long `Orvanta::flush` took to deliver what was stored (microseconds, -1 when it could not)
// and the peak resident memory after it.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "orvanta/linux_platform.hpp"
#include "orvanta/orvanta.hpp"
#include "orvanta/service_urls.hpp"

namespace {

using Clock = std::chrono::steady_clock;

double microsecondsBetween(Clock::time_point start, Clock::time_point end) {
  return std::chrono::duration<double, std::micro>(end - start).count();
}

/// The number after `field` in /proc/self/status ("VmHWM:" in kilobytes, "Threads:").
double status(const std::string& field) {
  std::ifstream file("/proc/self/status");
  std::string word;
  while (file >> word) {
    if (word == field) {
      double value = 0;
      file >> value;
      return value;
    }
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const auto entered = Clock::now();
  if (argc < 3) {
    std::fprintf(stderr, "usage: startup_host FOLDER SERVICE-URL [SPAWNED-AT]\n");
    return 2;
  }
  const std::string folder = argv[1];
  const double toMain = argc > 3 ? microsecondsBetween(Clock::time_point(std::chrono::nanoseconds(
                                                           std::strtoll(argv[3], nullptr, 10))),
                                                       entered)
                                 : 0.0;

  const auto start = Clock::now();
  orvanta::installPlatform(
      orvanta::makeLinuxPlatform({.applicationName = "startup_host",
                                  .dataDirectory = folder + "/data",
                                  .secureStoreDirectory = folder + "/data/keystore",
                                  .preferencesFile = folder + "/config/preferences.json",
                                  .bundleDirectory = folder + "/bundle",
                                  .kitResourcesDirectory = folder + "/bundle"}));
  orvanta::setServiceBaseURLs(argv[2], argv[2]);
  const auto installed = Clock::now();
  orvanta::Orvanta::configure(orvanta::OrvantaConfiguration::defaultConfiguration());
  const auto configured = Clock::now();
  const double threadsAfterConfigure = status("Threads:");
  orvanta::Orvanta::analytics().trackEvent("launch", {{"screen", "home"}});
  const auto tracked = Clock::now();
  const double peak = status("VmHWM:") / 1024.0;
  // Then what the first event costs in the end: its delivery, with the HTTP client's start.
  const std::size_t left = orvanta::Orvanta::flush(std::chrono::seconds(10));
  const auto delivered = Clock::now();
  const double peakDelivered = status("VmHWM:") / 1024.0;

  std::printf("%.0f %.0f %.0f %.0f %.2f %.0f %.0f %.2f\n", toMain,
              microsecondsBetween(start, installed), microsecondsBetween(installed, configured),
              microsecondsBetween(configured, tracked), peak, threadsAfterConfigure,
              left == 0 ? microsecondsBetween(tracked, delivered) : -1.0, peakDelivered);
  std::fflush(stdout);
  return 0;
}
