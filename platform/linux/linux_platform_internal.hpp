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

/// Store warnings said through the kit's logger, as warning lines: like every line, only while
/// logging is on, and each distinct warning once. A warning that comes while logging is off is not
/// printed (a store that cannot be written says so again at its next write).
JsonPreferencesStore::Warning warningsToLogger();

}  // namespace orvanta::linux_platform
