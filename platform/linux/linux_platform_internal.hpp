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

/// The preferences store's lines said through the kit's logger: like every line, only while
/// logging is on (a line that came while it was off is said at a later use of the store).
JsonPreferencesStore::Report reportsToLogger();

}  // namespace orvanta::linux_platform
