#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "orvanta/value.hpp"

namespace orvanta::detail {

/// Sorts host values into four typed maps, trying for each entry, in this order: an integer
/// (which takes boxed numbers that are exactly integers, so a Boolean that crossed a C boundary
/// is kept as 0 or 1), a string, a Boolean, a date. Anything else is dropped. Entries are
/// inserted or overwritten; nothing is removed.
inline void sortIntoTypedFields(const ValueMap& parameters,
                                std::map<std::string, std::int64_t>& integers,
                                std::map<std::string, std::string>& strings,
                                std::map<std::string, bool>& booleans,
                                std::map<std::string, Date>& dates) {
  for (const auto& [key, value] : parameters) {
    if (auto integer = value.exactInteger()) {
      integers.insert_or_assign(key, *integer);
    } else if (const std::string* text = value.string()) {
      strings.insert_or_assign(key, *text);
    } else if (auto flag = value.boolean()) {
      booleans.insert_or_assign(key, *flag);
    } else if (auto date = value.date()) {
      dates.insert_or_assign(key, *date);
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
