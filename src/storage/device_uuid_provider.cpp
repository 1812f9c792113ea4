#include "storage/device_uuid_provider.hpp"

#include "core/uuid.hpp"

namespace orvanta {
namespace {

constexpr const char* kUuidKey = "uuid";

}  // namespace

std::string DeviceUuidProvider::uuid(KeychainAccess& keychain) {
  if (auto stored = keychain.get<std::string>(kUuidKey)) {
    return *stored;
  }
  std::string fresh = makeUuidString();
  setUuid(keychain, fresh);
  return fresh;
}

void DeviceUuidProvider::setUuid(KeychainAccess& keychain, const std::string& uuid) {
  auto bytes = DataConversion<std::string>::data(uuid);
  if (!bytes) {
    return;
  }
  try {
    keychain.set(bytes, kUuidKey);
  } catch (...) {  // NOLINT(bugprone-empty-catch): a failed write only means a new id next time
  }
}

}  // namespace orvanta
