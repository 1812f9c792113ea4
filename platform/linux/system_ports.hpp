#pragma once

#include <chrono>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "orvanta/port/clock.hpp"
#include "orvanta/port/device_info.hpp"
#include "orvanta/port/file_locations.hpp"
#include "orvanta/port/log_sink.hpp"

namespace orvanta::linux_platform {

/// The system's wall clock and monotonic clock.
class SystemClock : public port::Clock {
 public:
  std::chrono::system_clock::time_point now() override { return std::chrono::system_clock::now(); }
  std::chrono::steady_clock::time_point monotonicNow() override {
    return std::chrono::steady_clock::now();
  }
};

/// Log lines to standard output, one write and one flush per line, serialised by a mutex.
class StdoutLogSink : public port::LogSink {
 public:
  void write(std::string_view line) override;

 private:
  std::mutex mutex_;
};

/// Documents in the application's data folder; temporary files in $TMPDIR, else /tmp.
class XdgFileLocations : public port::FileLocations {
 public:
  /// `dataFolder` empty: there is no documents folder (no home directory could be found).
  explicit XdgFileLocations(std::string dataFolder,
                            port::Durability durability = port::Durability::normal);
  port::DirectoryLookup documentsDirectory() override;
  std::string temporaryDirectory() override;
  port::Durability durability() override { return durability_; }

 private:
  std::string dataFolder_;
  port::Durability durability_;
};

/// Device facts from uname(2), the os-release file and the locale environment variables.
class LinuxDeviceInfo : public port::DeviceInfo {
 public:
  /// `osReleasePath` empty: "/etc/os-release", else "/usr/lib/os-release".
  explicit LinuxDeviceInfo(std::string osReleasePath = {});

  std::string machine() override;
  /// NAME from os-release, else uname's system name ("Linux").
  std::string systemName() override;
  /// VERSION_ID from os-release, else uname's release.
  std::string systemVersion() override;
  /// None: Linux has no identifier for the vendor.
  std::optional<std::string> vendorId() override;
  /// From LC_ALL, LC_MESSAGES or LANG (first one set): the part before "_", "." or "@";
  /// none for "C", "POSIX" or when unset.
  std::optional<std::string> languageCode() override;
  std::optional<std::string> environment(const std::string& name) override;

  /// The value of `key` in os-release text (quotes removed); none when absent.
  static std::optional<std::string> osReleaseValue(std::string_view text, std::string_view key);
  /// The language part of a locale name, as `languageCode` reports it.
  static std::optional<std::string> languageFromLocale(std::string_view locale);

 private:
  std::string osReleasePath_;
};

}  // namespace orvanta::linux_platform
