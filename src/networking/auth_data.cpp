#include "networking/auth_data.hpp"

#include <utility>

#include "core/guard.hpp"
#include "core/logger.hpp"
#include "core/utf8.hpp"
#include "models/json.hpp"
#include "networking/networking_error.hpp"
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
    std::string bytes = stringFromBytes(*stored);
    std::optional<OrvantaDevice> known;
    {
      std::lock_guard lock(decodedMutex_);
      if (decoded_ && decodedBytes_ == bytes) {
        known = decoded_;
      }
    }
    if (!known) {
      auto decoded = OrvantaDevice::decode(bytes);
      if (decoded.isSuccess()) {
        known = std::move(decoded).value();
        std::lock_guard lock(decodedMutex_);
        decodedBytes_ = std::move(bytes);
        decoded_ = known;
      } else {
        bool first = false;
        {
          std::lock_guard lock(decodedMutex_);
          first = undecodable_ != bytes;
          undecodable_ = bytes;
        }
        if (first) {
          OrvantaLogger::warning("The stored device record does not decode (" +
                                 decoded.error().localizedDescription() +
                                 "): a new one is used, without a push token until the next "
                                 "registration");
        }
      }
    }
    if (known) {
      OrvantaDevice record = std::move(*known);
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
    // Host text is repaired where it enters, so this is a record built some other way.
    OrvantaLogger::error(makeError(NetworkingError::encodingFailed));
    return;
  }
  try {
    // A record that can't be stored now (a full disk) is kept in memory, read back in its
    // place and stored with the next write: later events carry the new push token.
    dependencies_.keychain->setKeepingOnFailure(bytesFromString(*text), kDeviceModelKey);
  } catch (...) {  // NOLINT(bugprone-empty-catch): the store said why; the record is kept
  }
}

void AuthData::storeDeviceTokenAndRegister(const std::string& token) {
  OrvantaDevice record;
  {
    std::lock_guard lock(recordMutex_);
    record = device();
    record.oldDeviceToken = record.deviceToken;
    record.deviceToken = repairedUtf8(token);
    setDevice(record);
  }
  registerDevice(record, kRegisteredMessage);
}

void AuthData::registerDevice(const OrvantaDevice& record, const std::string& successMessage) {
  {
    std::lock_guard lock(retryMutex_);
    if (tryAgainWorkItem_) {
      tryAgainWorkItem_->cancel();
      tryAgainWorkItem_.reset();
    }
  }
  std::weak_ptr<AuthData> weakSelf = weak_from_this();
  CompletionHandler<Void> handler;
  handler.onNext = [weakSelf, record, successMessage] {
    OrvantaLogger::info(successMessage);
    if (auto self = weakSelf.lock()) {
      self->tellOutcome(record, std::nullopt);
    }
  };
  // The answer is handled as usual even when a newer registration began meanwhile: its failure
  // schedules a retry of this record, in place of any retry pending by then.
  handler.onError = [weakSelf, record, successMessage](const Error& error) {
    OrvantaLogger::error(error);
    if (auto self = weakSelf.lock()) {
      self->tellOutcome(record, error);
      self->prepareTimer([weakSelf, record, successMessage] {
        if (auto owner = weakSelf.lock()) {
          owner->registerDevice(record, successMessage);
        }
      });
    }
  };
  dependencies_.devicesService->registerDevice(record, std::move(handler));
}

void AuthData::setRegistrationOutcome(RegistrationOutcome outcome) {
  std::lock_guard lock(outcomeMutex_);
  outcome_ = std::move(outcome);
}

void AuthData::tellOutcome(const OrvantaDevice& record, const std::optional<Error>& error) const {
  RegistrationOutcome outcome;
  {
    std::lock_guard lock(outcomeMutex_);
    outcome = outcome_;
  }
  if (outcome) {
    detail::shielded([&] { outcome(record, error); });
  }
}

bool AuthData::hasPendingRetry() const {
  std::lock_guard lock(retryMutex_);
  return tryAgainWorkItem_ != nullptr;
}

void AuthData::prepareTimer(std::function<void()> action) {
  auto& queue = dependencies_.mainQueue;
  if (!queue) {
    return;
  }
  std::lock_guard lock(retryMutex_);
  if (tryAgainWorkItem_) {
    tryAgainWorkItem_->cancel();
    tryAgainWorkItem_.reset();
  }
  tryAgainWorkItem_ = queue->asyncAfter(kRetryDelay, std::move(action));
}

}  // namespace orvanta
