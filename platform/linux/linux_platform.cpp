#include <dlfcn.h>
#include <errno.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/logger.hpp"
#include "linux/curl_http_client.hpp"
#include "linux/file_secure_store.hpp"
#include "linux/file_utils.hpp"
#include "linux/folder_bundle.hpp"
#include "linux/headless_ports.hpp"
#if defined(ORVANTA_HAVE_GIO)
#include "linux/gio/gio_application.hpp"
#include "linux/gio/gio_notification_center.hpp"
#include "linux/gio/unified_push_connector.hpp"
#endif
#include "linux/json_preferences_store.hpp"
#include "linux/linux_platform_internal.hpp"
#include "linux/remote_push_delivery.hpp"
#include "linux/system_ports.hpp"
#include "linux/thread_main_queue.hpp"
#include "orvanta/host_lifecycle.hpp"

namespace orvanta::linux_platform {
namespace {

std::string environmentPath(const char* name) {
  const char* value = std::getenv(name);
  // The XDG rules ignore relative paths.
  if (value == nullptr || value[0] != '/') {
    return {};
  }
  return value;
}

std::string homeDirectory() {
  std::string home = environmentPath("HOME");
  if (!home.empty()) {
    return home;
  }
  struct passwd entry {};
  struct passwd* found = nullptr;
  std::vector<char> buffer(16384);
  if (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found &&
      found->pw_dir && found->pw_dir[0] == '/') {
    return found->pw_dir;
  }
  return {};
}

std::string executablePath() {
  std::vector<char> buffer(4096);
  ssize_t length = ::readlink("/proc/self/exe", buffer.data(), buffer.size() - 1);
  if (length <= 0) {
    return {};
  }
  return std::string(buffer.data(), static_cast<std::size_t>(length));
}

bool isDirectory(const std::string& path) {
  struct stat info {};
  return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

// "<prefix>/share/orvanta" next to the installed library ("<prefix>/lib/..."), when it exists.
std::string installedResourcesDirectory() {
  static const char marker = 0;  // any object of this library locates it
  Dl_info info{};
  if (::dladdr(&marker, &info) == 0 || !info.dli_fname) {
    return {};
  }
  std::string folder = parentFolder(info.dli_fname);
  for (int level = 0; level < 3 && folder != "/" && folder != "."; ++level) {
    std::string candidate = parentFolder(folder) + "/share/orvanta";
    if (isDirectory(candidate)) {
      return candidate;
    }
    folder = parentFolder(folder);
  }
  return {};
}

}  // namespace

ResolvedLocations resolveLocations(const LinuxPlatformOptions& options) {
  ResolvedLocations resolved;
  std::string executable = executablePath();
  resolved.applicationName = options.applicationName;
  if (resolved.applicationName.empty()) {
    resolved.applicationName = executable.empty() ? "orvanta" : lastComponent(executable);
  }
  std::string home = homeDirectory();

  if (options.dataDirectory) {
    resolved.dataDirectory = *options.dataDirectory;
  } else if (std::string xdg = environmentPath("XDG_DATA_HOME"); !xdg.empty()) {
    resolved.dataDirectory = xdg + "/" + resolved.applicationName;
  } else if (!home.empty()) {
    resolved.dataDirectory = home + "/.local/share/" + resolved.applicationName;
  }

  if (options.secureStoreDirectory) {
    resolved.secureStoreDirectory = *options.secureStoreDirectory;
  } else if (!resolved.dataDirectory.empty()) {
    resolved.secureStoreDirectory = resolved.dataDirectory + "/keystore";
  }

  if (options.preferencesFile) {
    resolved.preferencesFile = *options.preferencesFile;
  } else if (std::string xdg = environmentPath("XDG_CONFIG_HOME"); !xdg.empty()) {
    resolved.preferencesFile = xdg + "/" + resolved.applicationName + "/preferences.json";
  } else if (!home.empty()) {
    resolved.preferencesFile = home + "/.config/" + resolved.applicationName + "/preferences.json";
  }

  if (options.bundleDirectory) {
    resolved.bundleDirectory = *options.bundleDirectory;
  } else if (!executable.empty()) {
    resolved.bundleDirectory = parentFolder(executable);
  } else {
    resolved.bundleDirectory.assign(1, '.');  // the working directory
  }

  if (options.kitResourcesDirectory) {
    resolved.kitResourcesDirectory = *options.kitResourcesDirectory;
  } else if (std::string installed = installedResourcesDirectory(); !installed.empty()) {
    resolved.kitResourcesDirectory = installed;
  } else {
    resolved.kitResourcesDirectory = resolved.bundleDirectory;
  }
  return resolved;
}

JsonPreferencesStore::Report reportsToLogger() {
  return [](OrvantaLogger::LogLevel level, std::string_view message) {
    // Asking whether logging is on reads the preferences, which may have a line of their own to
    // say in turn (a damaged file): that inner line waits for a later use rather than be asked
    // about again.
    thread_local bool asking = false;
    if (asking) {
      return false;
    }
    asking = true;
    const bool printing = OrvantaLogger::isPrinting(level);
    asking = false;
    if (!printing) {
      return false;
    }
    if (level == OrvantaLogger::LogLevel::error) {
      OrvantaLogger::error(message);
    } else {
      OrvantaLogger::warning(message);
    }
    return true;
  };
}

bool fillMissingPorts(Platform& platform, const LinuxPlatformOptions& options) {
  bool filled = false;
  auto fill = [&filled](auto& port, auto make) {
    if (!port) {
      port = make();
      filled = true;
    }
  };
  auto locations = resolveLocations(options);
  fill(platform.clock, [] { return std::make_shared<SystemClock>(); });
  fill(platform.logSink, [] { return std::make_shared<StdoutLogSink>(); });
  fill(platform.secureStore,
       [&] { return std::make_shared<FileSecureStore>(locations.secureStoreDirectory); });
  fill(platform.preferences, [&] {
    return std::make_shared<JsonPreferencesStore>(locations.preferencesFile, reportsToLogger());
  });
  fill(platform.bundle, [&] {
    return std::make_shared<FolderBundle>(
        locations.bundleDirectory, locations.kitResourcesDirectory,
        options.languages.empty() ? FolderBundle::preferredLanguages() : options.languages);
  });
  fill(platform.fileLocations, [&] {
    return std::make_shared<XdgFileLocations>(locations.dataDirectory, options.eventDurability);
  });
  fill(platform.mainQueue, [] { return std::make_shared<ThreadMainQueue>(); });
  fill(platform.lifecycle, [&] {
    return std::make_shared<HostLifecycle>(platform.mainQueue, options.backgroundTaskBudget);
  });
  fill(platform.deviceInfo, [] { return std::make_shared<LinuxDeviceInfo>(); });
  fill(platform.httpClient, [] { return makeCurlHttpClient(); });
#if defined(ORVANTA_HAVE_GIO)
  fill(platform.notificationCenter, [&] {
    return makeGioNotificationCenter(
        {.busAddress = {},
         .applicationName = locations.applicationName,
         .defaultActionLabel = platform.bundle->localizedString("loc_show", "Localizable"),
         .delegateQueue = platform.mainQueue,
         .desktopEntry = options.desktopEntry.value_or(options.applicationId),
         .residentNotifications = options.residentNotifications});
  });
  fill(platform.application, [&] {
    // Remote pushes come over UnifiedPush and go through the notification service extension to
    // the notification centre.
    auto delivery = RemotePushDelivery::make({
        .notificationCenter = platform.notificationCenter,
        .mainQueue = platform.mainQueue,
        .makeExtension = options.notificationServiceExtension,
        .budget = options.serviceExtensionTimeBudget,
    });
    auto connector = makeUnifiedPushConnector({
        .busAddress = {},
        .applicationId = options.applicationId,
        .description = locations.applicationName,
        .distributor = options.pushDistributor,
        .store = platform.secureStore,
        .vapidPublicKey = options.vapidPublicKey,
        .acceptPlainMessages = options.acceptPlainPushMessages,
        .onPush = [delivery](ValueMap userInfo) { delivery->deliver(std::move(userInfo)); },
    });
    return makeGioApplication(
        platform.mainQueue, std::move(connector), std::move(delivery),
        {.deepLinkSchemes = options.deepLinkSchemes,
         .desktopEntry = options.desktopEntry.value_or(options.applicationId)});
  });
#else
  fill(platform.notificationCenter, [&] {
    return std::make_shared<HeadlessNotificationCenter>(
        platform.mainQueue, "this build of the kit has no desktop notification support");
  });
  fill(platform.application, [&] {
    return std::make_shared<HeadlessApplication>(platform.mainQueue,
                                                 "this build of the kit has no push transport");
  });
#endif
  fill(platform.presenter, [] { return std::make_shared<HeadlessPresenter>(); });
  return filled;
}

}  // namespace orvanta::linux_platform

namespace orvanta {

std::shared_ptr<Platform> makeLinuxPlatform(const LinuxPlatformOptions& options) {
  auto platform = std::make_shared<Platform>();
  linux_platform::fillMissingPorts(*platform, options);
  return platform;
}

}  // namespace orvanta
