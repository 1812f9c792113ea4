#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "orvanta/export.hpp"
#include "orvanta/orvanta_notification_service_extension.hpp"
#include "orvanta/platform.hpp"

namespace orvanta {

/// Where the Linux defaults keep their files. Anything left empty follows the XDG base
/// directories under a folder named after the application.
struct ORVANTA_API LinuxPlatformOptions {
  /// Folder name under the XDG directories; default: the executable's file name.
  std::string applicationName;
  /// Documents and database ("$XDG_DATA_HOME/<app>", else "~/.local/share/<app>").
  std::optional<std::string> dataDirectory;
  /// `port::Durability::full` for hosts that need every acknowledged event to survive a power
  /// cut: the event database then syncs the disk at every commit (SQLite's synchronous=FULL),
  /// which costs about a disk sync per `trackEvent`. Default: synced at checkpoints and when the
  /// application leaves the screen (see "Events survive a crash" in the README).
  port::Durability eventDurability = port::Durability::normal;
  /// Secure store items ("<dataDirectory>/keystore", mode 0700, items 0600).
  std::optional<std::string> secureStoreDirectory;
  /// Preferences file ("$XDG_CONFIG_HOME/<app>/preferences.json", else "~/.config/<app>/...").
  std::optional<std::string> preferencesFile;
  /// The host's bundle: where "OrvantaConfig.plist" and other resources are looked up
  /// (default: the folder of the executable).
  std::optional<std::string> bundleDirectory;
  /// The kit's own resources (string tables); default: the installed share/orvanta folder,
  /// else the bundle directory.
  std::optional<std::string> kitResourcesDirectory;
  /// The languages of the kit's texts (button titles, alert buttons), most wanted first ("de",
  /// "pt_BR"); empty: the user's, from LANGUAGE, LC_ALL, LC_MESSAGES or LANG. English when none
  /// of them is supplied.
  std::vector<std::string> languages{};
  /// How long a background task may run before it expires, unless the host reports suspension
  /// first (`postWillSuspend`). Zero: tasks only expire at suspension.
  std::chrono::milliseconds backgroundTaskBudget{30'000};
  /// The application's reverse-DNS id ("com.example.Shop"), under which it receives remote
  /// pushes on the session bus (UnifiedPush, see docs/unifiedpush.md). Empty: registration for
  /// remote notifications fails and says so.
  std::string applicationId{};
  /// The push distributor to use when the user named none in ORVANTA_PUSH_DISTRIBUTOR: its bus
  /// name, or the part after "org.unifiedpush.Distributor.". Empty: the one registered with
  /// before, else the only one on the bus.
  std::string pushDistributor{};
  /// The service's VAPID public key (RFC 8292; the uncompressed P-256 point in URL-safe base64, as
  /// the service publishes it). Given, the kit hands it to the push distributor with the
  /// registration, and the distributor's push server then takes only pushes the service signed.
  /// Empty: anyone who learns the endpoint may post to it (what they post must still decrypt).
  std::string vapidPublicKey{};
  /// Remote pushes are encrypted to keys the kit makes at registration (RFC 8291; see
  /// docs/unifiedpush.md), and a message in clear is dropped. On: messages that are the push's
  /// JSON in clear are taken too, for distributors that cannot carry binary messages. Anyone who
  /// can reach the endpoint can then show the user a push: keep it off unless such a distributor
  /// must be supported.
  bool acceptPlainPushMessages = false;
  /// The application's desktop entry (its file name without ".desktop"), named in each
  /// notification so that desktops grouping notifications by application show its name and icon.
  /// None: the application id; empty: not named.
  std::optional<std::string> desktopEntry{};
  /// Notifications stay on screen after their body or a button was handled. Off by default: a
  /// handled notification is closed, as on a phone.
  bool residentNotifications = false;
  /// Makes the notification service extension of each remote push (a subclass of the host's,
  /// say); empty: `OrvantaNotificationServiceExtension` itself. Called on the main queue.
  std::function<std::shared_ptr<OrvantaNotificationServiceExtension>()>
      notificationServiceExtension{};
  /// How long an extension may take before `serviceExtensionTimeWillExpire` is called.
  std::chrono::milliseconds serviceExtensionTimeBudget{30'000};
  /// The URL schemes of the application's own links ("myapp"): what a push's "DEEPLINK" action
  /// may open, besides "mailto" and "tel" ("BROWSER" opens http and https only; see
  /// docs/push.md). None: the "x-scheme-handler/<scheme>" types of the application's desktop
  /// entry (`desktopEntry`), when it has one.
  std::optional<std::vector<std::string>> deepLinkSchemes{};
};

/// Builds the Linux default platform: files in the folders above, the system clocks, standard
/// output, a main queue on a thread of its own, a `HostLifecycle` driven by the host, and an HTTP
/// client over libcurl. Directories are created on first write, not here. Any thread.
///
/// A host that keeps its "OrvantaConfig.plist" in a folder of its own installs, before first use:
///   `orvanta::installPlatform(orvanta::makeLinuxPlatform({.bundleDirectory =
///   "/path/to/folder"}));`
ORVANTA_API std::shared_ptr<Platform> makeLinuxPlatform(const LinuxPlatformOptions& options = {});

}  // namespace orvanta
