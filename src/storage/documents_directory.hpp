#pragma once

#include <optional>
#include <string>

#include "orvanta/port/file_locations.hpp"

namespace orvanta {

/// The path of the file `name` in the application's documents directory (the directory is not
/// created). When the directory can't be resolved, logs "Unable to create URL for file in
/// documents folders, error: " + the reason at error level and gives none.
std::optional<std::string> urlForFileInDocumentsDirectory(port::FileLocations& fileLocations,
                                                          const std::string& name);

}  // namespace orvanta
