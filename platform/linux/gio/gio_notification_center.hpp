#pragma once

#include <memory>
#include <string>

#include "orvanta/port/main_queue.hpp"
#include "orvanta/port/notification_center.hpp"

namespace orvanta::linux_platform {

struct GioNotificationCenterOptions {
  /// D-Bus address of the bus to use; empty: the user's session bus, found the way GIO finds it
  /// (DBUS_SESSION_BUS_ADDRESS first).
  std::string busAddress;
  /// The application's name as the notification server shows it; empty: the program's name.
  std::string applicationName;
  /// Label of the "default" action, which stands for a click on the notification's body. Most
  /// servers show no button for it; those that do show this text.
  std::string defaultActionLabel = "Show";
  /// Where the delegate is called (the application's main queue, as on the phone platforms);
  /// none: on the centre's own thread.
  std::shared_ptr<port::MainQueue> delegateQueue{};
  /// The application's desktop entry (its file name without ".desktop"), sent as the
  /// "desktop-entry" hint so that shells grouping notifications by application show its name and
  /// icon; empty: no hint.
  std::string desktopEntry{};
  /// When false (the default) a notification is closed once its body or a button was handled, as
  /// on a phone; servers that leave it on screen (many do) would otherwise keep it until it
  /// expires. When true it stays and is marked "resident".
  bool residentNotifications = false;
};

/// The notification centre of a Linux desktop: the notification server on the session D-Bus
/// (org.freedesktop.Notifications at /org/freedesktop/Notifications), reached through GIO.
///
/// - `requestAuthorization`: granted when a notification server answers GetCapabilities (a server
///   the bus can start counts); refused otherwise, with an error that says why. The options are
///   not used: desktop servers ask no permission.
/// - `add`: the delegate's `willPresentNotification` decides first (no delegate: shown). A shown
///   notification becomes one Notify call: summary = title, body = body (escaped when the server
///   reads markup), actions = the buttons of the content's category in order (key = full
///   identifier, label = title) then "default"; the first attachment goes in the "image-path"
///   hint when the server shows images; the "desktop-entry" hint names the application and the
///   urgency is normal. A request whose identifier is still on screen replaces
///   that notification. The completion gets no error once the server took the notification, or
///   once the delegate chose not to show it; otherwise an error that says why.
/// - ActionInvoked for one of our notifications reaches the delegate's
///   `didReceiveNotificationResponse` ("default" as `port::kDefaultActionIdentifier`, a button as
///   its key), with the request as it was added; then the notification is closed
///   (CloseNotification) and forgotten, so a second press does nothing, unless notifications are
///   resident. NotificationClosed forgets the notification.
/// - Without a session bus or without a server nothing is shown; the first failure after a
///   success (or after start) is logged once at error level, and completions carry the reason.
///
/// Threads: the centre owns one thread, "orvanta-dbus", running a GLib main loop on a private
/// context; every D-Bus exchange and every completion happens there, never inside the call that
/// started it; the delegate is called on `delegateQueue` when there is one, else there too. Members
/// may be called from any thread, including from its own callbacks. The delegate's completion
/// handlers may be called from any thread; a second call is ignored. Destroying the centre cancels
/// what is under way (completions still pending are dropped), closes its bus connection and joins
/// the thread; it may be released from inside one of its own callbacks.
std::shared_ptr<port::NotificationCenter> makeGioNotificationCenter(
    GioNotificationCenterOptions options = {});

}  // namespace orvanta::linux_platform
