#pragma once

#include <memory>

#include "models/orvanta_event.hpp"
#include "orvanta/port/file_locations.hpp"
#include "storage/database.hpp"

namespace orvanta {

/// The event database the analytics queue uses.
using EventDatabase = DatabaseProtocol<OrvantaEvent>;

/// The file "Orvanta.sqlite" of the documents directory.
inline constexpr const char* kEventDatabaseFileName = "Orvanta.sqlite";

/// The event database of the documents directory (the directory is created when missing), or a
/// temporary one that lasts as long as the process when there is no documents directory, with the
/// platform's durability. A file that can't be opened yet is opened by the first call that
/// succeeds (see `detail::SqliteTable`); every call before fails.
std::shared_ptr<EventDatabase> openEventDatabase(port::FileLocations& fileLocations);

}  // namespace orvanta
