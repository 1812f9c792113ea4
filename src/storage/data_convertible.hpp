#pragma once

#include <concepts>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/utf8.hpp"

namespace orvanta {

/// Raw bytes as kept in the secure store. A type of its own, distinct from `std::string`, because
/// the two convert differently: text must be UTF-8, bytes are taken as they are.
using Bytes = std::vector<std::uint8_t>;

inline Bytes bytesFromString(std::string_view text) {
  return Bytes(text.begin(), text.end());
}
/// The bytes copied into a string unchanged (no UTF-8 check).
inline std::string stringFromBytes(const Bytes& bytes) {
  return std::string(bytes.begin(), bytes.end());
}

/// How a value turns into bytes (`data`) and back (`fromData`, none when the bytes don't make one).
/// Provided for `std::string` (UTF-8; bytes that are not UTF-8 give the empty string, never none),
/// `bool` (one byte, 0 or 1), `std::int64_t` and `int` (eight bytes, little-endian) and `Bytes`
/// (unchanged).
template <class T>
struct DataConversion;

template <class T>
concept DataConvertible = requires(const Bytes& bytes, const T& value) {
  { DataConversion<T>::fromData(bytes) } -> std::same_as<std::optional<T>>;
  { DataConversion<T>::data(value) } -> std::same_as<std::optional<Bytes>>;
};

template <>
struct DataConversion<Bytes> {
  static std::optional<Bytes> fromData(const Bytes& bytes) { return bytes; }
  static std::optional<Bytes> data(const Bytes& value) { return value; }
};

template <>
struct DataConversion<std::string> {
  static std::optional<std::string> fromData(const Bytes& bytes);
  static std::optional<Bytes> data(const std::string& value);
};

template <>
struct DataConversion<bool> {
  static std::optional<bool> fromData(const Bytes& bytes);
  static std::optional<Bytes> data(bool value);
};

template <>
struct DataConversion<std::int64_t> {
  static std::optional<std::int64_t> fromData(const Bytes& bytes);
  static std::optional<Bytes> data(std::int64_t value);
};

template <>
struct DataConversion<int> {
  static std::optional<int> fromData(const Bytes& bytes);
  static std::optional<Bytes> data(int value);
};

}  // namespace orvanta
