#pragma once

// The JSON plumbing shared by the wire records: parsing outside input safely, reading keyed
// members with the record decoders' rules, and the errors those decoders report.

#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "core/utf8.hpp"
#include "orvanta/error.hpp"
#include "orvanta/value.hpp"

namespace orvanta::detail {

using Json = nlohmann::json;
using OrderedJson = nlohmann::ordered_json;

/// Deepest nesting of arrays and objects accepted from outside input. Deeper documents are
/// refused before parsing, so no recursive walk over a parsed document can exhaust the stack.
inline constexpr std::size_t kMaxJsonDepth = 512;

/// Why a record could not be read. Thrown by the record decoders and turned into an `Error` of the
/// decoding domain at their public edge; the codes and texts are those the kit has always logged
/// for decoding failures.
class DecodingFailure : public std::runtime_error {
 public:
  enum class Kind { keyNotFound, valueNotFound, typeMismatch, dataCorrupted };

  DecodingFailure(Kind kind, const std::string& detail);

  Kind kind() const { return kind_; }
  /// 4865 "...because it is missing." for absent keys and values, 4864 "...isn't in the correct
  /// format." for everything else.
  Error toError() const;

 private:
  Kind kind_;
};

/// Thrown by encoders for values JSON cannot carry (non-finite numbers).
class EncodingFailure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

using orvanta::isValidUtf8;

/// True when no array or object in `text` nests deeper than `limit`. Linear, allocation free;
/// strings (and brackets inside them) are skipped.
bool nestingWithin(std::string_view text, std::size_t limit = kMaxJsonDepth);

/// Parses outside input: too deep a nesting, malformed JSON or invalid UTF-8 throw
/// `DecodingFailure` (data corrupted).
Json parseJson(std::string_view text);

/// Whether `text` is one well-formed JSON text, zero bytes refused as `parseJson` refuses them;
/// checked without building the document.
bool isWellFormedJson(std::string_view text);

// Reading members. `required*` throw keyNotFound for a missing key, valueNotFound for null and
// typeMismatch for a wrong type; `optional*` give none for a missing key or null and throw
// typeMismatch for a wrong type.
const Json& requireObject(const Json& value, std::string_view context);
const Json& requiredMember(const Json& object, const char* key);
const Json* optionalMember(const Json& object, const char* key);

std::string stringFrom(const Json& value, std::string_view context);
std::int64_t int64From(const Json& value, std::string_view context);
bool boolFrom(const Json& value, std::string_view context);
double doubleFrom(const Json& value, std::string_view context);
Date dateFrom(const Json& value, std::string_view context);

std::string requiredString(const Json& object, const char* key);
std::optional<std::string> optionalString(const Json& object, const char* key);

/// A JSON object whose every member is read by `element(value, key)`.
template <typename T, typename Element>
std::map<std::string, T> mapFrom(const Json& value, std::string_view context, Element element) {
  const Json& object = requireObject(value, context);
  std::map<std::string, T> result;
  for (const auto& [key, member] : object.items()) {
    result.emplace(key, element(member, key));
  }
  return result;
}

/// One scalar of a flat object read by `readFlatObject`: its kind and its text as written (a
/// string without its quotes).
struct FlatScalar {
  enum class Kind { string, number, boolean };
  Kind kind;
  std::string_view text;
};

/// Length of the JSON number at the start of `text` (sign, integer part without leading zeros,
/// fraction, exponent), or 0 when there is none.
std::size_t jsonNumberLength(std::string_view text);
/// Length of the string literal at the start of `text` (quotes included) when it holds no escape
/// and no control character; 0 otherwise.
std::size_t plainStringLength(std::string_view text);

/// Reads the members of a JSON object whose values are all strings, numbers or Booleans, in the
/// compact form the kit writes (`{"a":"x","b":2,"c":true}`: no blanks, no escapes, no nulls),
/// calling `member(key, scalar)` for each in order; `member` returns false to give up. False when
/// the text is not in that form or `member` gave up: the caller then reads it with the JSON
/// library, which also reports what is wrong. Numbers follow the JSON grammar; strings and keys
/// must be UTF-8 already (they are not checked again here).
template <class Member>
bool readFlatObject(std::string_view text, Member&& member) {
  if (text.size() < 2 || text.front() != '{' || text.back() != '}') {
    return false;
  }
  std::string_view rest = text.substr(1, text.size() - 2);
  if (rest.empty()) {
    return true;
  }
  while (true) {
    const std::size_t keyLength = plainStringLength(rest);
    if (keyLength == 0 || keyLength >= rest.size() || rest[keyLength] != ':') {
      return false;
    }
    const std::string_view key = rest.substr(1, keyLength - 2);
    rest = rest.substr(keyLength + 1);
    FlatScalar scalar{FlatScalar::Kind::number, {}};
    std::size_t length = 0;
    if (rest.starts_with('"')) {
      length = plainStringLength(rest);
      if (length == 0) {
        return false;
      }
      scalar = {FlatScalar::Kind::string, rest.substr(1, length - 2)};
    } else if (rest.starts_with("true")) {
      length = 4;
      scalar = {FlatScalar::Kind::boolean, rest.substr(0, 4)};
    } else if (rest.starts_with("false")) {
      length = 5;
      scalar = {FlatScalar::Kind::boolean, rest.substr(0, 5)};
    } else {
      length = jsonNumberLength(rest);
      if (length == 0) {
        return false;
      }
      scalar = {FlatScalar::Kind::number, rest.substr(0, length)};
    }
    if (!member(key, static_cast<const FlatScalar&>(scalar))) {
      return false;
    }
    rest = rest.substr(length);
    if (rest.empty()) {
      return true;
    }
    if (rest.front() != ',') {
      return false;
    }
    rest = rest.substr(1);
  }
}

/// A JSON number's text as a 64-bit integer, when it is written as one in range ("-12", not "2.0").
std::optional<std::int64_t> integerFromJsonNumber(std::string_view text);
/// A JSON number's text as a finite double, as the JSON library reads it.
std::optional<double> doubleFromJsonNumber(std::string_view text);

// Writing. Dates become seconds since the reference date; non-finite numbers throw
// `EncodingFailure`.
OrderedJson encodeDouble(double value);
OrderedJson encodeDate(Date date);

template <typename T, typename Element>
OrderedJson encodeMap(const std::map<std::string, T>& map, Element element) {
  OrderedJson object = OrderedJson::object();
  for (const auto& [key, value] : map) {
    object[key] = element(value);
  }
  return object;
}

}  // namespace orvanta::detail
