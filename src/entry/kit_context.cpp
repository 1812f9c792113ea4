#include "entry/kit_context.hpp"

#include <utility>

#include "networking/devices_service.hpp"
#include "networking/pushes_service.hpp"

namespace orvanta::detail {

const std::shared_ptr<ServiceBaseURLs>& processServiceURLs() {
  // Never destroyed: requests may still be built on the kit's threads while the process exits.
  static const auto* urls =
      new std::shared_ptr<ServiceBaseURLs>(std::make_shared<ServiceBaseURLs>());
  return *urls;
}

KitContext::KitContext(std::shared_ptr<Platform> platform,
                       std::shared_ptr<const CredentialsSource> requestCredentials,
                       std::shared_ptr<const ServiceBaseURLs> serviceURLs)
    : platform_(std::move(platform)),
      configFile_(std::make_shared<OrvantaConfigFileHelper>(platform_->bundle)),
      requestCredentials_(requestCredentials ? std::move(requestCredentials) : configFile_),
      serviceURLs_(std::move(serviceURLs)),
      keychain_(std::make_shared<KeychainAccess>(platform_->secureStore)),
      userDefaults_(std::make_shared<UserDefaultsAccess>(platform_->preferences)),
      commonData_(std::make_shared<CommonData>(userDefaults_)) {
  authData_ = AuthData::make({
      .devicesService = std::make_shared<DevicesService>(router<DevicesEndPoint>()),
      .mainQueue = platform_->mainQueue,
      .keychain = keychain_,
      .configFile = configFile_,
      .deviceInfo = platform_->deviceInfo,
  });
}

std::shared_ptr<OrvantaNotificationStatusReporter> KitContext::makeStatusReporter() const {
  return std::make_shared<OrvantaNotificationStatusReporter>(
      OrvantaNotificationStatusReporter::Dependencies{
          std::make_shared<PushesService>(router<PushesEndPoint>()), commonData_,
          platform_->clock});
}

std::shared_ptr<EventDatabase> KitContext::eventStore() const {
  std::call_once(eventStoreOnce_,
                 [this] { eventStore_ = openEventDatabase(*platform_->fileLocations); });
  return eventStore_;
}

}  // namespace orvanta::detail
