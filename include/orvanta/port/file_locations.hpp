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

/// How far the kit's event database goes to keep what it has acknowledged.
enum class Durability {
  /// A commit reaches the disk at the next checkpoint, or when the application moves to the
  /// background or is about to be suspended: a crash of the application loses nothing, a power
  /// cut may take the events of the moments before it.
  normal,
  /// Every commit is synced to the disk before it returns: a power cut takes no event whose
  /// `trackEvent` returned, at the price of one disk sync per tracked event.
  full,
};

/// Where the kit keeps files, and how durably.
class ORVANTA_API FileLocations {
 public:
  virtual ~FileLocations() = default;
  /// The application's documents directory (not created by this call).
  virtual DirectoryLookup documentsDirectory() = 0;
  /// A directory for temporary files.
  virtual std::string temporaryDirectory() = 0;
  /// How the event database commits; `Durability::normal` unless the platform says otherwise.
  /// Asked once, when the database is opened, on the thread that opens it.
  virtual Durability durability() { return Durability::normal; }
};

}  // namespace orvanta::port
