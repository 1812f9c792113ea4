#include "testing/dbus/fake_notification_server.hpp"

#include <gio/gio.h>

#include <utility>

#include "linux/gio/glib_loop_thread.hpp"

namespace orvanta::testing {
namespace {

constexpr const char* kName = "org.freedesktop.Notifications";
constexpr const char* kPath = "/org/freedesktop/Notifications";
constexpr const char* kInterface = "org.freedesktop.Notifications";

constexpr const char* kIntrospection = R"(
<node>
  <interface name="org.freedesktop.Notifications">
    <method name="GetCapabilities">
      <arg direction="out" type="as" name="capabilities"/>
    </method>
    <method name="GetServerInformation">
      <arg direction="out" type="s" name="name"/>
      <arg direction="out" type="s" name="vendor"/>
      <arg direction="out" type="s" name="version"/>
      <arg direction="out" type="s" name="spec_version"/>
    </method>
    <method name="Notify">
      <arg direction="in" type="s" name="app_name"/>
      <arg direction="in" type="u" name="replaces_id"/>
      <arg direction="in" type="s" name="app_icon"/>
      <arg direction="in" type="s" name="summary"/>
      <arg direction="in" type="s" name="body"/>
      <arg direction="in" type="as" name="actions"/>
      <arg direction="in" type="a{sv}" name="hints"/>
      <arg direction="in" type="i" name="expire_timeout"/>
      <arg direction="out" type="u" name="id"/>
    </method>
    <method name="CloseNotification">
      <arg direction="in" type="u" name="id"/>
    </method>
    <signal name="NotificationClosed">
      <arg type="u" name="id"/>
      <arg type="u" name="reason"/>
    </signal>
    <signal name="ActionInvoked">
      <arg type="u" name="id"/>
      <arg type="s" name="action_key"/>
    </signal>
  </interface>
</node>)";

const GVariantType* variantType(const char* text) {
  return reinterpret_cast<const GVariantType*>(text);
}

}  // namespace

struct FakeNotificationServer::Impl {
  explicit Impl(std::vector<std::string> caps)
      : capabilities(std::move(caps)), loop("orvanta-fake-ns") {}

  void start(const std::string& address) {
    GError* error = nullptr;
    connection = g_dbus_connection_new_for_address_sync(
        address.c_str(),
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, &error);
    if (connection == nullptr) {
      finishStart(std::string("connect: ") + error->message);
      g_error_free(error);
      return;
    }
    GDBusNodeInfo* node = g_dbus_node_info_new_for_xml(kIntrospection, nullptr);
    static const GDBusInterfaceVTable kVTable = {&Impl::onMethodCall, nullptr, nullptr, {}};
    registration = g_dbus_connection_register_object(connection, kPath, node->interfaces[0],
                                                     &kVTable, this, nullptr, &error);
    g_dbus_node_info_unref(node);
    if (registration == 0) {
      finishStart(std::string("register: ") + error->message);
      g_error_free(error);
      return;
    }
    // DO_NOT_QUEUE (4): the name is ours now (answer 1) or the start failed.
    GVariant* reply = g_dbus_connection_call_sync(
        connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
        "RequestName", g_variant_new("(su)", kName, 4u), variantType("(u)"), G_DBUS_CALL_FLAGS_NONE,
        -1, nullptr, &error);
    if (reply == nullptr) {
      finishStart(std::string("RequestName: ") + error->message);
      g_error_free(error);
      return;
    }
    std::uint32_t answer = 0;
    g_variant_get(reply, "(u)", &answer);
    g_variant_unref(reply);
    finishStart(answer == 1 ? "" : "the name is owned by someone else");
  }

  void finishStart(std::string why) {
    std::lock_guard lock(mutex);
    failure = std::move(why);
    startFinished = true;
    changed.notify_all();
  }

