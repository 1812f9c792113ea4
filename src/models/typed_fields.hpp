#pragma once

#include <cmath>
#include <cstdint>
#include <map>
#include <string>

#include "core/utf8.hpp"
#include "orvanta/value.hpp"

namespace orvanta::detail {

/// Sorts host values into four typed maps, trying for each entry, in this order: an integer
/// (which takes boxed numbers that are exactly integers, so a Boolean that crossed a C boundary
/// is kept as 0 or 1), a string, a Boolean, a date. Anything else is dropped, and so is a date
/// that is not finite (JSON cannot carry it). Keys and strings are host text, repaired as it
/// enters (`repairedUtf8`): two keys that differ only in ill-formed bytes may become one, the
/// later in key order winning. Entries are inserted or overwritten; nothing is removed.
inline void sortIntoTypedFields(const ValueMap& parameters,
                                std::map<std::string, std::int64_t>& integers,
                                std::map<std::string, std::string>& strings,
                                std::map<std::string, bool>& booleans,
                                std::map<std::string, Date>& dates) {
  for (const auto& [hostKey, value] : parameters) {
    std::string key = repairedUtf8(hostKey);
    if (auto integer = value.exactInteger()) {
      integers.insert_or_assign(std::move(key), *integer);
    } else if (const std::string* text = value.string()) {
      strings.insert_or_assign(std::move(key), repairedUtf8(*text));
    } else if (auto flag = value.boolean()) {
      booleans.insert_or_assign(std::move(key), *flag);
    } else if (auto date = value.date()) {
      if (std::isfinite(date->timeIntervalSinceReferenceDate())) {
        dates.insert_or_assign(std::move(key), *date);
      }
    }
  }
}

/// Merges typed maps into one host map, in the order given; a later map wins on a shared key.
template <class... Maps>
ValueMap mergeTypedFields(const Maps&... maps) {
  ValueMap result;
  (
      [&result](const auto& map) {
        for (const auto& [key, value] : map) {
          result.insert_or_assign(key, Value(value));
        }
      }(maps),
      ...);
  return result;
}

}  // namespace orvanta::detail
