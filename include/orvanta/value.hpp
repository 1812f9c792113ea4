#pragma once

#include <chrono>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>
#include <vector>

#include "orvanta/export.hpp"

namespace orvanta {

/// A point in time, kept the way the service's wire format counts it: seconds since the reference
/// date 2001-01-01T00:00:00Z as a double (about 0.1 microsecond of resolution for present-day
/// dates). Keeping the double itself, rather than a tick count, makes a date read from JSON encode
/// back to the very same number.
///
/// Converts implicitly from `std::chrono::system_clock::time_point` (any duration), so
/// `Value{std::chrono::system_clock::now()}` is a date.
class ORVANTA_API Date {
 public:
  /// Seconds between 1970-01-01T00:00:00Z and the reference date.
  static constexpr double kReferenceDateSince1970 = 978307200.0;

  constexpr Date() = default;
  template <typename Duration>
  Date(std::chrono::time_point<std::chrono::system_clock, Duration> time)  // NOLINT: implicit
      : seconds_(std::chrono::duration<double>(time.time_since_epoch()).count() -
                 kReferenceDateSince1970) {}

  static constexpr Date sinceReferenceDate(double seconds) { return Date(seconds, 0); }
  static constexpr Date since1970(double seconds) {
    return Date(seconds - kReferenceDateSince1970, 0);
  }

  constexpr double timeIntervalSinceReferenceDate() const { return seconds_; }
  constexpr double timeIntervalSince1970() const { return seconds_ + kReferenceDateSince1970; }
  /// The same instant on the system clock (rounded to the clock's tick). Dates beyond the
  /// clock's range (about ±292 years around 1970) are clamped to its ends.
  std::chrono::system_clock::time_point timePoint() const;

  friend constexpr bool operator==(Date a, Date b) { return a.seconds_ == b.seconds_; }
  friend constexpr auto operator<=>(Date a, Date b) { return a.seconds_ <=> b.seconds_; }

 private:
  constexpr Date(double seconds, int /*tag*/) : seconds_(seconds) {}
  double seconds_ = 0.0;
};

class Value;
using ValueArray = std::vector<Value>;
using ValueMap = std::map<std::string, Value>;

/// A number that reached the kit through a C or Objective-C boundary, where Booleans and numbers
/// share one representation. Event and custom parameters classify it by value: a boxed number
/// that is exactly an integer counts as an integer (so a boxed `true` becomes 1), any other boxed
/// number is dropped.
///
/// A box made from a 64-bit integer keeps that integer exactly (`integer`), also beyond 2^53
/// where a double would round it; `value` is then the nearest double.
struct BoxedNumber {
  double value = 0.0;
  std::optional<std::int64_t> integer;
  friend bool operator==(const BoxedNumber& a, const BoxedNumber& b) {
    return a.value == b.value && a.integer == b.integer;
  }
};

/// A dynamically typed value: what a host passes as event parameters, custom parameters and
/// notification user info. Written naturally from C++:
///
///     orvanta::ValueMap p{{"sku", "A-1"}, {"qty", 2}, {"gift", false}, {"when", now}};
///
/// picks string, integer, Boolean and date. Character pointers are strings (never Booleans),
/// every integer type is an integer (never a Boolean or a double), only `bool` is a Boolean.
/// Unsigned values above the range of `std::int64_t` become floating point.
///
/// A value is a plain value type: copying copies the whole tree; it is safe to share between
/// threads as long as nobody modifies it.
class ORVANTA_API Value {
 public:
  enum class Kind { null, boolean, integer, floating, string, date, array, map, boxed };

  Value() = default;
  Value(std::nullptr_t) {}  // NOLINT: implicit by design

  template <typename T>
  requires std::same_as<T, bool> Value(T value) : storage_(value) {}  // NOLINT

  template <std::integral T>
  requires(!std::same_as<T, bool> && !std::same_as<T, char> && !std::same_as<T, char8_t> &&
           !std::same_as<T, char16_t> && !std::same_as<T, char32_t> && !std::same_as<T, wchar_t>)
      Value(T value)
      : storage_(fromIntegral(value)) {}  // NOLINT

  template <std::floating_point T>
  Value(T value) : storage_(static_cast<double>(value)) {}  // NOLINT

  Value(const char* text) : storage_(std::string(text)) {}       // NOLINT
  Value(std::string text) : storage_(std::move(text)) {}         // NOLINT
  Value(std::string_view text) : storage_(std::string(text)) {}  // NOLINT
  Value(Date date) : storage_(date) {}                           // NOLINT
  template <typename Duration>
  Value(std::chrono::time_point<std::chrono::system_clock, Duration> time)  // NOLINT
      : storage_(Date(time)) {}
  Value(ValueArray array) : storage_(std::move(array)) {}  // NOLINT
  Value(ValueMap map) : storage_(std::move(map)) {}        // NOLINT
  Value(BoxedNumber number) : storage_(number) {}          // NOLINT

  /// A number as it arrives from an Objective-C or C caller (see `BoxedNumber`): a floating-point
  /// number, a Boolean (boxed as 1 or 0) or an integer of any width, kept exactly.
  static Value boxed(double number) { return Value(BoxedNumber{number, std::nullopt}); }
  static Value boxed(bool flag) { return Value(BoxedNumber{flag ? 1.0 : 0.0, flag ? 1 : 0}); }
  template <std::integral T>
  requires(!std::same_as<T, bool>) static Value boxed(T number) {
    if constexpr (std::is_unsigned_v<T> && sizeof(T) >= sizeof(std::int64_t)) {
      if (number > static_cast<T>(std::numeric_limits<std::int64_t>::max())) {
        return Value(BoxedNumber{static_cast<double>(number), std::nullopt});
      }
    }
    const auto exact = static_cast<std::int64_t>(number);
    return Value(BoxedNumber{static_cast<double>(exact), exact});
  }

  Kind kind() const { return static_cast<Kind>(storage_.index()); }
  bool isNull() const { return kind() == Kind::null; }

  // Typed access: each answers only for its own kind (no conversions).
  std::optional<bool> boolean() const;
  std::optional<std::int64_t> integer() const;
  std::optional<double> floating() const;
  const std::string* string() const;
  std::optional<Date> date() const;
  const ValueArray* array() const;
  const ValueMap* map() const;
  /// A boxed number's value as a double (rounded for a boxed integer beyond 2^53).
  std::optional<double> boxedNumber() const;

  /// The value as a signed 64-bit integer where the kit's parameter rules see one: an integer, a
  /// boxed integer (exactly, whatever its size), or a boxed floating-point number that is exactly
  /// an integer in range. Floating point never qualifies.
  std::optional<std::int64_t> exactInteger() const;

  friend ORVANTA_API bool operator==(const Value& a, const Value& b);

 private:
  using Storage = std::variant<std::monostate, bool, std::int64_t, double, std::string, Date,
                               ValueArray, ValueMap, BoxedNumber>;

  template <typename T>
  static Storage fromIntegral(T value) {
    if constexpr (std::is_unsigned_v<T> && sizeof(T) >= sizeof(std::int64_t)) {
      if (value > static_cast<T>(std::numeric_limits<std::int64_t>::max())) {
        return static_cast<double>(value);
      }
    }
    return static_cast<std::int64_t>(value);
  }

  Storage storage_;
};

}  // namespace orvanta
