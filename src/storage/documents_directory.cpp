#include "storage/documents_directory.hpp"

#include "core/logger.hpp"
#include "orvanta/platform.hpp"

namespace orvanta {

std::optional<std::string> urlForFileInDocumentsDirectory(const std::string& name) {
  port::DirectoryLookup lookup;
  auto platform = currentPlatform();
  if (platform && platform->fileLocations) {
    lookup = platform->fileLocations->documentsDirectory();
  } else {
    lookup.error = "No file locations";
  }
  if (!lookup.path || lookup.path->empty()) {
    OrvantaLogger::error("Unable to create URL for file in documents folders, error: " +
                         lookup.error);
    return std::nullopt;
  }
  std::string path = *lookup.path;
  if (path.back() != '/') {
    path += '/';
  }
  return path + name;
}

}  // namespace orvanta
