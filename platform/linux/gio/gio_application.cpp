#include "linux/gio/gio_application.hpp"

#include <gio/gio.h>

#include <algorithm>
#include <cctype>
#include <mutex>
#include <string>
#include <utility>

#include "core/logger.hpp"
#include "linux/gio/glib_loop_thread.hpp"

namespace orvanta::linux_platform {
namespace {

std::string lowerCase(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

// Schemes that reach the user's files, the desktop's own places or a script: no push opens them.
bool isLocalOrScript(const std::string& scheme) {
  static constexpr const char* kNever[] = {
      "file",   "javascript",        "vbscript",    "data",     "blob",
      "about",  "filesystem",        "view-source", "resource", "trash",
      "recent", "computer",          "network",     "admin",    "archive",
      "burn",   "x-nautilus-desktop"};
  return std::find(std::begin(kNever), std::end(kNever), scheme) != std::end(kNever);
}

bool hasDefaultHandler(const std::string& url) {
  gchar* scheme = g_uri_parse_scheme(url.c_str());
  if (scheme == nullptr) {
    return false;
  }
  GAppInfo* handler = g_app_info_get_default_for_uri_scheme(scheme);
  g_free(scheme);
  if (handler == nullptr) {
    return false;
  }
  g_object_unref(handler);
  return true;
}

class UnavailableTransport final : public RemoteNotificationTransport {
 public:
  void registerForRemoteNotifications(std::function<void(std::vector<std::uint8_t>)>,
                                      std::function<void(Error)> failed) override {
    failed(Error::custom("No push transport is available on this desktop yet"));
  }
  void unregisterForRemoteNotifications() override {}
};

// What registration outcomes need once they come back: they hold it weakly.
struct Registration {
  explicit Registration(std::shared_ptr<port::MainQueue> queue) : mainQueue(std::move(queue)) {}

  std::shared_ptr<port::ApplicationDelegate> delegate() const {
    std::lock_guard lock(mutex);
    return delegateRef.lock();
  }

  // Runs `call` with the delegate on the main queue, if both are still there then.
  static void deliver(const std::weak_ptr<Registration>& weak,
                      std::function<void(port::ApplicationDelegate&)> call) {
    auto registration = weak.lock();
    if (!registration) {
      return;
    }
    registration->mainQueue->async([weak, call = std::move(call)] {
      auto alive = weak.lock();
      auto delegate = alive ? alive->delegate() : nullptr;
      if (!delegate) {
        return;
      }
      try {
        call(*delegate);
      } catch (...) {  // NOLINT(bugprone-empty-catch): host code must not break the queue
      }
    });
  }

  const std::shared_ptr<port::MainQueue> mainQueue;
  mutable std::mutex mutex;
  std::weak_ptr<port::ApplicationDelegate> delegateRef;
};

// Launches URLs on a loop thread of its own; lives until every launch it started has reported.
class UrlOpener : public std::enable_shared_from_this<UrlOpener> {
 public:
  UrlOpener() : cancellable_(g_cancellable_new()), loop_("orvanta-gio") {}
  ~UrlOpener() { g_object_unref(cancellable_); }
  UrlOpener(const UrlOpener&) = delete;
  UrlOpener& operator=(const UrlOpener&) = delete;

  void open(std::string url) {
    // The work captures `this`: it runs only while the loop runs, and the loop ends first.
    loop_.post([this, url = std::move(url)]() mutable {
      ++pending_;
      auto* launch = new Launch{this, std::move(url)};
      g_app_info_launch_default_for_uri_async(launch->url.c_str(), nullptr, cancellable_,
                                              &UrlOpener::onLaunched, launch);
    });
  }

  void shutdown() {
    auto self = shared_from_this();
    loop_.stop([self] { g_cancellable_cancel(self->cancellable_); },
               [self] { return self->pending_ == 0; });
  }

 private:
  struct Launch {
    UrlOpener* opener;
    std::string url;
  };

  static void onLaunched(GObject*, GAsyncResult* result, gpointer data) {
    std::unique_ptr<Launch> launch(static_cast<Launch*>(data));
    GError* error = nullptr;
    if (!g_app_info_launch_default_for_uri_finish(result, &error)) {
      if (!g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CANCELLED)) {
        OrvantaLogger::error("Could not open " + launch->url + ": " + error->message);
      }
      g_error_free(error);
    }
    --launch->opener->pending_;
  }

  GCancellable* cancellable_;
  int pending_ = 0;      // loop thread only
  GlibLoopThread loop_;  // last: stops before the members it uses go
};

class GioApplication final : public port::Application, public RemotePushReceiver {
 public:
  GioApplication(std::shared_ptr<port::MainQueue> mainQueue,
                 std::shared_ptr<RemoteNotificationTransport> transport,
                 std::shared_ptr<RemotePushDelivery> delivery, UrlOpeningOptions urls)
      : registration_(std::make_shared<Registration>(std::move(mainQueue))),
        transport_(transport ? std::move(transport) : makeUnavailableRemoteNotificationTransport()),
        delivery_(std::move(delivery)),
        urls_(std::move(urls)) {}

  ~GioApplication() override {
    std::shared_ptr<UrlOpener> opener;
    {
      std::lock_guard lock(openerMutex_);
      opener = std::move(opener_);
    }
    if (opener) {
      opener->shutdown();
    }
  }

  GioApplication(const GioApplication&) = delete;
  GioApplication& operator=(const GioApplication&) = delete;

