#include "linux/gio/gio_notification_center.hpp"

#include <errno.h>
#include <gio/gio.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "core/logger.hpp"
#include "linux/gio/gio_bus.hpp"
#include "linux/gio/glib_loop_thread.hpp"

namespace orvanta::linux_platform {
namespace {

constexpr const char* kServerName = "org.freedesktop.Notifications";
constexpr const char* kServerPath = "/org/freedesktop/Notifications";
constexpr const char* kServerInterface = "org.freedesktop.Notifications";
constexpr guchar kNormalUrgency = 1;  // low 0, normal 1, critical 2

using AuthorizationCompletion = std::function<void(bool, std::optional<Error>)>;
using AddCompletion = std::function<void(std::optional<Error>)>;

// D-Bus strings must be UTF-8; whatever a push carried is made valid first.
std::string validUtf8(const std::string& text) {
  gchar* valid = g_utf8_make_valid(text.c_str(), static_cast<gssize>(text.size()));
  std::string result = valid;
  g_free(valid);
  return result;
}

bool contains(const std::vector<std::string>& list, const std::string& item) {
  return std::find(list.begin(), list.end(), item) != list.end();
}

// Why a bus call failed, in words the log and the completions carry.
std::string describeCallError(const GError* error) {
  GError* copy = g_error_copy(error);
  g_dbus_error_strip_remote_error(copy);
  std::string message = copy->message;
  g_error_free(copy);
  if (g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_SERVICE_UNKNOWN) ||
      g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_NAME_HAS_NO_OWNER)) {
    return "no notification server on the session D-Bus (" + message + ")";
  }
  if (g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CLOSED)) {
    return "the session D-Bus connection was closed";
  }
  return "the notification server failed: " + message;
}

std::string describeConnectError(const std::string& error) {
  return "no session D-Bus (" + error + ")";
}

Error centreError(const std::string& why) {
  return Error(Error::Domain::system, 0, "Desktop notifications are unavailable: " + why);
}

std::string defaultApplicationName() {
  const char* name = g_get_application_name();  // the program's name unless set otherwise
  return name != nullptr ? name : program_invocation_short_name;
}

// Everything the centre does happens on its loop thread; the members marked so are touched only
// there. The object outlives every GIO call it starts: the loop keeps it until they all reported.
class Core : public std::enable_shared_from_this<Core> {
 public:
  explicit Core(GioNotificationCenterOptions options)
      : options_(std::move(options)), loop_("orvanta-dbus") {
    if (options_.applicationName.empty()) {
      options_.applicationName = defaultApplicationName();
    }
  }

  Core(const Core&) = delete;
  Core& operator=(const Core&) = delete;

  void requestAuthorization(AuthorizationCompletion completion) {
    // Posted work captures `this`: it runs only while the loop runs, and the loop ends before the
    // core is released.
    loop_.post([this, completion = std::move(completion)] {
      withConnection(
          [this, completion] {
            call("GetCapabilities", nullptr, "(as)", [completion](GVariant*, const GError* error) {
              if (error != nullptr) {
                refuse(completion, describeCallError(error));
              } else {
                deliver(completion, true, std::nullopt);
              }
            });
          },
          [completion](const std::string& why) { refuse(completion, why); });
    });
  }

  void setNotificationCategories(std::vector<port::NotificationCategory> categories) {
    loop_.post([this, categories = std::move(categories)]() mutable {
      categories_ = std::move(categories);
    });
  }

  void add(port::NotificationRequest request, AddCompletion completion) {
    loop_.post([this, request = std::move(request), completion = std::move(completion)]() mutable {
      offer(port::Notification{std::move(request), std::chrono::system_clock::now()},
            std::move(completion));
    });
  }

  void setDelegate(std::weak_ptr<port::NotificationCenterDelegate> delegate) {
    std::lock_guard lock(delegateMutex_);
    delegate_ = std::move(delegate);
  }

  std::shared_ptr<port::NotificationCenterDelegate> delegate() const {
    std::lock_guard lock(delegateMutex_);
    return delegate_.lock();
  }

