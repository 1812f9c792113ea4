#pragma once

// Conversion between the host value type and JSON.

#include <nlohmann/json.hpp>
#include <optional>

#include "orvanta/value.hpp"

namespace orvanta::detail {

/// The value as generic JSON, the way a platform JSON serialiser sees it: null, Booleans,
/// integers, finite numbers, strings, arrays and maps convert; a boxed number becomes an integer
/// when it is one and a number otherwise. A date, a non-finite number, a string or key that is
/// not valid UTF-8, or nesting deeper than `kMaxJsonDepth` make the whole value unrepresentable:
/// none.
std::optional<nlohmann::ordered_json> valueToJson(const Value& value);

/// A value from parsed JSON: integers (in range) become integers, other numbers floating point,
/// objects maps, arrays arrays. The JSON must not nest deeper than `kMaxJsonDepth` (guaranteed
/// for documents from `parseJson`).
Value valueFromJson(const nlohmann::json& json);
Value valueFromJson(const nlohmann::ordered_json& json);

}  // namespace orvanta::detail
