#include "core/json_coding.hpp"

#include <charconv>
#include <cmath>
#include <limits>
#include <system_error>

namespace orvanta::detail {
namespace {

constexpr int kValueNotFoundCode = 4865;
constexpr int kReadCorruptCode = 4864;

// The parser takes a zero byte for the end of the text and would read "{}\0garbage" as "{}":
// JSON has no raw zero bytes, so a text with one is malformed.
bool freeOfZeroBytes(std::string_view text) {
  return text.find('\0') == std::string_view::npos;
}

std::string describe(std::string_view context, const char* what) {
  std::string text(context);
  text += ": ";
  text += what;
  return text;
}

[[noreturn]] void typeMismatch(std::string_view context, const char* expected) {
  throw DecodingFailure(DecodingFailure::Kind::typeMismatch,
                        describe(context, expected) + std::string(" expected"));
}

}  // namespace

DecodingFailure::DecodingFailure(Kind kind, const std::string& detail)
    : std::runtime_error(detail), kind_(kind) {}

Error DecodingFailure::toError() const {
  switch (kind_) {
    case Kind::keyNotFound:
    case Kind::valueNotFound:
      return Error(Error::Domain::decoding, kValueNotFoundCode,
                   "The data couldn\u2019t be read because it is missing.");
    case Kind::typeMismatch:
    case Kind::dataCorrupted:
      break;
  }
  return Error(Error::Domain::decoding, kReadCorruptCode,
               "The data couldn\u2019t be read because it isn\u2019t in the correct format.");
}

bool nestingWithin(std::string_view text, std::size_t limit) {
  std::size_t depth = 0;
  bool inString = false;
  bool escaped = false;
  for (char c : text) {
    if (inString) {
      if (escaped) {
        escaped = false;
      } else if (c == '\\') {
        escaped = true;
      } else if (c == '"') {
        inString = false;
      }
      continue;
    }
    if (c == '"') {
      inString = true;
    } else if (c == '[' || c == '{') {
      if (++depth > limit) {
        return false;
      }
    } else if ((c == ']' || c == '}') && depth > 0) {
      --depth;
    }
  }
  return true;
}

Json parseJson(std::string_view text) {
  if (!nestingWithin(text)) {
    throw DecodingFailure(DecodingFailure::Kind::dataCorrupted, "JSON nested too deeply");
  }
  // Without exceptions the parser reports malformed input (including invalid UTF-8 and numbers
  // beyond the range of a double) as a discarded value.
  Json parsed = freeOfZeroBytes(text) ? Json::parse(text.begin(), text.end(), nullptr, false)
                                      : Json(Json::value_t::discarded);
  if (parsed.is_discarded()) {
    throw DecodingFailure(DecodingFailure::Kind::dataCorrupted,
                          "The given data was not valid JSON.");
  }
  return parsed;
}

bool isWellFormedJson(std::string_view text) {
  return freeOfZeroBytes(text) && Json::accept(text.begin(), text.end());
}

const Json& requireObject(const Json& value, std::string_view context) {
  if (value.is_null()) {
    throw DecodingFailure(DecodingFailure::Kind::valueNotFound, describe(context, "null"));
  }
  if (!value.is_object()) {
    typeMismatch(context, "object");
  }
  return value;
}

const Json& requiredMember(const Json& object, const char* key) {
  auto it = object.find(key);
  if (it == object.end()) {
    throw DecodingFailure(DecodingFailure::Kind::keyNotFound, describe(key, "key not found"));
  }
  if (it->is_null()) {
    throw DecodingFailure(DecodingFailure::Kind::valueNotFound, describe(key, "null"));
  }
  return *it;
}

const Json* optionalMember(const Json& object, const char* key) {
  auto it = object.find(key);
  if (it == object.end() || it->is_null()) {
    return nullptr;
  }
  return &*it;
}

std::string stringFrom(const Json& value, std::string_view context) {
  if (!value.is_string()) {
    typeMismatch(context, "string");
  }
  return value.get<std::string>();
}

std::int64_t int64From(const Json& value, std::string_view context) {
  if (value.is_number_integer() && !value.is_number_unsigned()) {
    return value.get<std::int64_t>();
  }
  if (value.is_number_unsigned()) {
    const auto number = value.get<std::uint64_t>();
    if (number <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
      return static_cast<std::int64_t>(number);
    }
  } else if (value.is_number_float()) {
    // "2.0" reads as the integer 2; a fraction or a value out of range does not.
    const double number = value.get<double>();
    constexpr double kLimit = 9223372036854775808.0;
    if (std::isfinite(number) && std::trunc(number) == number && number >= -kLimit &&
        number < kLimit) {
      return static_cast<std::int64_t>(number);
    }
  }
  if (value.is_number()) {
    throw DecodingFailure(DecodingFailure::Kind::dataCorrupted,
                          describe(context, "number does not fit a 64-bit integer"));
  }
  typeMismatch(context, "integer");
}

bool boolFrom(const Json& value, std::string_view context) {
  if (!value.is_boolean()) {
    typeMismatch(context, "Boolean");
  }
  return value.get<bool>();
}

double doubleFrom(const Json& value, std::string_view context) {
  if (!value.is_number()) {
    typeMismatch(context, "number");
  }
  const double number = value.get<double>();
  if (!std::isfinite(number)) {
    throw DecodingFailure(DecodingFailure::Kind::dataCorrupted, describe(context, "not finite"));
  }
  return number;
}

Date dateFrom(const Json& value, std::string_view context) {
  return Date::sinceReferenceDate(doubleFrom(value, context));
}

std::string requiredString(const Json& object, const char* key) {
  return stringFrom(requiredMember(object, key), key);
}

std::optional<std::string> optionalString(const Json& object, const char* key) {
  if (const Json* member = optionalMember(object, key)) {
    return stringFrom(*member, key);
  }
  return std::nullopt;
}

std::size_t jsonNumberLength(std::string_view text) {
  std::size_t i = 0;
  const auto digit = [&](std::size_t at) {
    return at < text.size() && text[at] >= '0' && text[at] <= '9';
  };
  if (i < text.size() && text[i] == '-') {
    ++i;
  }
  if (!digit(i)) {
    return 0;
  }
  if (text[i] == '0') {
    ++i;
  } else {
    while (digit(i)) {
      ++i;
    }
  }
  if (i < text.size() && text[i] == '.') {
    ++i;
    if (!digit(i)) {
      return 0;
    }
    while (digit(i)) {
      ++i;
    }
  }
  if (i < text.size() && (text[i] == 'e' || text[i] == 'E')) {
    ++i;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) {
      ++i;
    }
    if (!digit(i)) {
      return 0;
    }
    while (digit(i)) {
      ++i;
    }
  }
  return i;
}

