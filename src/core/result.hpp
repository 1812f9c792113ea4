#pragma once

#include <concepts>
#include <type_traits>
#include <utility>
#include <variant>

#include "orvanta/error.hpp"

namespace orvanta {

/// Stands for "no value" where a future or a result must carry something.
struct Void {
  friend bool operator==(Void, Void) { return true; }
};

/// The outcome of an operation: a value (`success`) or an `Error` (`failure`).
template <class T>
class Result {
  static_assert(!std::is_same_v<T, Error>, "a Result cannot carry an Error as its value");

 public:
  using Value = T;

  /// Implicit, so that `return value;` and `return error;` both read naturally.
  Result(T value) : storage_(std::in_place_index<0>, std::move(value)) {}      // NOLINT
  Result(Error error) : storage_(std::in_place_index<1>, std::move(error)) {}  // NOLINT

  static Result success(T value) { return Result(std::move(value)); }
  static Result failure(Error error) { return Result(std::move(error)); }

  bool isSuccess() const { return storage_.index() == 0; }
  explicit operator bool() const { return isSuccess(); }

  /// The value; only valid when `isSuccess()`.
  const T& value() const& { return std::get<0>(storage_); }
  T& value() & { return std::get<0>(storage_); }
  T&& value() && { return std::get<0>(std::move(storage_)); }

  /// The error; only valid when not `isSuccess()`.
  const Error& error() const { return std::get<1>(storage_); }

  friend bool operator==(const Result& a, const Result& b) requires std::equality_comparable<T> {
    return a.storage_ == b.storage_;
  }

 private:
  std::variant<T, Error> storage_;
};

}  // namespace orvanta
