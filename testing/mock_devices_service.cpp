#include "testing/mock_devices_service.hpp"

#include <utility>

namespace orvanta {

void MockDevicesService::scriptRegistrations(std::vector<std::optional<Error>> outcomes) {
  std::lock_guard lock(mutex_);
  registrationOutcomes_.assign(outcomes.begin(), outcomes.end());
}

void MockDevicesService::setLastPush(std::optional<OrvantaNotificationPayload> payload) {
  std::lock_guard lock(mutex_);
  lastPush_ = std::move(payload);
}

void MockDevicesService::registerDevice(const OrvantaDevice& device,
                                        CompletionHandler<Void> completionHandler) {
  std::optional<Error> outcome;
  {
    std::lock_guard lock(mutex_);
    registered_.push_back(device);
    if (!registrationOutcomes_.empty()) {
      outcome = std::move(registrationOutcomes_.front());
      registrationOutcomes_.pop_front();
    }
  }
  if (outcome) {
    if (completionHandler.onError) {
      completionHandler.onError(*outcome);
    }
  } else if (completionHandler.onNext) {
    completionHandler.onNext();
  }
}

void MockDevicesService::lastPush(const std::string& id,
                                  CompletionHandler<OrvantaNotificationPayload> completionHandler) {
  std::optional<OrvantaNotificationPayload> payload;
  {
    std::lock_guard lock(mutex_);
    lastPushIds_.push_back(id);
    payload = lastPush_;
  }
  if (payload) {
    if (completionHandler.onNext) {
      completionHandler.onNext(*payload);
    }
  } else if (completionHandler.onError) {
    completionHandler.onError(Error::mockServiceResponse());
  }
}

std::vector<OrvantaDevice> MockDevicesService::registeredDevices() const {
  std::lock_guard lock(mutex_);
  return registered_;
}

std::vector<std::string> MockDevicesService::lastPushIds() const {
  std::lock_guard lock(mutex_);
  return lastPushIds_;
}

}  // namespace orvanta