  void registerForRemoteNotifications() override {
    std::weak_ptr<Registration> weak = registration_;
    transport_->registerForRemoteNotifications(
        [weak](std::vector<std::uint8_t> token) {
          Registration::deliver(weak, [token = std::move(token)](port::ApplicationDelegate& d) {
            d.didRegisterForRemoteNotifications(token);
          });
        },
        [weak](Error error) {
          Registration::deliver(weak, [error = std::move(error)](port::ApplicationDelegate& d) {
            d.didFailToRegisterForRemoteNotifications(error);
          });
        });
  }

  void unregisterForRemoteNotifications() override {
    transport_->unregisterForRemoteNotifications();
  }

  bool canOpenURL(const std::string& url) override {
    return allowedAsEither(url) && hasDefaultHandler(url);
  }

  bool canOpenURLAs(const std::string& url, port::UrlTarget target) override {
    return urlAllowed(url, target, deepLinkSchemes()) && hasDefaultHandler(url);
  }

  void open(const std::string& url) override {
    if (!allowedAsEither(url)) {
      OrvantaLogger::error("Refused to open " + url +
                           ": neither a web page nor a link this application handles");
      return;
    }
    std::shared_ptr<UrlOpener> opener;
    {
      std::lock_guard lock(openerMutex_);
      if (!opener_) {
        opener_ = std::make_shared<UrlOpener>();
      }
      opener = opener_;
    }
    opener->open(url);
  }

  void setDelegate(std::weak_ptr<port::ApplicationDelegate> delegate) override {
    std::lock_guard lock(registration_->mutex);
    registration_->delegateRef = std::move(delegate);
  }

  std::shared_ptr<RemotePushDelivery> remotePushDelivery() const override { return delivery_; }

 private:
  bool allowedAsEither(const std::string& url) {
    return urlAllowed(url, port::UrlTarget::browser, {}) ||
           urlAllowed(url, port::UrlTarget::deepLink, deepLinkSchemes());
  }

  // The host's list, else the desktop entry's, read once.
  const std::vector<std::string>& deepLinkSchemes() {
    std::call_once(schemesRead_, [this] {
      if (urls_.deepLinkSchemes) {
        for (const auto& scheme : *urls_.deepLinkSchemes) {
          schemes_.push_back(lowerCase(scheme));
        }
      } else {
        schemes_ = desktopEntrySchemes(urls_.desktopEntry);
      }
    });
    return schemes_;
  }

  std::shared_ptr<Registration> registration_;
  std::shared_ptr<RemoteNotificationTransport> transport_;
  std::shared_ptr<RemotePushDelivery> delivery_;
  std::mutex openerMutex_;
  std::shared_ptr<UrlOpener> opener_;
  const UrlOpeningOptions urls_;
  std::once_flag schemesRead_;
  std::vector<std::string> schemes_;  // set once, under schemesRead_
};

}  // namespace

bool urlAllowed(const std::string& url, port::UrlTarget target,
                const std::vector<std::string>& deepLinkSchemes) {
  GUri* uri = g_uri_parse(url.c_str(), G_URI_FLAGS_NONE, nullptr);
  if (uri == nullptr) {
    return false;
  }
  const std::string scheme = lowerCase(g_uri_get_scheme(uri));
  const char* host = g_uri_get_host(uri);
  const bool hasHost = host != nullptr && host[0] != '\0';
  g_uri_unref(uri);
  if (isLocalOrScript(scheme)) {
    return false;
  }
  if (target == port::UrlTarget::browser) {
    return (scheme == "http" || scheme == "https") && hasHost;
  }
  return scheme == "mailto" || scheme == "tel" ||
         std::find(deepLinkSchemes.begin(), deepLinkSchemes.end(), scheme) != deepLinkSchemes.end();
}

std::vector<std::string> desktopEntrySchemes(const std::string& name) {
  std::vector<std::string> schemes;
  if (name.empty() || name.find('/') != std::string::npos) {
    return schemes;
  }
  // The data folders in the order that decides which entry counts: the user's first.
  std::vector<const gchar*> folders{g_get_user_data_dir()};
  for (const gchar* const* folder = g_get_system_data_dirs(); *folder != nullptr; ++folder) {
    folders.push_back(*folder);
  }
  folders.push_back(nullptr);
  GKeyFile* entry = g_key_file_new();
  const std::string file = "applications/" + name + ".desktop";
  if (g_key_file_load_from_dirs(entry, file.c_str(), folders.data(), nullptr, G_KEY_FILE_NONE,
                                nullptr)) {
    gchar** types =
        g_key_file_get_string_list(entry, "Desktop Entry", "MimeType", nullptr, nullptr);
    constexpr std::string_view kHandler = "x-scheme-handler/";
    for (gchar** type = types; type != nullptr && *type != nullptr; ++type) {
      const std::string text = lowerCase(*type);
      if (text.size() > kHandler.size() && text.compare(0, kHandler.size(), kHandler) == 0) {
        schemes.push_back(text.substr(kHandler.size()));
      }
    }
    g_strfreev(types);
  }
  g_key_file_free(entry);
  return schemes;
}

std::shared_ptr<RemoteNotificationTransport> makeUnavailableRemoteNotificationTransport() {
  return std::make_shared<UnavailableTransport>();
}

std::shared_ptr<port::Application> makeGioApplication(
    std::shared_ptr<port::MainQueue> mainQueue,
    std::shared_ptr<RemoteNotificationTransport> transport,
    std::shared_ptr<RemotePushDelivery> delivery, UrlOpeningOptions urls) {
  return std::make_shared<GioApplication>(std::move(mainQueue), std::move(transport),
                                          std::move(delivery), std::move(urls));
}

}  // namespace orvanta::linux_platform
