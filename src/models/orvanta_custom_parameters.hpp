#pragma once

#include <cstdint>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <string>

#include "orvanta/value.hpp"

namespace orvanta {

/// The host's free parameters of the device record (under "custom"), kept in four typed maps.
struct OrvantaCustomParameters {
  std::map<std::string, bool> boolenFields;           ///< "boolean_fields"
  std::map<std::string, std::int64_t> integerFields;  ///< "integer_fields"
  std::map<std::string, std::string> stringFields;    ///< "string_fields"
  std::map<std::string, Date> dateFields;             ///< "date_fields"

  /// Every parameter in one map: Booleans, then integers, strings and dates copied in that
  /// order, so that for a key held by several maps the date wins over the string, the string
  /// over the integer and the integer over the Boolean.
  ValueMap all() const;

  /// Sorts each entry into one typed map, trying integer (an integer, or a boxed number that is
  /// exactly one), then string, Boolean and date; anything else (floating point, a boxed
  /// fraction, arrays, maps, null) is dropped. The maps accumulate: nothing is removed, so a key
  /// first set as a string and then as an integer stays in both maps.
  void setAll(const ValueMap& parameters);

  /// All four maps, always present (empty ones as {}); dates as seconds since the reference
  /// date. Throws `detail::EncodingFailure` for a non-finite date.
  nlohmann::ordered_json toJson() const;
  /// All four keys are required. Throws `detail::DecodingFailure`.
  static OrvantaCustomParameters fromJson(const nlohmann::json& json);

  friend bool operator==(const OrvantaCustomParameters&, const OrvantaCustomParameters&) = default;
};

}  // namespace orvanta
