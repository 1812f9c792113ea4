#include "storage/data_convertible.hpp"

#include <cstddef>
#include <limits>

namespace orvanta {

bool isValidUtf8(std::string_view text) {
  std::size_t i = 0;
  const std::size_t size = text.size();
  while (i < size) {
    auto lead = static_cast<unsigned char>(text[i]);
    if (lead < 0x80) {
      ++i;
      continue;
    }
    std::size_t length = 0;
    std::uint32_t codePoint = 0;
    std::uint32_t minimum = 0;
    if ((lead & 0xE0) == 0xC0) {
      length = 2;
      codePoint = lead & 0x1F;
      minimum = 0x80;
    } else if ((lead & 0xF0) == 0xE0) {
      length = 3;
      codePoint = lead & 0x0F;
      minimum = 0x800;
    } else if ((lead & 0xF8) == 0xF0) {
      length = 4;
      codePoint = lead & 0x07;
      minimum = 0x10000;
    } else {
      return false;
    }
    if (size - i < length) {
      return false;
    }
    for (std::size_t k = 1; k < length; ++k) {
      auto continuation = static_cast<unsigned char>(text[i + k]);
      if ((continuation & 0xC0) != 0x80) {
        return false;
      }
      codePoint = (codePoint << 6) | (continuation & 0x3F);
    }
    if (codePoint < minimum || codePoint > 0x10FFFF ||
        (codePoint >= 0xD800 && codePoint <= 0xDFFF)) {
      return false;
    }
    i += length;
  }
  return true;
}

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