  void stop() {
    if (connection == nullptr) {
      return;
    }
    if (registration != 0) {
      g_dbus_connection_unregister_object(connection, registration);
    }
    // Given back explicitly, so that the bus has released it when the destructor returns and a
    // new server can take it at once.
    GVariant* reply = g_dbus_connection_call_sync(
        connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
        "ReleaseName", g_variant_new("(s)", kName), variantType("(u)"), G_DBUS_CALL_FLAGS_NONE, -1,
        nullptr, nullptr);
    if (reply != nullptr) {
      g_variant_unref(reply);
    }
    g_dbus_connection_close_sync(connection, nullptr, nullptr);
    g_object_unref(connection);
    connection = nullptr;
  }

  static void onMethodCall(GDBusConnection*, const gchar*, const gchar*, const gchar*,
                           const gchar* method, GVariant* parameters,
                           GDBusMethodInvocation* invocation, gpointer data) {
    auto* self = static_cast<Impl*>(data);
    const std::string name = method;
    if (name == "GetCapabilities") {
      GVariantBuilder list;
      g_variant_builder_init(&list, variantType("as"));
      for (const auto& capability : self->capabilities) {
        g_variant_builder_add(&list, "s", capability.c_str());
      }
      {
        std::lock_guard lock(self->mutex);
        ++self->capabilityRequests;
      }
      g_dbus_method_invocation_return_value(invocation,
                                            g_variant_new("(@as)", g_variant_builder_end(&list)));
    } else if (name == "GetServerInformation") {
      g_dbus_method_invocation_return_value(
          invocation, g_variant_new("(ssss)", FakeNotificationServer::kServerName, "Orvanta tests",
                                    FakeNotificationServer::kServerVersion, "1.2"));
    } else if (name == "Notify") {
      self->notify(parameters, invocation);
    } else if (name == "CloseNotification" &&
               g_variant_is_of_type(parameters, variantType("(u)"))) {
      std::uint32_t id = 0;
      g_variant_get(parameters, "(u)", &id);
      g_dbus_method_invocation_return_value(invocation, nullptr);
      {
        std::lock_guard lock(self->mutex);
        self->closeRequests.push_back(id);
      }
      self->emit("NotificationClosed", g_variant_new("(uu)", id, 3u));  // closed by a call
      self->changed.notify_all();
    } else {
      g_dbus_method_invocation_return_dbus_error(
          invocation, "org.freedesktop.DBus.Error.UnknownMethod", "unknown method");
    }
  }

  void notify(GVariant* parameters, GDBusMethodInvocation* invocation) {
    RecordedNotification record;
    const gchar* appName = nullptr;
    const gchar* appIcon = nullptr;
    const gchar* summary = nullptr;
    const gchar* body = nullptr;
    gchar** actions = nullptr;
    GVariant* hints = nullptr;
    g_variant_get(parameters, "(&su&s&s&s^as@a{sv}i)", &appName, &record.replacesId, &appIcon,
                  &summary, &body, &actions, &hints, &record.expireTimeout);
    record.appName = appName;
    record.summary = summary;
    record.body = body;
    for (gchar** action = actions; *action != nullptr; ++action) {
      record.actions.emplace_back(*action);
    }
    g_strfreev(actions);
    GVariantIter iter;
    g_variant_iter_init(&iter, hints);
    const gchar* key = nullptr;
    GVariant* value = nullptr;
    while (g_variant_iter_next(&iter, "{&sv}", &key, &value)) {
      if (g_variant_is_of_type(value, variantType("s"))) {
        record.hints[key] = g_variant_get_string(value, nullptr);
      } else {
        gchar* text = g_variant_print(value, FALSE);
        record.hints[key] = text;
        g_free(text);
      }
      g_variant_unref(value);
    }
    g_variant_unref(hints);

    {
      std::lock_guard lock(mutex);
      record.id =
          (record.replacesId != 0 && record.replacesId < nextId) ? record.replacesId : nextId++;
    }
    // Answer first, record second: see the class comment.
    g_dbus_method_invocation_return_value(invocation, g_variant_new("(u)", record.id));
    {
      std::lock_guard lock(mutex);
      recorded.push_back(std::move(record));
    }
    changed.notify_all();
  }

