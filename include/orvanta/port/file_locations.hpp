#pragma once

#include <optional>
#include <string>

#include "orvanta/export.hpp"

namespace orvanta::port {

/// Result of asking for a directory: a path, or the reason there is none.
struct DirectoryLookup {
  std::optional<std::string> path;
  std::string error;  ///< why `path` is empty; readable text
};

/// Where the kit keeps files.
class ORVANTA_API FileLocations {
 public:
  virtual ~FileLocations() = default;
  /// The application's documents directory (not created by this call).
  virtual DirectoryLookup documentsDirectory() = 0;
  /// A directory for temporary files.
  virtual std::string temporaryDirectory() = 0;
};

}  // namespace orvanta::port
