#pragma once

#include <memory>
#include <mutex>

#include "analytics/event_database.hpp"
#include "core/config_file_helper.hpp"
#include "networking/auth_data.hpp"
#include "networking/end_point_type.hpp"
#include "networking/router.hpp"
#include "networking/service_base_urls.hpp"
#include "orvanta/platform.hpp"
#include "push/orvanta_notification_status_reporter.hpp"
#include "storage/common_data.hpp"
#include "storage/keychain_access.hpp"
#include "storage/user_defaults_access.hpp"

namespace orvanta::detail {

/// The service base URLs of the process, which `setServiceBaseURLs` changes: those of every
/// context unless it is given others. Any thread.
const std::shared_ptr<ServiceBaseURLs>& processServiceURLs();

/// What the kit's components are built from: one platform's ports and the few objects that the
/// components share — the host's credentials, the key-value stores, the device authorization and
/// the event database. The composition root makes one per platform and hands each component what
/// it needs; nothing below it looks a collaborator up. Every member may be called from any
/// thread.
class KitContext {
 public:
  /// `platform` must have every port. Requests go to the services at `serviceURLs` and read their
  /// credentials from `requestCredentials` (none: straight from the host's configuration file).
  explicit KitContext(std::shared_ptr<Platform> platform,
                      std::shared_ptr<const CredentialsSource> requestCredentials = nullptr,
                      std::shared_ptr<const ServiceBaseURLs> serviceURLs = processServiceURLs());
  KitContext(const KitContext&) = delete;
  KitContext& operator=(const KitContext&) = delete;

  const std::shared_ptr<Platform>& platform() const { return platform_; }
  /// The host's configuration file.
  const std::shared_ptr<OrvantaConfigFileHelper>& configFile() const { return configFile_; }
  const std::shared_ptr<const CredentialsSource>& requestCredentials() const {
    return requestCredentials_;
  }
  const std::shared_ptr<const ServiceBaseURLs>& serviceURLs() const { return serviceURLs_; }
  const std::shared_ptr<KeychainAccess>& keychain() const { return keychain_; }
  const std::shared_ptr<UserDefaultsAccess>& userDefaults() const { return userDefaults_; }
  const std::shared_ptr<CommonData>& commonData() const { return commonData_; }
  const std::shared_ptr<AuthData>& authData() const { return authData_; }

  /// The event database, opened on the first call; none when it can't be opened.
  std::shared_ptr<EventDatabase> eventStore() const;

  /// A new status reporter over a new pushes service.
  std::shared_ptr<OrvantaNotificationStatusReporter> makeStatusReporter() const;

  /// A new router of the family `E` over the platform's HTTP client, the request credentials and
  /// the service URLs.
  template <EndPointType E>
  std::shared_ptr<Router<E>> router() const {
    return Router<E>::make({platform_->httpClient, requestCredentials_, serviceURLs_});
  }

 private:
  std::shared_ptr<Platform> platform_;
  std::shared_ptr<OrvantaConfigFileHelper> configFile_;
  std::shared_ptr<const CredentialsSource> requestCredentials_;
  std::shared_ptr<const ServiceBaseURLs> serviceURLs_;
  std::shared_ptr<KeychainAccess> keychain_;
  std::shared_ptr<UserDefaultsAccess> userDefaults_;
  std::shared_ptr<CommonData> commonData_;
  std::shared_ptr<AuthData> authData_;

  mutable std::once_flag eventStoreOnce_;
  mutable std::shared_ptr<EventDatabase> eventStore_;
};

}  // namespace orvanta::detail
