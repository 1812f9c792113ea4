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
/// temporary one that lasts as long as the process when there is no documents directory; none
/// when it can't be opened (silently: analytics then records nothing).
std::shared_ptr<EventDatabase> openEventDatabase(port::FileLocations& fileLocations);

}  // namespace orvanta
