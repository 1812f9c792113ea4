#pragma once

#include <cstddef>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "networking/devices_service.hpp"

namespace orvanta {

/// A devices service that answers at once, on the calling thread, from a script: each call takes
/// the next scripted outcome, or the default when the script is used up (success for
/// registrations, `Error::mockServiceResponse()` for the last push). Keeps what it was asked.
/// Thread-safe; handlers run without its lock held.
class MockDevicesService : public DevicesServiceProtocol {
 public:
  /// Outcomes of the next registrations: none for success, an error for failure.
  void scriptRegistrations(std::vector<std::optional<Error>> outcomes);
  void setLastPush(std::optional<OrvantaNotificationPayload> payload);

  void registerDevice(const OrvantaDevice& device,
                      CompletionHandler<Void> completionHandler) override;
  void lastPush(const std::string& id,
                CompletionHandler<OrvantaNotificationPayload> completionHandler) override;

  std::vector<OrvantaDevice> registeredDevices() const;
  std::vector<std::string> lastPushIds() const;

 private:
  mutable std::mutex mutex_;
  std::deque<std::optional<Error>> registrationOutcomes_;
  std::optional<OrvantaNotificationPayload> lastPush_;
  std::vector<OrvantaDevice> registered_;
  std::vector<std::string> lastPushIds_;
};

}  // namespace orvanta
