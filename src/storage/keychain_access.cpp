#include "storage/keychain_access.hpp"

#include <array>
#include <utility>
#include <vector>

#include "core/health.hpp"

namespace orvanta {
namespace {

constexpr std::array<std::string_view, 4> kErrorTexts = {
    "Could not encode given value to be stored as `Data`.",
    "Could not write data to the Keychain.",
    "Could not delete data in the Keychain for the given key.",
    "Could not clear all the Keychain's data.",
};

}  // namespace

std::string_view KeychainAccess::rawValue(Error error) {
  return kErrorTexts.at(static_cast<std::size_t>(error));
}

std::optional<KeychainAccess::Error> KeychainAccess::errorFromRawValue(std::string_view text) {
  for (std::size_t i = 0; i < kErrorTexts.size(); ++i) {
    if (kErrorTexts[i] == text) {
      return static_cast<Error>(i);
    }
  }
  return std::nullopt;
}

orvanta::Error KeychainAccess::makeError(Error error) {
  return orvanta::Error(orvanta::Error::Domain::keychain, static_cast<int>(error),
                        std::string(rawValue(error)));
}

KeychainAccess::KeychainAccess(std::shared_ptr<port::SecureStore> store)
    : store_(std::move(store)) {}

void KeychainAccess::set(const std::optional<Bytes>& data, const std::string& key) {
  write(data, key, false);
}

void KeychainAccess::setKeepingOnFailure(const std::optional<Bytes>& data, const std::string& key) {
  write(data, key, true);
}

void KeychainAccess::remove(const std::string& key) {
  write(std::nullopt, key, false);
}

void KeychainAccess::write(const std::optional<Bytes>& data, const std::string& key, bool keep) {
  std::lock_guard lock(lock_);
  writeUnsavedLocked(key);
  writeLocked(key, data ? std::optional<std::string>(stringFromBytes(*data)) : std::nullopt, keep);
}

void KeychainAccess::writeLocked(const std::string& key, const std::optional<std::string>& value,
                                 bool keep) {
  try {
    removeLocked(key);
    if (value && store_->add(key, *value) != port::SecureStoreStatus::success) {
      throw makeError(Error::couldNotWriteData);
    }
  } catch (const orvanta::Error&) {
    health::count(health::Counter::storageErrors);
    if (keep) {
      unsaved_[key] = value;
    } else {
      unsaved_.erase(key);  // the latest value asked for is not kept: none is
    }
    throw;
  }
  unsaved_.erase(key);
}

void KeychainAccess::writeUnsavedLocked(const std::string& key) {
  std::vector<std::string> keys;
  for (const auto& entry : unsaved_) {
    if (entry.first != key) {
      keys.push_back(entry.first);
    }
  }
  for (const auto& unsaved : keys) {
    try {
      const std::optional<std::string> value = unsaved_.at(unsaved);
      writeLocked(unsaved, value, true);
    } catch (const orvanta::Error&) {  // NOLINT(bugprone-empty-catch): kept for the next write
    }
  }
}

void KeychainAccess::removeLocked(const std::string& key) {
  switch (store_->remove(key)) {
    case port::SecureStoreStatus::success:
    case port::SecureStoreStatus::itemNotFound:
      return;
    case port::SecureStoreStatus::failure:
      break;
  }
  throw makeError(Error::couldNotDeleteData);
}

}  // namespace orvanta
