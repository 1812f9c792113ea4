#include "networking/auth_data.hpp"

#include <utility>

#include "core/logger.hpp"
#include "models/json.hpp"
#include "storage/device_uuid_provider.hpp"

namespace orvanta {
namespace {

constexpr const char* kRegisteredMessage = "Successfully registered deviceToken";

}  // namespace

AuthData::AuthData(Dependencies dependencies) : dependencies_(std::move(dependencies)) {}

AuthData::~AuthData() {
  std::lock_guard lock(retryMutex_);
  if (tryAgainWorkItem_) {
    tryAgainWorkItem_->cancel();
  }
}

OrvantaDevice AuthData::device() const {
  return checkIfCurrentVersionAndUpdateModelIfNeeded();
}

void AuthData::setDevice(const OrvantaDevice& device) {
  writeDevice(device);
}

OrvantaDevice AuthData::checkIfCurrentVersionAndUpdateModelIfNeeded() const {
  if (auto stored = dependencies_.keychain->get<Bytes>(kDeviceModelKey)) {
    auto decoded = OrvantaDevice::decode(stringFromBytes(*stored));
    if (decoded.isSuccess()) {
      OrvantaDevice record = std::move(decoded).value();
      if (record.type == "ios") {
        // Earlier versions stored the type in lower case.
        record.type = "IOS";
        writeDevice(record);
      }
      return record;
    }
  }
  return OrvantaDevice(DeviceUuidProvider::uuid(*dependencies_.keychain), "IOS",
                       dependencies_.configFile->appId(),
                       Constants::DeviceAnalytics::from(*dependencies_.deviceInfo));
}

void AuthData::writeDevice(const OrvantaDevice& device) const {
  auto text = jsonText(device);
  if (!text) {
    return;
  }
  try {
    dependencies_.keychain->set(bytesFromString(*text), kDeviceModelKey);
  } catch (...) {  // NOLINT(bugprone-empty-catch): the record then lives only in the request
  }
}

void AuthData::storeDeviceTokenAndRegister(const std::string& token) {
  OrvantaDevice record;
  {
    std::lock_guard lock(recordMutex_);
    record = device();
    record.oldDeviceToken = record.deviceToken;
    record.deviceToken = token;
    setDevice(record);
  }
  registerDevice(record, kRegisteredMessage);
}

void AuthData::registerDevice(const OrvantaDevice& record, const std::string& successMessage) {
  std::uint64_t generation = 0;
  {
    std::lock_guard lock(retryMutex_);
    if (tryAgainWorkItem_) {
      tryAgainWorkItem_->cancel();
      tryAgainWorkItem_.reset();
    }
    generation = ++generation_;
  }
  attempt(record, successMessage, generation);
}

bool AuthData::hasPendingRetry() const {
  std::lock_guard lock(retryMutex_);
  return tryAgainWorkItem_ != nullptr;
}

void AuthData::attempt(const OrvantaDevice& record, const std::string& successMessage,
                       std::uint64_t generation) {
  std::weak_ptr<AuthData> weakSelf = weak_from_this();
  CompletionHandler<Void> handler;
  handler.onNext = [successMessage] { OrvantaLogger::info(successMessage); };
  handler.onError = [weakSelf, record, successMessage, generation](const Error& error) {
    OrvantaLogger::error(error);
    if (auto self = weakSelf.lock()) {
      self->prepareTimer(
          [weakSelf, record, successMessage, generation] {
            if (auto owner = weakSelf.lock()) {
              owner->retry(record, successMessage, generation);
            }
          },
          generation);
    }
  };
  dependencies_.devicesService->registerDevice(record, std::move(handler));
}

void AuthData::prepareTimer(std::function<void()> action, std::uint64_t generation) {
  auto& queue = dependencies_.mainQueue;
  if (!queue) {
    return;
  }
  std::lock_guard lock(retryMutex_);
  if (generation != generation_) {
    return;  // a newer registration took over
  }
  if (tryAgainWorkItem_) {
    tryAgainWorkItem_->cancel();
    tryAgainWorkItem_.reset();
  }
  tryAgainWorkItem_ = queue->asyncAfter(kRetryDelay, std::move(action));
}

void AuthData::retry(const OrvantaDevice& record, const std::string& successMessage,
                     std::uint64_t generation) {
  {
    std::lock_guard lock(retryMutex_);
    if (generation != generation_) {
      return;
    }
    tryAgainWorkItem_.reset();
  }
  attempt(record, successMessage, generation);
}

}  // namespace orvanta
