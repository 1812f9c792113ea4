#include "analytics/event_database.hpp"

#include <filesystem>
#include <string>
#include <system_error>

#include "storage/documents_directory.hpp"

namespace orvanta {

std::shared_ptr<EventDatabase> openEventDatabase(port::FileLocations& fileLocations) {
  auto url = urlForFileInDocumentsDirectory(fileLocations, kEventDatabaseFileName);
  std::string location;
  if (url) {
    location = *url;
    // A fresh installation's data folder may not exist yet.
    std::error_code ignored;
    std::filesystem::create_directories(std::filesystem::path(location).parent_path(), ignored);
  }
  try {
    return std::make_shared<Database<OrvantaEvent>>(location);
  } catch (...) {
    return nullptr;
  }
}

}  // namespace orvanta
