#pragma once

#include <memory>

#include "orvanta/export.hpp"
#include "orvanta/port/application.hpp"
#include "orvanta/port/bundle.hpp"
#include "orvanta/port/clock.hpp"
#include "orvanta/port/device_info.hpp"
#include "orvanta/port/file_locations.hpp"
#include "orvanta/port/http_client.hpp"
#include "orvanta/port/lifecycle.hpp"
#include "orvanta/port/log_sink.hpp"
#include "orvanta/port/main_queue.hpp"
#include "orvanta/port/notification_center.hpp"
#include "orvanta/port/preferences_store.hpp"
#include "orvanta/port/presenter.hpp"
#include "orvanta/port/secure_store.hpp"
#include "orvanta/value.hpp"

namespace orvanta {

/// Everything the kit needs from the system it runs on. A host (or a platform adapter) fills one
/// and installs it before first use of the kit; fields left empty take the Linux default.
struct ORVANTA_API Platform {
  std::shared_ptr<port::SecureStore> secureStore;
  std::shared_ptr<port::PreferencesStore> preferences;
  std::shared_ptr<port::Bundle> bundle;
  std::shared_ptr<port::FileLocations> fileLocations;
  std::shared_ptr<port::Clock> clock;
  std::shared_ptr<port::MainQueue> mainQueue;
  std::shared_ptr<port::HttpClient> httpClient;
  std::shared_ptr<port::Lifecycle> lifecycle;
  std::shared_ptr<port::DeviceInfo> deviceInfo;
  std::shared_ptr<port::LogSink> logSink;
  std::shared_ptr<port::NotificationCenter> notificationCenter;
  std::shared_ptr<port::Application> application;
  /// Alerts and the web view screen; the Linux default shows nothing (a GTK host installs the
  /// GTK presenter).
  std::shared_ptr<port::Presenter> presenter;
};

/// Installs `platform` for the whole process. Call it once, before the first use of the kit
/// (`Orvanta::configure`, any facade, `currentPlatform`). Installing again before that replaces
/// the platform; a null pointer brings back the Linux default on next use.
///
/// Once the kit is in use (its entry point was built, or the Linux default was bound because
/// nothing was installed) its components keep the platform they were built on, so a later call
/// changes nothing, returns false and logs one error line naming the call that used the kit first.
/// Returns true when `platform` is in force. Thread-safe.
ORVANTA_API bool installPlatform(std::shared_ptr<Platform> platform);

/// The platform in force; the Linux default (see `linux_platform.hpp`) when none was installed.
ORVANTA_API std::shared_ptr<Platform> currentPlatform();

/// Hands a remote push to the platform in force, as the system does when a push arrives: title,
/// body and category come from the push's dictionary `userInfo` (its "aps" alert, else the kit's
/// "data"); the notification service extension then gets it on the main queue (it reports the
/// push received and attaches its image, within `serviceExtensionTimeBudget`), and the
/// notification centre offers the result to the kit in front
/// (`OrvantaPush::willPresentNotification`) before it is shown. Pushes arriving over UnifiedPush
/// take this way by themselves; a host whose pushes arrive by a transport of its own calls this
/// with each push. Any thread; returns at once; never throws.
ORVANTA_API void deliverRemoteNotification(const ValueMap& userInfo);

}  // namespace orvanta
