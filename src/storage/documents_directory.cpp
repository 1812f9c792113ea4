#include "storage/documents_directory.hpp"

#include "core/logger.hpp"

namespace orvanta {

std::optional<std::string> urlForFileInDocumentsDirectory(port::FileLocations& fileLocations,
                                                          const std::string& name) {
  port::DirectoryLookup lookup = fileLocations.documentsDirectory();
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
