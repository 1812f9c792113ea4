#pragma once

#include <optional>
#include <string>

namespace orvanta {

/// The path of the file `name` in the application's documents directory (the current platform's
/// file locations; the directory is not created). When the directory can't be resolved, logs
/// "Unable to create URL for file in documents folders, error: " + the reason at error level and
/// gives none.
std::optional<std::string> urlForFileInDocumentsDirectory(const std::string& name);

}  // namespace orvanta
