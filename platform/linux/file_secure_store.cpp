#include "linux/file_secure_store.hpp"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <utility>

#include "core/logger.hpp"
#include "core/os.hpp"
#include "linux/file_utils.hpp"

namespace orvanta::linux_platform {
namespace {

constexpr std::string_view kMagic = "OVK1";
constexpr std::size_t kHeaderSize = 4 + 4 + 4;  // magic, length, CRC-32 (little-endian)
constexpr std::size_t kMaxItemBytes = 4 * 1024 * 1024;
constexpr std::size_t kMaxFileNameBytes = 240;

std::uint32_t crc32(std::string_view data) {
  static const auto table = [] {
    std::array<std::uint32_t, 256> entries{};
    for (std::uint32_t i = 0; i < 256; ++i) {
      std::uint32_t value = i;
      for (int bit = 0; bit < 8; ++bit) {
        value = (value & 1) ? (0xEDB88320u ^ (value >> 1)) : (value >> 1);
      }
      entries[i] = value;
    }
    return entries;
  }();
  std::uint32_t crc = 0xFFFFFFFFu;
  for (char c : data) {
    crc = table[(crc ^ static_cast<unsigned char>(c)) & 0xFF] ^ (crc >> 8);
  }
  return crc ^ 0xFFFFFFFFu;
}

void appendUint32(std::string& out, std::uint32_t value) {
  for (int i = 0; i < 4; ++i) {
    out.push_back(static_cast<char>((value >> (8 * i)) & 0xFF));
  }
}

std::uint32_t readUint32(std::string_view in, std::size_t offset) {
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < 4; ++i) {
    value |= static_cast<std::uint32_t>(static_cast<unsigned char>(in[offset + i])) << (8 * i);
  }
  return value;
}

bool isPlainNameByte(unsigned char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_' ||
         c == '-' || c == '.';
}

}  // namespace

FileSecureStore::FileSecureStore(std::string folder) : folder_(std::move(folder)) {}

std::optional<std::string> FileSecureStore::fileNameForAccount(const std::string& account) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string name;
  name.reserve(account.size() + 5);
  for (std::size_t i = 0; i < account.size(); ++i) {
    auto c = static_cast<unsigned char>(account[i]);
    // A leading dot is escaped so that no item can be named ".", ".." or like a temporary file.
    if (isPlainNameByte(c) && !(i == 0 && c == '.')) {
      name.push_back(static_cast<char>(c));
    } else {
      name.push_back('%');
      name.push_back(kHex[c >> 4]);
      name.push_back(kHex[c & 0x0F]);
    }
  }
  name += ".item";
  if (name.size() > kMaxFileNameBytes) {
    return std::nullopt;
  }
  return name;
}

std::string FileSecureStore::encodeItem(const std::string& bytes) {
  std::string contents;
  contents.reserve(kHeaderSize + bytes.size());
  contents.append(kMagic);
  appendUint32(contents, static_cast<std::uint32_t>(bytes.size()));
  appendUint32(contents, crc32(bytes));
  contents.append(bytes);
  return contents;
}

std::optional<std::string> FileSecureStore::decodeItem(const std::string& contents) {
  std::string_view view(contents);
  if (view.size() < kHeaderSize || view.substr(0, kMagic.size()) != kMagic) {
    return std::nullopt;
  }
  std::uint32_t length = readUint32(view, 4);
  std::uint32_t checksum = readUint32(view, 8);
  std::string_view payload = view.substr(kHeaderSize);
  if (payload.size() != length || crc32(payload) != checksum) {
    return std::nullopt;
  }
  return std::string(payload);
}

std::optional<std::string> FileSecureStore::read(const std::string& account) {
  auto name = fileNameForAccount(account);
  if (!name) {
    return std::nullopt;
  }
  const std::string path = folder_ + "/" + *name;
  auto identity = os::fileIdentity(path);
  if (!identity) {
    std::lock_guard lock(mutex_);
    items_.erase(account);
    return std::nullopt;
  }
  bool damaged = false;
  std::optional<std::string> bytes;
  {
    std::lock_guard lock(mutex_);
    Item& item = items_[account];
    if (item.file.unchanged(path, *identity) != nullptr) {
      return item.bytes;
    }
    const auto readAt = std::chrono::system_clock::now();
    auto contents = readRegularFile(path, kHeaderSize + kMaxItemBytes);
    if (!contents) {
      items_.erase(account);
      return std::nullopt;
    }
    if (item.file.contents() == nullptr || *item.file.contents() != *contents) {
      item.bytes = decodeItem(*contents);
      damaged = !item.bytes;
    }
    item.file.remember(path, *identity, std::move(*contents), readAt);
    bytes = item.bytes;
  }
  if (damaged) {
    OrvantaLogger::warning("The secure store item " + path +
                           " is damaged: it reads as missing until it is written again");
  }
  return bytes;
}

port::SecureStoreStatus FileSecureStore::add(const std::string& account, const std::string& bytes) {
  auto name = fileNameForAccount(account);
  if (!name || bytes.size() > kMaxItemBytes) {
    return port::SecureStoreStatus::failure;
  }
  const std::string path = folder_ + "/" + *name;
  if (!makeDirectories(folder_, 0700, true)) {
    OrvantaLogger::error("Could not write the secure store item " + path + ": " + errnoText());
    return port::SecureStoreStatus::failure;
  }
  {
    std::lock_guard lock(mutex_);
    items_.erase(account);
  }
  bool exists = false;
  if (!createFileAtomically(folder_, *name, encodeItem(bytes), exists)) {
    if (!exists) {
      OrvantaLogger::error("Could not write the secure store item " + path + ": " + errnoText());
    }
    return port::SecureStoreStatus::failure;
  }
  return port::SecureStoreStatus::success;
}

port::SecureStoreStatus FileSecureStore::remove(const std::string& account) {
  auto name = fileNameForAccount(account);
  if (!name) {
    return port::SecureStoreStatus::itemNotFound;
  }
  {
    std::lock_guard lock(mutex_);
    items_.erase(account);
  }
  std::string path = folder_ + "/" + *name;
  if (::unlink(path.c_str()) != 0) {
    if (errno == ENOENT || errno == ENOTDIR) {
      return port::SecureStoreStatus::itemNotFound;
    }
    OrvantaLogger::error("Could not delete the secure store item " + path + ": " + errnoText());
    return port::SecureStoreStatus::failure;
  }
  return port::SecureStoreStatus::success;
}

}  // namespace orvanta::linux_platform
