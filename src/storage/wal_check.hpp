#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace orvanta::detail {

/// What SQLite will drop of the write-ahead log `wal` (the bytes of a "-wal" file) when it next
/// opens the database, as a sentence; none when the log reads whole (empty, all its frames valid,
/// or only a torn frame at its end, as a crash leaves). SQLite replays a log up to its first frame
/// that does not read and drops the rest silently: a damaged header drops the whole log, a damaged
/// frame the transactions committed after it.
std::optional<std::string> walDamage(std::string_view wal);

}  // namespace orvanta::detail