  void emit(const char* signal, GVariant* parameters) const {
    if (connection == nullptr) {
      g_variant_unref(g_variant_ref_sink(parameters));
      return;
    }
    g_dbus_connection_emit_signal(connection, nullptr, kPath, kInterface, signal, parameters,
                                  nullptr);
  }

  const std::vector<std::string> capabilities;
  GDBusConnection* connection = nullptr;  // set on the server thread before `started`
  guint registration = 0;

  mutable std::mutex mutex;
  mutable std::condition_variable changed;
  bool startFinished = false;
  std::string failure;
  std::uint32_t nextId = 1;
  std::vector<RecordedNotification> recorded;
  std::size_t capabilityRequests = 0;
  std::vector<std::uint32_t> closeRequests;

  linux_platform::GlibLoopThread loop;  // last: stops before the rest goes
};

FakeNotificationServer::FakeNotificationServer(const std::string& busAddress,
                                               std::vector<std::string> capabilities)
    : impl_(std::make_shared<Impl>(std::move(capabilities))) {
  Impl* impl = impl_.get();
  impl->loop.post([impl, busAddress] { impl->start(busAddress); });
  std::unique_lock lock(impl->mutex);
  if (!impl->changed.wait_for(lock, kWaitTimeout, [impl] { return impl->startFinished; })) {
    impl->failure = "the server did not start in time";
  }
}

FakeNotificationServer::~FakeNotificationServer() {
  Impl* impl = impl_.get();
  impl->loop.stop([impl] { impl->stop(); });
}

bool FakeNotificationServer::started() const {
  std::lock_guard lock(impl_->mutex);
  return impl_->startFinished && impl_->failure.empty();
}

std::string FakeNotificationServer::failure() const {
  std::lock_guard lock(impl_->mutex);
  return impl_->failure;
}

std::vector<RecordedNotification> FakeNotificationServer::notifications() const {
  std::lock_guard lock(impl_->mutex);
  return impl_->recorded;
}

bool FakeNotificationServer::waitFor(
    const std::function<bool(const std::vector<RecordedNotification>&)>& predicate,
    std::chrono::milliseconds timeout) const {
  std::unique_lock lock(impl_->mutex);
  return impl_->changed.wait_for(lock, timeout, [&] { return predicate(impl_->recorded); });
}

bool FakeNotificationServer::waitForNotifications(std::size_t count,
                                                  std::chrono::milliseconds timeout) const {
  return waitFor([count](const auto& recorded) { return recorded.size() >= count; }, timeout);
}

std::size_t FakeNotificationServer::capabilityRequests() const {
  std::lock_guard lock(impl_->mutex);
  return impl_->capabilityRequests;
}

std::vector<std::uint32_t> FakeNotificationServer::closeRequests() const {
  std::lock_guard lock(impl_->mutex);
  return impl_->closeRequests;
}

bool FakeNotificationServer::waitForCloseRequests(std::size_t count,
                                                  std::chrono::milliseconds timeout) const {
  std::unique_lock lock(impl_->mutex);
  return impl_->changed.wait_for(lock, timeout,
                                 [&] { return impl_->closeRequests.size() >= count; });
}

void FakeNotificationServer::emitActionInvoked(std::uint32_t id, const std::string& key) {
  impl_->emit("ActionInvoked", g_variant_new("(us)", id, key.c_str()));
}

void FakeNotificationServer::emitNotificationClosed(std::uint32_t id, std::uint32_t reason) {
  impl_->emit("NotificationClosed", g_variant_new("(uu)", id, reason));
}

}  // namespace orvanta::testing
