#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
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

/// Which URLs a push's action may open on this desktop.
struct UrlOpeningOptions {
  /// The application's own URL schemes ("myapp"), opened as deep links. None: the
  /// "x-scheme-handler/<scheme>" types of the desktop entry below.
  std::optional<std::vector<std::string>> deepLinkSchemes{};
  /// The application's desktop entry, its file name without ".desktop", looked up in
  /// "applications/" of the XDG data folders; empty: none.
  std::string desktopEntry{};
};

/// Whether a push's action may open `url` as `target`, whatever programs are installed: as a web
/// page, http and https with a host; as a deep link, the schemes of `deepLinkSchemes` (lower
/// case), "mailto" and "tel". Local and script schemes ("file", "javascript", "data", "about",
/// the desktop's own "trash", "admin"...) never, even when listed. Any thread.
bool urlAllowed(const std::string& url, port::UrlTarget target,
                const std::vector<std::string>& deepLinkSchemes);

/// The schemes of the "x-scheme-handler/<scheme>" types of the desktop entry `name` (lower case);
/// none when there is no such entry. Any thread.
std::vector<std::string> desktopEntrySchemes(const std::string& name);

/// The application object of a Linux desktop.
///
/// - `registerForRemoteNotifications` / `unregisterForRemoteNotifications` (main queue) go to
///   `transport` (null: `makeUnavailableRemoteNotificationTransport()`). The outcome reaches the
///   delegate on `mainQueue`, always after the call returned, if the application and the delegate
///   (held weakly) still exist then.
/// - `canOpenURLAs` (any thread): true when `urlAllowed` lets the URL through as that target (the
///   deep-link schemes of `urls`, the desktop entry's read on first use) and the desktop has a
///   default handler for its scheme (GIO's application database: "x-scheme-handler/<scheme>",
///   http and https included). `canOpenURL`: true when it may be opened as either target.
/// - `open` (any thread): hands the URL to that handler without waiting, when it may be opened as
///   either target (else one error line, and nothing). The launch runs on a thread the
///   application owns, "orvanta-gio", started on first use; a launch that fails is logged once at
///   error level. Destroying the application cancels launches under way and joins the thread.
/// - `delivery` (may be null): how the transport's pushes are shown; the application is a
///   `RemotePushReceiver` that hands it out, so pushes a host receives itself
///   (`deliverRemoteNotification`) take the same way.
std::shared_ptr<port::Application> makeGioApplication(
    std::shared_ptr<port::MainQueue> mainQueue,
    std::shared_ptr<RemoteNotificationTransport> transport = nullptr,
    std::shared_ptr<RemotePushDelivery> delivery = nullptr, UrlOpeningOptions urls = {});

}  // namespace orvanta::linux_platform
