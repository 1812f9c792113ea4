#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "linux/remote_push_delivery.hpp"
#include "orvanta/error.hpp"
#include "orvanta/port/application.hpp"
#include "orvanta/port/main_queue.hpp"

namespace orvanta::linux_platform {

/// Where this desktop gets remote notifications from: the application hands registration to it.
class RemoteNotificationTransport {
 public:
  virtual ~RemoteNotificationTransport() = default;

  /// Asks for an address for this installation. Called on the main queue. Exactly one of the two
  /// functions is to be called, once, from any thread (even inside this call): `registered` with
  /// the address in its opaque form, or `failed` with the reason. A transport that later moves
  /// the installation to another address calls `registered` of the latest registration again.
  virtual void registerForRemoteNotifications(
      std::function<void(std::vector<std::uint8_t> deviceToken)> registered,
      std::function<void(Error error)> failed) = 0;
  /// Gives the address up. Called on the main queue.
  virtual void unregisterForRemoteNotifications() = 0;
};

/// The transport of a desktop that has none: every registration fails with "No push transport is
/// available on this desktop yet"; unregistering does nothing.
std::shared_ptr<RemoteNotificationTransport> makeUnavailableRemoteNotificationTransport();

/// The application object of a Linux desktop.
///
/// - `registerForRemoteNotifications` / `unregisterForRemoteNotifications` (main queue) go to
///   `transport` (null: `makeUnavailableRemoteNotificationTransport()`). The outcome reaches the
///   delegate on `mainQueue`, always after the call returned, if the application and the delegate
///   (held weakly) still exist then.
/// - `canOpenURL` (any thread): true when the desktop has a default handler for the URL's scheme
///   (GIO's application database: "x-scheme-handler/<scheme>", http and https included).
/// - `open` (any thread): hands the URL to that handler without waiting. The launch runs on a
///   thread the application owns, "orvanta-gio", started on first use; a launch that fails is
///   logged once at error level. Destroying the application cancels launches under way and joins
///   the thread.
/// - `delivery` (may be null): how the transport's pushes are shown; the application is a
///   `RemotePushReceiver` that hands it out, so pushes a host receives itself
///   (`deliverRemoteNotification`) take the same way.
std::shared_ptr<port::Application> makeGioApplication(
    std::shared_ptr<port::MainQueue> mainQueue,
    std::shared_ptr<RemoteNotificationTransport> transport = nullptr,
    std::shared_ptr<RemotePushDelivery> delivery = nullptr);

}  // namespace orvanta::linux_platform