std::size_t plainStringLength(std::string_view text) {
  if (text.empty() || text.front() != '"') {
    return 0;
  }
  for (std::size_t i = 1; i < text.size(); ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    if (c == '"') {
      return i + 1;
    }
    if (c == '\\' || c < 0x20) {
      return 0;
    }
  }
  return 0;
}

std::optional<std::int64_t> integerFromJsonNumber(std::string_view text) {
  std::int64_t value = 0;
  if (text.empty() || jsonNumberLength(text) != text.size()) {
    return std::nullopt;
  }
  const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
  if (result.ec != std::errc() || result.ptr != text.data() + text.size()) {
    return std::nullopt;  // a fraction, an exponent or out of range
  }
  return value;
}

std::optional<double> doubleFromJsonNumber(std::string_view text) {
  double value = 0.0;
  if (text.empty() || jsonNumberLength(text) != text.size()) {
    return std::nullopt;
  }
  const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
  if (result.ec != std::errc() || result.ptr != text.data() + text.size() ||
      !std::isfinite(value)) {
    return std::nullopt;
  }
  return value;
}

OrderedJson encodeDouble(double value) {
  if (!std::isfinite(value)) {
    throw EncodingFailure("a non-finite number cannot be written as JSON");
  }
  return OrderedJson(value);
}

OrderedJson encodeDate(Date date) {
  return encodeDouble(date.timeIntervalSinceReferenceDate());
}

}  // namespace orvanta::detail
