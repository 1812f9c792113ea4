#include "core/uuid.hpp"

#include <array>
#include <cstdint>
#include <cstdio>
#include <random>

#include "core/os.hpp"

namespace orvanta {
namespace {

// Each thread draws from its own generator, seeded once from the kernel's entropy pool.
std::mt19937_64& threadGenerator() {
  thread_local std::mt19937_64 generator = [] {
    std::array<std::uint64_t, 4> seed{};
    if (!os::fillRandomBytes(seed.data(), sizeof(seed))) {
      std::random_device device;
      for (auto& word : seed) {
        word = (static_cast<std::uint64_t>(device()) << 32) | device();
      }
    }
    std::seed_seq sequence(seed.begin(), seed.end());
    return std::mt19937_64(sequence);
  }();
  return generator;
}

}  // namespace

std::string makeUuidString() {
  std::array<unsigned char, 16> bytes{};
  auto& generator = threadGenerator();
  for (std::size_t i = 0; i < bytes.size(); i += 8) {
    std::uint64_t word = generator();
    for (std::size_t j = 0; j < 8; ++j) {
      bytes[i + j] = static_cast<unsigned char>(word >> (8 * j));
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
