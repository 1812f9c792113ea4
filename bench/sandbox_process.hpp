#pragma once

// orvanta-sandbox in a process of its own, so that a benchmark measures the kit alone (its CPU
// time and its memory), and a small client of the sandbox's control API.

#include <sys/types.h>

#include <cstddef>
#include <string>

#include <nlohmann/json.hpp>

#include "core/owned_thread.hpp"

namespace orvanta::bench {

class SandboxProcess {
 public:
  /// Starts `program --port 0 --config configPlist` and waits for the address it prints. Throws
  /// std::runtime_error when it does not start.
  SandboxProcess(const std::string& program, const std::string& configPlist);
  /// SIGTERM, then waits for it.
  ~SandboxProcess();
  SandboxProcess(const SandboxProcess&) = delete;
  SandboxProcess& operator=(const SandboxProcess&) = delete;

  /// "http://127.0.0.1:<port>/v1/".
  const std::string& baseUrl() const { return baseUrl_; }
  pid_t pid() const { return pid_; }

  /// POST /_sandbox/reset.
  void reset() const;
  /// GET /_sandbox/state?newest=0.
  nlohmann::json state() const;
  /// Distinct events received since the last reset.
  std::size_t eventCount() const { return state().value("event_count", std::size_t{0}); }
  /// Service requests received since the last reset.
  std::size_t requestCount() const { return state().value("request_count", std::size_t{0}); }
  /// PUT /_sandbox/faults/{endpoint} with `fault`; DELETE /_sandbox/faults.
  void setFault(const std::string& endpoint, const nlohmann::json& fault) const;
  void clearFaults() const;

  /// The sandbox's user + system CPU time so far, in seconds (/proc/<pid>/stat).
  double cpuSeconds() const;

 private:
  std::string control(const std::string& method, const std::string& path,
                      const std::string& body = {}) const;

  pid_t pid_ = -1;
  int output_ = -1;
  std::string baseUrl_;
  std::string controlUrl_;
  OwnedThread outputReader_;  ///< reads (and drops) the per-request lines the sandbox prints
};

/// A line of /proc/self/status ("VmHWM", "VmRSS") in megabytes.
double statusMegabytes(const std::string& field);
/// Sets this process's peak resident size (VmHWM) back to its current resident size.
bool resetPeakResidentSize();
/// This process's user + system CPU time so far, in seconds.
double processCpuSeconds();

}  // namespace orvanta::bench
