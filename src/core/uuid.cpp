#include "core/uuid.hpp"

#include <array>
#include <cstdint>
#include <random>

#include "core/os.hpp"

namespace orvanta {

std::string makeUuidString() {
  // Every identifier is drawn from the system's random source: no generator state lives in the
  // process, so a forked child never repeats its parent's identifiers.
  std::array<unsigned char, 16> bytes{};
  if (!os::fillRandomBytes(bytes.data(), bytes.size())) {
    std::random_device device;  // a system without a random source of its own
    for (auto& byte : bytes) {
      byte = static_cast<unsigned char>(device());
    }
  }
  bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0F) | 0x40);  // version 4
  bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3F) | 0x80);  // RFC 4122 variant

  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string text;
  text.reserve(36);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) {
      text.push_back('-');
    }
    text.push_back(kHex[bytes[i] >> 4]);
    text.push_back(kHex[bytes[i] & 0x0F]);
  }
  return text;
}

}  // namespace orvanta