  // Called once, by the centre's destructor, on any thread.
  void shutdown() {
    auto self = shared_from_this();
    loop_.stop([self] { self->closeOnLoop(); }, [self] { return self->bus_.settled(); });
  }

 private:
  using Failure = std::function<void(const std::string& why)>;
  using CallDone = BusCalls::CallDone;

  static void deliver(const AuthorizationCompletion& completion, bool granted,
                      std::optional<Error> error) {
    if (!completion) {
      return;
    }
    try {
      completion(granted, std::move(error));
    } catch (...) {  // NOLINT(bugprone-empty-catch): host code must not stop the loop
    }
  }

  // Permission refused: the kit's push facade stays silent, so the centre says why.
  static void refuse(const AuthorizationCompletion& completion, const std::string& why) {
    OrvantaLogger::error("Permission to show notifications refused: " + why);
    deliver(completion, false, centreError(why));
  }

  static void complete(const AddCompletion& completion, std::optional<Error> error) {
    if (!completion) {
      return;
    }
    try {
      completion(std::move(error));
    } catch (...) {  // NOLINT(bugprone-empty-catch): host code must not stop the loop
    }
  }

  // --- connection (loop thread) ------------------------------------------------------------

  void withConnection(std::function<void()> ready, Failure failed) {
    if (connection_ != nullptr) {
      ready();
      return;
    }
    waiting_.emplace_back(std::move(ready), std::move(failed));
    if (!connecting_) {
      connect();
    }
  }

  void connect() {
    connecting_ = true;
    bus_.openConnection(options_.busAddress,
                        [this](GDBusConnection* connection, const std::string& error) {
                          connected(connection, error);
                        });
  }

  void connected(GDBusConnection* connection, const std::string& error) {
    connecting_ = false;
    auto waiting = std::move(waiting_);
    waiting_.clear();
    if (connection == nullptr) {
      const std::string why = describeConnectError(error);
      for (auto& [ready, failed] : waiting) {
        failed(why);
      }
      return;
    }
    connection_ = connection;
    closedHandler_ =
        g_signal_connect_data(connection_, "closed", reinterpret_cast<GCallback>(&Core::onClosed),
                              this, nullptr, static_cast<GConnectFlags>(0));
    subscribe(kServerName, kServerInterface, "ActionInvoked", kServerPath, nullptr);
    subscribe(kServerName, kServerInterface, "NotificationClosed", kServerPath, nullptr);
    subscribe("org.freedesktop.DBus", "org.freedesktop.DBus", "NameOwnerChanged",
              "/org/freedesktop/DBus", kServerName);
    for (auto& [ready, failed] : waiting) {
      ready();
    }
  }

  void subscribe(const char* sender, const char* interface, const char* member, const char* path,
                 const char* arg0) {
    subscriptions_.push_back(g_dbus_connection_signal_subscribe(
        connection_, sender, interface, member, path, arg0, G_DBUS_SIGNAL_FLAGS_NONE,
        &Core::onSignal, this, nullptr));
  }

  // The bus went away: notifications shown through it can't be answered any more; the next
  // request connects again.
  static void onClosed(GDBusConnection*, gboolean, GError*, gpointer data) {
    static_cast<Core*>(data)->dropConnection();
  }

  void dropConnection() {
    if (connection_ == nullptr) {
      return;
    }
    for (guint subscription : subscriptions_) {
      g_dbus_connection_signal_unsubscribe(connection_, subscription);
    }
    subscriptions_.clear();
    g_signal_handler_disconnect(connection_, closedHandler_);
    closedHandler_ = 0;
    GDBusConnection* connection = connection_;
    connection_ = nullptr;
    forgetShown();
    bus_.closeConnection(connection);
  }

  void closeOnLoop() {
    bus_.close();
    waiting_.clear();
    dropConnection();
  }

  // One method call on the server; `done` runs on the loop thread, unless the centre is closing.
  void call(const char* method, GVariant* parameters, const char* replyType, CallDone done) {
    bus_.call(connection_, kServerName, kServerPath, kServerInterface, method, parameters,
              replyType, std::move(done));
  }

  // --- presentation (loop thread) ----------------------------------------------------------

