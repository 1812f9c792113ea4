#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "inapp/orvanta_in_app_interaction_impl.hpp"
#include "networking/auth_data.hpp"
#include "networking/devices_service.hpp"
#include "orvanta/port/lifecycle.hpp"
#include "push/orvanta_push_impl.hpp"
#include "storage/common_data.hpp"

namespace orvanta {

/// Catches up on the last push the user did not see: whenever the application finishes
/// launching (the first time only) or comes back to the foreground, it asks the service for the
/// device's last push and, unless the user already opened it, offers it to the host's delegate
/// or shows it as an in-app alert.
///
/// Always owned by a `std::shared_ptr` (`make`): the observers and the request's answer hold it
/// weakly. The observers run on the thread that posts the life-cycle events; the answer on the
/// HTTP client's thread; the alert is shown on the main queue.
class OrvantaInAppPushHandler : public std::enable_shared_from_this<OrvantaInAppPushHandler> {
 public:
  struct Dependencies {
    std::shared_ptr<DevicesServiceProtocol> devicesService;
    /// The device token.
    std::shared_ptr<AuthData> authData;
    /// The last opened push.
    std::shared_ptr<CommonData> commonData;
    /// The host's delegate and the push facade's status reporter.
    std::shared_ptr<OrvantaPush::Impl> push;
    /// Shows the alert.
    std::shared_ptr<OrvantaInAppInteraction::Impl> inAppInteraction;
    /// Launch and foreground notifications.
    std::shared_ptr<port::Lifecycle> lifecycle;
  };

  /// Builds the handler and starts observing will-enter-foreground, then did-finish-launching.
  static std::shared_ptr<OrvantaInAppPushHandler> make(Dependencies dependencies);

  /// Prefer `make`.
  explicit OrvantaInAppPushHandler(Dependencies dependencies);

  /// One fetch of the last push, as a launch or a return to the foreground makes.
  void checkDeviceTokenAndFetchLastPush();

 private:
  void observeApplicationWillEnterForeground();
  void observeApplicationDidFinishLaunching();
  void applicationWillEnterForeground();
  void applicationDidFinishLaunching();
  void stopObservingApplicationDidFinishLaunching();
  void handleLastPush(const OrvantaNotificationPayload& payload, const std::string& deviceToken);

  Dependencies dependencies_;
  std::mutex mutex_;
  std::unique_ptr<port::LifecycleObservation> applicationWillEnterForegroundNotificationObserver_;
  std::unique_ptr<port::LifecycleObservation> applicationDidFinishLaunchingNotificationObserver_;
};

}  // namespace orvanta
