#include "orvanta/value.hpp"

#include <cmath>

namespace orvanta {

std::chrono::system_clock::time_point Date::timePoint() const {
  using Clock = std::chrono::system_clock;
  using Ticks = Clock::duration;
  const double ticks = std::chrono::duration<double, Ticks::period>(
                           std::chrono::duration<double>(timeIntervalSince1970()))
                           .count();
  // Converting a double outside the tick range to an integer is undefined: clamp first.
  constexpr double kMax = 9.0e18;
  if (std::isnan(ticks)) {
    return Clock::time_point{};
  }
  if (ticks >= kMax) {
    return Clock::time_point::max();
  }
  if (ticks <= -kMax) {
    return Clock::time_point::min();
  }
  return Clock::time_point(Ticks(static_cast<Ticks::rep>(std::llround(ticks))));
}

std::optional<bool> Value::boolean() const {
  if (const auto* v = std::get_if<bool>(&storage_)) {
    return *v;
  }
  return std::nullopt;
}

std::optional<std::int64_t> Value::integer() const {
  if (const auto* v = std::get_if<std::int64_t>(&storage_)) {
    return *v;
  }
  return std::nullopt;
}

std::optional<double> Value::floating() const {
  if (const auto* v = std::get_if<double>(&storage_)) {
    return *v;
  }
  return std::nullopt;
}

const std::string* Value::string() const {
  return std::get_if<std::string>(&storage_);
}

std::optional<Date> Value::date() const {
  if (const auto* v = std::get_if<Date>(&storage_)) {
    return *v;
  }
  return std::nullopt;
}

const ValueArray* Value::array() const {
  return std::get_if<ValueArray>(&storage_);
}

const ValueMap* Value::map() const {
  return std::get_if<ValueMap>(&storage_);
}

std::optional<double> Value::boxedNumber() const {
  if (const auto* v = std::get_if<BoxedNumber>(&storage_)) {
    return v->value;
  }
  return std::nullopt;
}

std::optional<std::int64_t> Value::exactInteger() const {
  if (auto v = integer()) {
    return v;
  }
  if (const auto* box = std::get_if<BoxedNumber>(&storage_); box != nullptr && box->integer) {
    return box->integer;
  }
  auto boxed = boxedNumber();
  if (!boxed || !std::isfinite(*boxed) || std::trunc(*boxed) != *boxed) {
    return std::nullopt;
  }
  // [-2^63, 2^63) is exactly the range of std::int64_t; both bounds are exact doubles.
  constexpr double kLimit = 9223372036854775808.0;
  if (*boxed < -kLimit || *boxed >= kLimit) {
    return std::nullopt;
  }
  return static_cast<std::int64_t>(*boxed);
}

bool operator==(const Value& a, const Value& b) {
  return a.storage_ == b.storage_;
}

}  // namespace orvanta