  // A notification on its way to the server, with its category's buttons as they were when it
  // was added.
  struct Presentation {
    port::Notification notification;
    std::vector<port::NotificationAction> buttons;
    AddCompletion completion;
  };

  void offer(port::Notification notification, AddCompletion completion) {
    std::vector<port::NotificationAction> buttons;
    const std::string& categoryIdentifier = notification.request.content.categoryIdentifier;
    for (const auto& category : categories_) {
      if (!categoryIdentifier.empty() && category.identifier == categoryIdentifier) {
        buttons = category.actions;
      }
    }
    Presentation presentation{std::move(notification), std::move(buttons), std::move(completion)};
    auto delegate = this->delegate();
    if (!delegate) {
      enqueue(std::move(presentation));
      return;
    }
    auto answered = std::make_shared<std::atomic<bool>>(false);
    std::weak_ptr<Core> weak = weak_from_this();
    const port::Notification offered = presentation.notification;
    auto handler = [weak, answered, presentation](port::PresentationOptions options) {
      if (answered->exchange(true)) {
        return;
      }
      if (auto core = weak.lock()) {
        core->loop_.post([core = core.get(), presentation, options]() mutable {
          if ((options & port::kPresentationOptionAlert) != 0) {
            core->enqueue(std::move(presentation));
          } else {
            complete(presentation.completion, std::nullopt);  // the delegate chose: no error
          }
        });
      }
    };
    callDelegate([delegate, offered, handler = std::move(handler)]() mutable {
      delegate->willPresentNotification(offered, std::move(handler));
    });
  }

  /// Runs a call into the delegate on the delegate queue, or here; whatever it throws is dropped.
  void callDelegate(std::function<void()> call) {
    auto guarded = [call = std::move(call)] {
      try {
        call();
      } catch (...) {  // NOLINT(bugprone-empty-catch): host code must not stop the loop
      }
    };
    if (options_.delegateQueue) {
      options_.delegateQueue->async(std::move(guarded));
    } else {
      guarded();
    }
  }

  // Notifications go to the server one at a time, in order, so that a request replacing an
  // earlier one knows the id the server gave it.
  void enqueue(Presentation presentation) {
    presentations_.push_back(std::move(presentation));
    if (!presenting_) {
      presentNext();
    }
  }

  void presentNext() {
    if (presentations_.empty()) {
      presenting_ = false;
      return;
    }
    presenting_ = true;
    auto presentation = std::make_shared<Presentation>(std::move(presentations_.front()));
    presentations_.pop_front();
    // Asks the server what it can show, then hands it the notification.
    withConnection(
        [this, presentation] {
          call("GetCapabilities", nullptr, "(as)",
               [this, presentation](GVariant* reply, const GError* error) {
                 if (error != nullptr) {
                   finish(*presentation, describeCallError(error));
                 } else {
                   notify(presentation, capabilities(reply));
                 }
               });
        },
        [this, presentation](const std::string& why) { finish(*presentation, why); });
  }

  void notify(const std::shared_ptr<Presentation>& presentation,
              const std::vector<std::string>& capabilities) {
    const auto& request = presentation->notification.request;
    std::uint32_t replacesId = 0;
    if (auto it = shownIds_.find(request.identifier);
        !request.identifier.empty() && it != shownIds_.end()) {
      replacesId = it->second;
    }
    call("Notify", notifyParameters(*presentation, replacesId, capabilities), "(u)",
         [this, presentation](GVariant* reply, const GError* error) {
           if (error != nullptr) {
             finish(*presentation, describeCallError(error));
             return;
           }
           std::uint32_t id = 0;
           g_variant_get(reply, "(u)", &id);
           remember(presentation->notification, id);
           failureLogged_ = false;
           finish(*presentation, std::nullopt);
         });
  }

  // Reports the outcome of one presentation (`failure`: why it was not shown) and starts the next.
  void finish(const Presentation& presentation, const std::optional<std::string>& failure) {
    if (failure) {
      if (!failureLogged_) {
        failureLogged_ = true;
        OrvantaLogger::error("Notifications can't be shown: " + *failure);
      }
      complete(presentation.completion, centreError(*failure));
    } else {
      complete(presentation.completion, std::nullopt);
    }
    presentNext();
  }

