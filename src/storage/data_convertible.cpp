#include "storage/data_convertible.hpp"

#include <cstddef>
#include <limits>

namespace orvanta {

std::optional<std::string> DataConversion<std::string>::fromData(const Bytes& bytes) {
  std::string text = stringFromBytes(bytes);
  if (!isValidUtf8(text)) {
    return std::string();
  }
  return text;
}

std::optional<Bytes> DataConversion<std::string>::data(const std::string& value) {
  if (!isValidUtf8(value)) {
    return std::nullopt;
  }
  return bytesFromString(value);
}

std::optional<bool> DataConversion<bool>::fromData(const Bytes& bytes) {
  if (bytes.size() != 1 || bytes[0] > 1) {
    return std::nullopt;
  }
  return bytes[0] == 1;
}

std::optional<Bytes> DataConversion<bool>::data(bool value) {
  return Bytes{static_cast<std::uint8_t>(value ? 1 : 0)};
}

std::optional<std::int64_t> DataConversion<std::int64_t>::fromData(const Bytes& bytes) {
  if (bytes.size() != 8) {
    return std::nullopt;
  }
  std::uint64_t bits = 0;
  for (std::size_t i = 0; i < 8; ++i) {
    bits |= static_cast<std::uint64_t>(bytes[i]) << (8 * i);
  }
  return static_cast<std::int64_t>(bits);
}

std::optional<Bytes> DataConversion<std::int64_t>::data(std::int64_t value) {
  auto bits = static_cast<std::uint64_t>(value);
  Bytes bytes(8);
  for (std::size_t i = 0; i < 8; ++i) {
    bytes[i] = static_cast<std::uint8_t>(bits >> (8 * i));
  }
  return bytes;
}

std::optional<int> DataConversion<int>::fromData(const Bytes& bytes) {
  auto wide = DataConversion<std::int64_t>::fromData(bytes);
  if (!wide || *wide < std::numeric_limits<int>::min() || *wide > std::numeric_limits<int>::max()) {
    return std::nullopt;
  }
  return static_cast<int>(*wide);
}

std::optional<Bytes> DataConversion<int>::data(int value) {
  return DataConversion<std::int64_t>::data(value);
}

}  // namespace orvanta
