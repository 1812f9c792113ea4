#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "core/config_file_helper.hpp"
#include "models/orvanta_device.hpp"
#include "networking/devices_service.hpp"
#include "orvanta/port/device_info.hpp"
#include "orvanta/port/main_queue.hpp"
#include "storage/keychain_access.hpp"

namespace orvanta {

/// Keeps this installation's device record in the key store and registers it with the push
/// service, trying again every 60 seconds until the service accepts it.
///
/// Always owned by a `std::shared_ptr` (`AuthData::make`): request handlers
/// and the pending retry hold it weakly and do nothing once it is gone. Every member may be called
/// from any thread. Registration handlers run on the HTTP client's thread; retries run on the main
/// queue.
class AuthData : public std::enable_shared_from_this<AuthData> {
 public:
  struct Dependencies {
    /// Where registrations go.
    std::shared_ptr<DevicesServiceProtocol> devicesService;
    /// Where retries wait.
    std::shared_ptr<port::MainQueue> mainQueue;
    /// Where the record and the installation identifier are kept.
    std::shared_ptr<KeychainAccess> keychain;
    /// The application identifier of a fresh record.
    std::shared_ptr<const CredentialsSource> configFile;
    /// The handset a fresh record describes.
    std::shared_ptr<port::DeviceInfo> deviceInfo;
  };

  /// The pause between a failed registration and the next attempt.
  static constexpr std::chrono::milliseconds kRetryDelay{60'000};

  static std::shared_ptr<AuthData> make(Dependencies dependencies) {
    return std::make_shared<AuthData>(std::move(dependencies));
  }

  /// Prefer `make`: an instance not owned by a `std::shared_ptr` never schedules a retry.
  explicit AuthData(Dependencies dependencies);
  /// Cancels the pending retry.
  virtual ~AuthData();
  AuthData(const AuthData&) = delete;
  AuthData& operator=(const AuthData&) = delete;

  /// The device record, read from the key store ("authorizationData.deviceModel") on every call.
  /// A record stored with the type "ios" is read as "IOS" and written back so (once). When nothing
  /// decodable is stored, a fresh record for the installation identifier ("uuid", created when
  /// missing) with the type "IOS" is returned, without storing it.
  virtual OrvantaDevice device() const;
  /// Stores the record in the key store. A record that cannot be written as JSON is not stored and
  /// says so in one error line; a key-store failure is dropped.
  virtual void setDevice(const OrvantaDevice& device);

  /// Puts `token` (repaired as host text) in the device record, with the previous token as
  /// `oldDeviceToken`, stores the record and registers it ("Successfully registered deviceToken"
  /// on success).
  void storeDeviceTokenAndRegister(const std::string& token);

  /// Cancels any pending retry and registers `record`. Success logs `successMessage` at info level;
  /// failure logs the error and schedules the same registration 60 seconds later on the main
  /// queue (replacing any retry pending by then), again and again until one succeeds. A later call
  /// cancels the retry pending at that moment, but not a request already in flight: its answer is
  /// handled as usual, so its failure may still schedule a retry of the older record.
  void registerDevice(const OrvantaDevice& record, const std::string& successMessage);

  /// True while a retry is waiting on the main queue.
  bool hasPendingRetry() const;

  /// Told of every registration's answer, after its log line: the record sent, and the error when
  /// the service did not accept it. Runs on the HTTP client's thread; none by default.
  using RegistrationOutcome =
      std::function<void(const OrvantaDevice& record, const std::optional<Error>& error)>;
  void setRegistrationOutcome(RegistrationOutcome outcome);

  const Dependencies& dependencies() const { return dependencies_; }

 protected:
  /// The key under which the record is stored: "authorizationData." + "deviceModel".
  static constexpr const char* kDeviceModelKey = "authorizationData.deviceModel";

 private:
  OrvantaDevice checkIfCurrentVersionAndUpdateModelIfNeeded() const;
  void writeDevice(const OrvantaDevice& device) const;
  void tellOutcome(const OrvantaDevice& record, const std::optional<Error>& error) const;
  /// Schedules `action` 60 seconds ahead, in place of any pending retry.
  void prepareTimer(std::function<void()> action);
  Dependencies dependencies_;

  mutable std::mutex retryMutex_;
  std::shared_ptr<port::Cancellable> tryAgainWorkItem_;  ///< guarded by retryMutex_

  /// The record last decoded and the bytes it came from: the key store is read on every access,
  /// and decoded again only when the bytes differ.
  mutable std::mutex decodedMutex_;
  mutable std::string decodedBytes_;              ///< guarded by decodedMutex_
  mutable std::optional<OrvantaDevice> decoded_;  ///< guarded by decodedMutex_
  /// The last stored bytes that did not decode, said once (guarded by decodedMutex_).
  mutable std::optional<std::string> undecodable_;

  mutable std::mutex outcomeMutex_;
  RegistrationOutcome outcome_;  ///< guarded by outcomeMutex_

  /// Serialises the read-modify-write of `storeDeviceTokenAndRegister`.
  std::mutex recordMutex_;
};

}  // namespace orvanta