  static std::vector<std::string> capabilities(GVariant* reply) {
    std::vector<std::string> result;
    GVariant* list = g_variant_get_child_value(reply, 0);
    gsize count = 0;
    const gchar** items = g_variant_get_strv(list, &count);
    for (gsize i = 0; i < count; ++i) {
      result.emplace_back(items[i]);
    }
    g_free(static_cast<gpointer>(items));
    g_variant_unref(list);
    return result;
  }

  GVariant* notifyParameters(const Presentation& presentation, std::uint32_t replacesId,
                             const std::vector<std::string>& capabilities) const {
    const auto& content = presentation.notification.request.content;
    GVariantBuilder actions;
    g_variant_builder_init(&actions, variantType("as"));
    for (const auto& button : presentation.buttons) {
      g_variant_builder_add(&actions, "s", validUtf8(button.identifier).c_str());
      g_variant_builder_add(&actions, "s", validUtf8(button.title).c_str());
    }
    g_variant_builder_add(&actions, "s", std::string(port::kDefaultActionIdentifier).c_str());
    g_variant_builder_add(&actions, "s", validUtf8(options_.defaultActionLabel).c_str());

    GVariantBuilder hints;
    g_variant_builder_init(&hints, variantType("a{sv}"));
    if (contains(capabilities, "body-images") || contains(capabilities, "icon-static")) {
      auto attachment =
          std::find_if(content.attachments.begin(), content.attachments.end(),
                       [](const port::NotificationAttachment& each) { return !each.path.empty(); });
      if (attachment != content.attachments.end()) {
        if (gchar* uri = g_filename_to_uri(attachment->path.c_str(), nullptr, nullptr)) {
          g_variant_builder_add(&hints, "{sv}", "image-path", g_variant_new_string(uri));
          g_free(uri);
        }
      }
    }

    if (!options_.desktopEntry.empty()) {
      g_variant_builder_add(&hints, "{sv}", "desktop-entry",
                            g_variant_new_string(validUtf8(options_.desktopEntry).c_str()));
    }
    g_variant_builder_add(&hints, "{sv}", "urgency", g_variant_new_byte(kNormalUrgency));
    if (options_.residentNotifications) {
      g_variant_builder_add(&hints, "{sv}", "resident", g_variant_new_boolean(TRUE));
    }

    std::string body = validUtf8(content.body);
    if (contains(capabilities, "body-markup")) {
      gchar* escaped = g_markup_escape_text(body.c_str(), static_cast<gssize>(body.size()));
      body = escaped;
      g_free(escaped);
    }
    return g_variant_new("(susss@as@a{sv}i)", validUtf8(options_.applicationName).c_str(),
                         replacesId, "", validUtf8(content.title).c_str(), body.c_str(),
                         g_variant_builder_end(&actions), g_variant_builder_end(&hints), -1);
  }

  void remember(const port::Notification& notification, std::uint32_t id) {
    const std::string& identifier = notification.request.identifier;
    if (!identifier.empty()) {
      if (auto it = shownIds_.find(identifier); it != shownIds_.end() && it->second != id) {
        shown_.erase(it->second);
      }
      shownIds_[identifier] = id;
    }
    shown_[id] = notification;
  }

  void forget(std::uint32_t id) {
    auto it = shown_.find(id);
    if (it == shown_.end()) {
      return;
    }
    auto byIdentifier = shownIds_.find(it->second.request.identifier);
    if (byIdentifier != shownIds_.end() && byIdentifier->second == id) {
      shownIds_.erase(byIdentifier);
    }
    shown_.erase(it);
  }

  void forgetShown() {
    shown_.clear();
    shownIds_.clear();
  }

  // --- signals (loop thread) ---------------------------------------------------------------

