#include "analytics/event_database.hpp"

#include <filesystem>
#include <string>

#include "core/os.hpp"
#include "storage/documents_directory.hpp"

namespace orvanta {

std::shared_ptr<EventDatabase> openEventDatabase(port::FileLocations& fileLocations) {
  auto url = urlForFileInDocumentsDirectory(fileLocations, kEventDatabaseFileName);
  std::string location;
  if (url) {
    location = *url;
    // A fresh installation's data folder may not exist yet; the kit makes it private, as the
    // events it keeps carry the push token.
    os::makeOwnerOnlyDirectories(std::filesystem::path(location).parent_path().string());
  }
  // A file that can't be opened now is opened by a later call (see `detail::SqliteTable`).
  return std::make_shared<Database<OrvantaEvent>>(
      location, DatabaseOptions{.durability = fileLocations.durability()});
}

}  // namespace orvanta
