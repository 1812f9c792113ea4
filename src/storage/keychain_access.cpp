#include "storage/keychain_access.hpp"

#include <array>
#include <utility>

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
  std::lock_guard lock(lock_);
  removeLocked(key);
  if (!data) {
    return;
  }
  if (store_->add(key, stringFromBytes(*data)) != port::SecureStoreStatus::success) {
    throw makeError(Error::couldNotWriteData);
  }
}

void KeychainAccess::remove(const std::string& key) {
  std::lock_guard lock(lock_);
  removeLocked(key);
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
