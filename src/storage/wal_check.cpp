#include "storage/wal_check.hpp"

#include <cstdint>

namespace orvanta::detail {
namespace {

constexpr std::size_t kHeaderBytes = 32;
constexpr std::size_t kFrameHeaderBytes = 24;
constexpr std::uint32_t kMagic = 0x377f0682;  // low bit set: checksums over big-endian words
constexpr std::uint32_t kVersion = 3007000;

std::uint32_t bigEndian(std::string_view bytes, std::size_t at) {
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < 4; ++i) {
    value = (value << 8) | static_cast<unsigned char>(bytes[at + i]);
  }
  return value;
}

std::uint32_t word(std::string_view bytes, std::size_t at, bool bigEndianWords) {
  if (bigEndianWords) {
    return bigEndian(bytes, at);
  }
  std::uint32_t value = 0;
  for (std::size_t i = 4; i > 0; --i) {
    value = (value << 8) | static_cast<unsigned char>(bytes[at + i - 1]);
  }
  return value;
}

/// SQLite's log checksum: carried over `sums`, for a run of bytes whose length is a multiple of 8.
void checksum(std::string_view bytes, bool bigEndianWords, std::uint32_t sums[2]) {
  for (std::size_t i = 0; i + 8 <= bytes.size(); i += 8) {
    sums[0] += word(bytes, i, bigEndianWords) + sums[1];
    sums[1] += word(bytes, i + 4, bigEndianWords) + sums[0];
  }
}

bool validPageSize(std::uint32_t size) {
  return size >= 512 && size <= 65536 && (size & (size - 1)) == 0;
}

}  // namespace

std::optional<std::string> walDamage(std::string_view wal) {
  if (wal.size() < kHeaderBytes) {
    return std::nullopt;  // never written, or reset
  }
  const std::uint32_t magic = bigEndian(wal, 0);
  const std::uint32_t pageSize = bigEndian(wal, 8);
  const bool bigEndianWords = (magic & 1U) != 0;
  std::uint32_t sums[2] = {0, 0};
  checksum(wal.substr(0, 24), bigEndianWords, sums);
  if ((magic & ~1U) != kMagic || bigEndian(wal, 4) != kVersion || !validPageSize(pageSize) ||
      sums[0] != bigEndian(wal, 24) || sums[1] != bigEndian(wal, 28)) {
    return "its header is damaged: the whole log (" + std::to_string(wal.size()) +
           " bytes) is dropped";
  }
  const std::uint32_t salt1 = bigEndian(wal, 16);
  const std::uint32_t salt2 = bigEndian(wal, 20);
  const std::size_t frameBytes = kFrameHeaderBytes + pageSize;
  const std::size_t frames = (wal.size() - kHeaderBytes) / frameBytes;
  std::size_t frame = 0;
  for (; frame < frames; ++frame) {
    const std::string_view bytes = wal.substr(kHeaderBytes + frame * frameBytes, frameBytes);
    if (bigEndian(bytes, 0) == 0 || bigEndian(bytes, 8) != salt1 || bigEndian(bytes, 12) != salt2) {
      break;
    }
    checksum(bytes.substr(0, 8), bigEndianWords, sums);
    checksum(bytes.substr(kFrameHeaderBytes), bigEndianWords, sums);
    if (sums[0] != bigEndian(bytes, 16) || sums[1] != bigEndian(bytes, 20)) {
      break;
    }
  }
  // Frames of an older generation of the log (other salts) are left over after a reset and are
  // not damage; a commit of this generation after the frame that stopped the replay is.
  std::size_t lostCommits = 0;
  for (std::size_t later = frame + 1; later < frames; ++later) {
    const std::string_view bytes = wal.substr(kHeaderBytes + later * frameBytes, frameBytes);
    if (bigEndian(bytes, 8) == salt1 && bigEndian(bytes, 12) == salt2 && bigEndian(bytes, 4) != 0) {
      ++lostCommits;
    }
  }
  if (lostCommits == 0) {
    return std::nullopt;
  }
  return "frame " + std::to_string(frame + 1) + " is damaged: " + std::to_string(lostCommits) +
         " transactions committed after it are dropped";
}

}  // namespace orvanta::detail