  static void onSignal(GDBusConnection*, const gchar*, const gchar*, const gchar*,
                       const gchar* member, GVariant* parameters, gpointer data) {
    auto* core = static_cast<Core*>(data);
    const std::string signal = member;
    if (signal == "ActionInvoked" && g_variant_is_of_type(parameters, variantType("(us)"))) {
      std::uint32_t id = 0;
      const gchar* key = nullptr;
      g_variant_get(parameters, "(u&s)", &id, &key);
      core->actionInvoked(id, key);
    } else if (signal == "NotificationClosed" &&
               g_variant_is_of_type(parameters, variantType("(uu)"))) {
      std::uint32_t id = 0;
      std::uint32_t reason = 0;
      g_variant_get(parameters, "(uu)", &id, &reason);
      core->forget(id);
    } else if (signal == "NameOwnerChanged" &&
               g_variant_is_of_type(parameters, variantType("(sss)"))) {
      const gchar* name = nullptr;
      const gchar* oldOwner = nullptr;
      const gchar* newOwner = nullptr;
      g_variant_get(parameters, "(&s&s&s)", &name, &oldOwner, &newOwner);
      // A server that went away takes its notifications with it; a new one numbers afresh.
      if (oldOwner[0] != '\0') {
        core->forgetShown();
      }
    }
  }

  void actionInvoked(std::uint32_t id, const std::string& key) {
    auto it = shown_.find(id);
    if (it == shown_.end()) {
      return;  // not one of ours, or already closed
    }
    port::NotificationResponse response{
        it->second,
        key == port::kDefaultActionIdentifier ? std::string(port::kDefaultActionIdentifier) : key};
    if (!options_.residentNotifications) {
      // Handled: off the screen, as on a phone. Forgotten now, so a second press does nothing.
      forget(id);
      call("CloseNotification", g_variant_new("(u)", id), nullptr, [](GVariant*, const GError*) {});
    }
    auto delegate = this->delegate();
    if (!delegate) {
      return;
    }
    // Nothing waits for the response to be handled: the handler does nothing, however often it
    // is called.
    callDelegate(
        [delegate, response] { delegate->didReceiveNotificationResponse(response, [] {}); });
  }

  GioNotificationCenterOptions options_;
  mutable std::mutex delegateMutex_;
  std::weak_ptr<port::NotificationCenterDelegate> delegate_;

  // Loop thread only.
  BusCalls bus_;
  GDBusConnection* connection_ = nullptr;
  gulong closedHandler_ = 0;
  std::vector<guint> subscriptions_;
  bool connecting_ = false;
  std::vector<std::pair<std::function<void()>, Failure>> waiting_;
  std::vector<port::NotificationCategory> categories_;
  std::deque<Presentation> presentations_;  // waiting for the one under way
  bool presenting_ = false;
  std::map<std::uint32_t, port::Notification> shown_;  // by server id
  std::map<std::string, std::uint32_t> shownIds_;      // server id by request identifier
  bool failureLogged_ = false;                         // since the last notification shown

  // Last: the thread stops before the members it uses are destroyed.
  GlibLoopThread loop_;
};

class GioNotificationCenter final : public port::NotificationCenter {
 public:
  explicit GioNotificationCenter(GioNotificationCenterOptions options)
      : core_(std::make_shared<Core>(std::move(options))) {}
  ~GioNotificationCenter() override { core_->shutdown(); }
  GioNotificationCenter(const GioNotificationCenter&) = delete;
  GioNotificationCenter& operator=(const GioNotificationCenter&) = delete;

  void requestAuthorization(port::AuthorizationOptions,
                            AuthorizationCompletion completionHandler) override {
    core_->requestAuthorization(std::move(completionHandler));
  }
  void setNotificationCategories(std::vector<port::NotificationCategory> categories) override {
    core_->setNotificationCategories(std::move(categories));
  }
  void add(port::NotificationRequest request, AddCompletion completionHandler) override {
    core_->add(std::move(request), std::move(completionHandler));
  }
  void setDelegate(std::weak_ptr<port::NotificationCenterDelegate> delegate) override {
    core_->setDelegate(std::move(delegate));
  }
  std::shared_ptr<port::NotificationCenterDelegate> delegate() const override {
    return core_->delegate();
  }

 private:
  std::shared_ptr<Core> core_;
};

}  // namespace

std::shared_ptr<port::NotificationCenter> makeGioNotificationCenter(
    GioNotificationCenterOptions options) {
  return std::make_shared<GioNotificationCenter>(std::move(options));
}

}  // namespace orvanta::linux_platform
