#pragma once

#include <memory>
#include <string>

#include "linux/json_preferences_store.hpp"
#include "orvanta/linux_platform.hpp"
#include "orvanta/port/clock.hpp"
#include "orvanta/port/log_sink.hpp"

namespace orvanta::linux_platform {

/// The folders and files of the Linux default after every option left empty has been resolved.
struct ResolvedLocations {
  std::string applicationName;
  std::string dataDirectory;  ///< empty when no home could be found
  std::string secureStoreDirectory;
  std::string preferencesFile;
  std::string bundleDirectory;
  std::string kitResourcesDirectory;
};

ResolvedLocations resolveLocations(const LinuxPlatformOptions& options);

/// Gives every port `platform` lacks its Linux default, one by one (a platform missing only its
/// clock gets a clock, and no thread). The defaults' files follow `options`. True when a port was
/// missing.
bool fillMissingPorts(Platform& platform, const LinuxPlatformOptions& options);

/// Store warnings written straight to `sink` as warning lines. They bypass the logging switch
/// (which lives in the preferences that may be the damaged file) and the logger itself, which reads
/// the preferences.
JsonPreferencesStore::Warning warningsToLogSink(std::shared_ptr<port::LogSink> sink,
                                                std::shared_ptr<port::Clock> clock);

}  // namespace orvanta::linux_platform
