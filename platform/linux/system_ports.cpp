#include "linux/system_ports.hpp"

#include <sys/utsname.h>

#include <cstdio>
#include <cstdlib>
#include <utility>

#include "linux/file_utils.hpp"

namespace orvanta::linux_platform {

void StdoutLogSink::write(std::string_view line) {
  std::lock_guard lock(mutex_);
  std::fwrite(line.data(), 1, line.size(), stdout);
  std::fflush(stdout);
}

XdgFileLocations::XdgFileLocations(std::string dataFolder, port::Durability durability)
    : dataFolder_(std::move(dataFolder)), durability_(durability) {}

port::DirectoryLookup XdgFileLocations::documentsDirectory() {
  if (dataFolder_.empty()) {
    return {std::nullopt, "No data directory: neither XDG_DATA_HOME nor HOME is set"};
  }
  return {dataFolder_, {}};
}

std::string XdgFileLocations::temporaryDirectory() {
  const char* tmp = std::getenv("TMPDIR");
  if (tmp != nullptr && tmp[0] == '/') {
    return tmp;
  }
  return "/tmp";
}

LinuxDeviceInfo::LinuxDeviceInfo(std::string osReleasePath)
    : osReleasePath_(std::move(osReleasePath)) {}

namespace {

struct utsname systemNames() {
  struct utsname names {};
  if (::uname(&names) != 0) {
    return {};
  }
  return names;
}

}  // namespace

std::string LinuxDeviceInfo::machine() {
  return systemNames().machine;
}

std::optional<std::string> LinuxDeviceInfo::osReleaseValue(std::string_view text,
                                                           std::string_view key) {
  std::size_t start = 0;
  while (start < text.size()) {
    std::size_t end = text.find('\n', start);
    if (end == std::string_view::npos) {
      end = text.size();
    }
    std::string_view line = text.substr(start, end - start);
    start = end + 1;
    if (line.size() > key.size() && line.substr(0, key.size()) == key && line[key.size()] == '=') {
      std::string_view value = line.substr(key.size() + 1);
      if (!value.empty() && value.back() == '\r') {
        value.remove_suffix(1);
      }
      if (value.size() >= 2 && (value.front() == '"' || value.front() == '\'') &&
          value.back() == value.front()) {
        value = value.substr(1, value.size() - 2);
      }
      std::string unescaped;
      for (std::size_t i = 0; i < value.size(); ++i) {
        if (value[i] == '\\' && i + 1 < value.size()) {
          ++i;
        }
        unescaped.push_back(value[i]);
      }
      return unescaped;
    }
  }
  return std::nullopt;
}

namespace {

std::optional<std::string> readOsRelease(const std::string& configured, std::string_view key) {
  constexpr std::size_t kMaxBytes = 64 * 1024;
  std::optional<std::string> contents;
  if (!configured.empty()) {
    contents = readRegularFile(configured, kMaxBytes);
  } else {
    contents = readRegularFile("/etc/os-release", kMaxBytes);
    if (!contents) {
      contents = readRegularFile("/usr/lib/os-release", kMaxBytes);
    }
  }
  if (!contents) {
    return std::nullopt;
  }
  auto value = LinuxDeviceInfo::osReleaseValue(*contents, key);
  if (value && value->empty()) {
    return std::nullopt;
  }
  return value;
}

}  // namespace

std::string LinuxDeviceInfo::systemName() {
  if (auto name = readOsRelease(osReleasePath_, "NAME")) {
    return *name;
  }
  return systemNames().sysname;
}

std::string LinuxDeviceInfo::systemVersion() {
  if (auto version = readOsRelease(osReleasePath_, "VERSION_ID")) {
    return *version;
  }
  return systemNames().release;
}

std::optional<std::string> LinuxDeviceInfo::vendorId() {
  return std::nullopt;
}

std::optional<std::string> LinuxDeviceInfo::languageFromLocale(std::string_view locale) {
  if (locale.empty() || locale == "C" || locale == "POSIX" || locale.substr(0, 2) == "C.") {
    return std::nullopt;
  }
  std::size_t end = locale.find_first_of("_.@");
  std::string_view language = locale.substr(0, end);
  if (language.empty()) {
    return std::nullopt;
  }
  return std::string(language);
}

std::optional<std::string> LinuxDeviceInfo::languageCode() {
  for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* value = std::getenv(name);
    if (value != nullptr && value[0] != '\0') {
      return languageFromLocale(value);
    }
  }
  return std::nullopt;
}

std::optional<std::string> LinuxDeviceInfo::environment(const std::string& name) {
  const char* value = std::getenv(name.c_str());
  if (value == nullptr) {
    return std::nullopt;
  }
  return std::string(value);
}

}  // namespace orvanta::linux_platform
