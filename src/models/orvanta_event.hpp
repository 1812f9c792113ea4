#pragma once

#include <cstdint>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "core/result.hpp"
#include "orvanta/orvanta_analytics.hpp"
#include "orvanta/value.hpp"
#include "storage/row_values.hpp"
#include "storage/table_builder.hpp"

namespace orvanta {

/// The largest body of an events request the service takes.
inline constexpr std::size_t kMaxEventBodyBytes = OrvantaAnalytics::kMaxEventSize;

/// One analytics event waiting to be posted: the body of the events request and a row of the
/// table "orvantaevent".
///
/// Written with all eight keys, in this order: "uuidId", "pushId", "eventName", "createdAt",
/// "additionalStringFields", "additionalNumericFields", "additionalBoolFields",
/// "additionalDateFields" (empty maps as {}); all eight are required when reading.
struct OrvantaEvent {
  std::string uuidId;      ///< a fresh random UUID, upper-case canonical text; the row's key
  std::string pushId;      ///< push token + "|||" + application identifier
  std::string name;        ///< "eventName"
  double createdAt = 0.0;  ///< seconds since 1970, with fraction
  std::map<std::string, std::string> additionalStringFields;
  std::map<std::string, std::int64_t> additionalNumericFields;
  std::map<std::string, bool> additionalBoolFields;
  std::map<std::string, Date> additionalDateFields;  ///< written as seconds since 2001

  /// An empty record (what decoding starts from).
  OrvantaEvent() = default;
  /// A new event with a fresh `uuidId`; `pushId` joins `deviceToken` and `appId`, the application
  /// identifier of the host's configuration; `parameters` are sorted as by `setParameters`. The
  /// name, the token and the identifier are host text, repaired as it enters (`repairedUtf8`).
  OrvantaEvent(const std::string& deviceToken, const std::string& appId, std::string name,
               double createdAt, const ValueMap& parameters);

  /// The four maps merged, in the order string, numeric, Boolean, date (a later map wins).
  ValueMap parameters() const;
  /// Sorts each entry into one typed map, trying integer (an integer, or a boxed number that is
  /// exactly one), then string, Boolean and date; anything else (floating point, a boxed
  /// fraction, arrays, maps, null, a date that is not finite) is dropped. Keys and strings are
  /// repaired as they enter. Adds to the maps; removes nothing.
  void setParameters(const ValueMap& parameters);

  /// Throws `detail::EncodingFailure` for a non-finite time or date.
  nlohmann::ordered_json toJson() const;
  /// Throws `detail::DecodingFailure`.
  static OrvantaEvent fromJson(const nlohmann::json& json);
  /// A decoding error (`Error::Domain::decoding`) when `json` is not an event.
  static Result<OrvantaEvent> decode(std::string_view json);

  /// Appends the body of the events request: the JSON form less "uuidId", pretty-printed (two
  /// spaces), byte for byte as `toJson()` without "uuidId" dumps with an indent of 2. Throws
  /// `detail::EncodingFailure` as `toJson`.
  void writeBody(std::string& out) const;
  /// The size of the body `writeBody` makes, when it is over `kMaxEventBodyBytes`; none when it
  /// is within (an ordinary event is measured without being written).
  std::optional<std::size_t> oversizedBody() const;
  /// Whether a stored row of this size may hold an event whose body is over the limit: the body is
  /// the row's text escaped (a byte becomes at most six) and indented. Cheap.
  static bool rowMayBeOversized(const detail::RowValues& row);

  /// The row, written directly: the eight columns in order, the maps as compact JSON text.
  /// Throws `detail::EncodingFailure` as `toJson`.
  detail::RowValues toRow() const;
  /// The row read back directly; none when it is not in the form `writeColumns` writes (the
  /// database then reads it through `fromJson`, which reports what is wrong).
  static std::optional<OrvantaEvent> readColumns(const detail::RowValues& row);
  /// Whether `readColumns` would read the row, without making anything.
  static bool canReadColumns(const detail::RowValues& row);

  /// Declares the columns of the table "orvantaevent".
  static void create(TableBuilder& builder);
  /// The row's key: `uuidId`.
  const std::string& primaryKey() const { return uuidId; }
  /// The table's name: the record type's name in lower case.
  static constexpr const char* kTableName = "orvantaevent";

  friend bool operator==(const OrvantaEvent&, const OrvantaEvent&) = default;
};

}  // namespace orvanta
