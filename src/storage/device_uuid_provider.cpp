#include "storage/device_uuid_provider.hpp"

#include "core/uuid.hpp"
#include "storage/store.hpp"

namespace orvanta {
namespace {

constexpr const char* kUuidKey = "uuid";

}  // namespace

std::string DeviceUuidProvider::uuid() {
  if (auto stored = Store::keychain()->get<std::string>(kUuidKey)) {
    return *stored;
  }
  std::string fresh = makeUuidString();
  setUuid(fresh);
  return fresh;
}

void DeviceUuidProvider::setUuid(const std::string& uuid) {
  auto bytes = DataConversion<std::string>::data(uuid);
  if (!bytes) {
    return;
  }
  try {
    Store::keychain()->set(bytes, kUuidKey);
  } catch (...) {  // NOLINT(bugprone-empty-catch): a failed write only means a new id next time
  }
}

}  // namespace orvanta
