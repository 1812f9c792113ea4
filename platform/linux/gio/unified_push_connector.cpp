#include "linux/gio/unified_push_connector.hpp"

#include <gio/gio.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "core/json_coding.hpp"
#include "core/logger.hpp"
#include "core/uuid.hpp"
#include "linux/gio/distributor_watch.hpp"
#include "linux/gio/gio_bus.hpp"
#include "linux/gio/glib_loop_thread.hpp"
#include "linux/web_push_crypto.hpp"
#include "models/url.hpp"
#include "push/remote_push_message.hpp"

namespace orvanta::linux_platform {
namespace {

constexpr const char* kConnectorPath = "/org/unifiedpush/Connector";
constexpr const char* kDistributorPath = "/org/unifiedpush/Distributor";
constexpr const char* kDistributor1 = "org.unifiedpush.Distributor1";
constexpr const char* kDistributor2 = "org.unifiedpush.Distributor2";
constexpr std::string_view kDistributorPrefix = "org.unifiedpush.Distributor.";
constexpr const char* kSucceeded = "REGISTRATION_SUCCEEDED";
// The keys' fields in the kept registration: the private scalar and the authentication secret,
// in URL-safe base64 (the public key follows from the scalar).
constexpr const char* kPrivateKeyField = "privateKey";
constexpr const char* kAuthSecretField = "authSecret";

constexpr const char* kIntrospection = R"(
<node>
  <interface name="org.unifiedpush.Connector1">
    <method name="Message">
      <arg direction="in" type="s" name="token"/>
      <arg direction="in" type="ay" name="message"/>
      <arg direction="in" type="s" name="id"/>
      <annotation name="org.freedesktop.DBus.Method.NoReply" value="true"/>
    </method>
    <method name="NewEndpoint">
      <arg direction="in" type="s" name="token"/>
      <arg direction="in" type="s" name="endpoint"/>
      <annotation name="org.freedesktop.DBus.Method.NoReply" value="true"/>
    </method>
    <method name="Unregistered">
      <arg direction="in" type="s" name="token"/>
      <annotation name="org.freedesktop.DBus.Method.NoReply" value="true"/>
    </method>
  </interface>
</node>)";

using Registered = std::function<void(std::vector<std::uint8_t>)>;
using Failed = std::function<void(Error)>;

Error failure(const std::string& why) {
  return Error::custom(why);
}

std::string strippedMessage(const GError* error) {
  GError* copy = g_error_copy(error);
  g_dbus_error_strip_remote_error(copy);
  std::string message = copy->message;
  g_error_free(copy);
  return message;
}

// A distributor that does not serve version 2 answers a call on it so.
bool lacksInterface(const GError* error) {
  return g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_UNKNOWN_METHOD) ||
         g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_UNKNOWN_INTERFACE) ||
         g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_UNKNOWN_OBJECT);
}

std::string withPrefix(const std::string& name) {
  if (name.empty() || name.compare(0, kDistributorPrefix.size(), kDistributorPrefix) == 0) {
    return name;
  }
  return std::string(kDistributorPrefix) + name;
}

bool isEndpoint(const std::string& text) {
  if (text.size() > kMaxPushTokenEndpointBytes) {
    return false;
  }
  auto url = Url::parse(text);
  return url && (url->scheme() == "http" || url->scheme() == "https");
}

// A push in clear is a JSON object. An encrypted one begins with its random salt, which may
// happen to be a "{" (one push in 256) or blank, or even a whole JSON object followed by the
// header's zero bytes: only the whole text tells them apart.
bool isPlainPush(std::string_view bytes) {
  const auto first = bytes.find_first_not_of(" \t\r\n");
  return first != std::string_view::npos && bytes[first] == '{' && detail::isWellFormedJson(bytes);
}

// The VAPID key an application server publishes: a P-256 point, uncompressed, in URL-safe base64.
bool isVapidKey(const std::string& text) {
  auto bytes = base64UrlDecode(text);
  return bytes && bytes->size() == kWebPushPublicKeyBytes && (*bytes)[0] == 0x04;
}

// The registration kept in the secure store.
struct Record {
  std::string token;
  std::string distributor;
  std::string endpoint;
  std::optional<WebPushKeys> keys;  // none in a record of an earlier version

  bool operator==(const Record& other) const {
    const auto secrets = [](const std::optional<WebPushKeys>& held) {
      return held ? held->privateKey() + held->authSecret() : std::string();
    };
    return token == other.token && distributor == other.distributor && endpoint == other.endpoint &&
           secrets(keys) == secrets(other.keys);
  }
};

class Core : public std::enable_shared_from_this<Core> {
 public:
  explicit Core(UnifiedPushConnectorOptions options)
      : options_(std::move(options)), loop_("orvanta-upush") {}

  Core(const Core&) = delete;
  Core& operator=(const Core&) = delete;

  void registerForRemoteNotifications(Registered registered, Failed failed) {
    // Posted work captures `this`: it runs only while the loop runs, and the loop ends first.
    loop_.post([this, registered = std::move(registered), failed = std::move(failed)]() mutable {
      startRegistration(std::move(registered), std::move(failed));
    });
  }

  void unregisterForRemoteNotifications() {
    loop_.post([this] { unregister(); });
  }

  void shutdown() {
    auto self = shared_from_this();
    loop_.stop([self] { self->closeOnLoop(); },
               [self] { return self->bus_.settled() && self->watch_.settled(); });
  }

 private:
  using CallDone = BusCalls::CallDone;

  // --- registration (loop thread) ----------------------------------------------------------

  void startRegistration(Registered registered, Failed failed) {
    latestRegistered_ = registered;
    waiters_.emplace_back(std::move(registered), std::move(failed));
    if (registering_) {
      return;  // the registration under way answers every waiter
    }
    const std::string& id = options_.applicationId;
    if (id.empty()) {
      return fail(
          "No application id to receive pushes under: give the platform the application's "
          "reverse-DNS id (LinuxPlatformOptions::applicationId)");
    }
    if (!g_dbus_is_name(id.c_str()) || g_dbus_is_unique_name(id.c_str()) ||
        id.find('.') == std::string::npos) {
      return fail("The application id \"" + id + "\" is not a reverse-DNS name");
    }
    if (!options_.vapidPublicKey.empty() && !isVapidKey(options_.vapidPublicKey)) {
      return fail("The VAPID public key \"" + options_.vapidPublicKey +
                  "\" is not a P-256 public key (65 bytes, uncompressed, in URL-safe base64)");
    }
    loadRecord();
    if (!record_.keys) {
      // A first registration, or one kept by a version without encrypted pushes.
      record_.keys = WebPushKeys::generate();
      if (!record_.keys) {
        return fail("Could not make the keys for encrypted pushes (OpenSSL's random generator)");
      }
      saveRecord();
    }
    registering_ = true;
    registerReplied_ = false;
    const auto attempt = ++attempt_;
    withConnection([this, attempt] { listDistributors(attempt); });
  }

  // Ends the registration under way: every waiter hears `error`. A distributor that was only
  // tried is not remembered.
  void fail(const std::string& why) {
    endRegistration();
    record_ = saved_;
    if (connection_ != nullptr) {
      watch_.watch(connection_, record_.distributor);
    }
    auto waiters = std::exchange(waiters_, {});
    for (auto& [registered, failed] : waiters) {
      failed(failure(why));
    }
  }

  void succeed() {
    endRegistration();
    saveRecord();
    lastReported_ = record_.endpoint;
    auto waiters = std::exchange(waiters_, {});
    const std::vector<std::uint8_t> token = pushToken(record_.endpoint, *record_.keys);
    for (auto& [registered, failed] : waiters) {
      registered(token);
    }
  }

  void endRegistration() {
    registering_ = false;
    registerReplied_ = false;
    if (endpointTimer_ != nullptr) {
      g_source_destroy(endpointTimer_);
      g_source_unref(endpointTimer_);
      endpointTimer_ = nullptr;
    }
  }

  // Each step of a registration goes on only while that registration is the one under way.
  bool current(std::uint64_t attempt) const { return registering_ && attempt == attempt_; }

  void listDistributors(std::uint64_t attempt) {
    auto names = std::make_shared<std::set<std::string>>();
    auto answers = std::make_shared<int>(0);
    for (const char* method : {"ListNames", "ListActivatableNames"}) {
      call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", method, nullptr,
           "(as)", [this, attempt, names, answers](GVariant* reply, const GError*) {
             if (reply != nullptr) {
               GVariant* list = g_variant_get_child_value(reply, 0);
               gsize count = 0;
               const gchar** items = g_variant_get_strv(list, &count);
               for (gsize i = 0; i < count; ++i) {
                 const std::string name = items[i];
                 if (name.compare(0, kDistributorPrefix.size(), kDistributorPrefix) == 0 &&
                     name.size() > kDistributorPrefix.size()) {
                   names->insert(name);
                 }
               }
               g_free(static_cast<gpointer>(items));
               g_variant_unref(list);
             }
             if (++*answers == 2 && current(attempt)) {
               chooseDistributor(attempt, *names);
             }
           });
    }
  }

  void chooseDistributor(std::uint64_t attempt, const std::set<std::string>& available) {
    std::string chosen;
    const char* environment = std::getenv(kDistributorEnvironmentVariable);
    std::string named = withPrefix(environment != nullptr ? environment : "");
    if (named.empty()) {
      named = withPrefix(options_.distributor);
    }
    if (!named.empty()) {
      if (available.count(named) == 0) {
        return fail("The chosen push distributor " + named + " is not on the session D-Bus");
      }
      chosen = named;
    } else if (!record_.distributor.empty() && available.count(record_.distributor) != 0) {
      chosen = record_.distributor;
    } else if (available.size() == 1) {
      chosen = *available.begin();
    } else if (available.empty()) {
      return fail(
          "No push distributor on the session D-Bus (install one, or run orvanta-distributor)");
    } else {
      std::string list;
      for (const auto& name : available) {
        list += (list.empty() ? "" : ", ") + name;
      }
      return fail("Several push distributors on the session D-Bus (" + list +
                  "): choose one with " + kDistributorEnvironmentVariable);
    }
    if (chosen != record_.distributor) {
      record_.distributor = chosen;  // kept once the distributor accepted the registration
      record_.endpoint.clear();
      lastReported_.clear();
    }
    // Before Register goes out: the distributor's NewEndpoint may come before its answer.
    watch_.watch(connection_, chosen);
    registerWith(attempt, chosen);
  }

  void registerWith(std::uint64_t attempt, const std::string& distributor) {
    GVariantBuilder arguments;
    g_variant_builder_init(&arguments, variantType("a{sv}"));
    g_variant_builder_add(&arguments, "{sv}", "service",
                          g_variant_new_string(options_.applicationId.c_str()));
    g_variant_builder_add(&arguments, "{sv}", "token", g_variant_new_string(record_.token.c_str()));
    g_variant_builder_add(&arguments, "{sv}", "description",
                          g_variant_new_string(options_.description.c_str()));
    if (!options_.vapidPublicKey.empty()) {
      g_variant_builder_add(&arguments, "{sv}", "vapid",
                            g_variant_new_string(options_.vapidPublicKey.c_str()));
    }
    call(distributor.c_str(), kDistributorPath, kDistributor2, "Register",
         g_variant_new("(@a{sv})", g_variant_builder_end(&arguments)), "(a{sv})",
         [this, attempt, distributor](GVariant* reply, const GError* error) {
           if (!current(attempt)) {
             return;
           }
           if (error != nullptr && lacksInterface(error)) {
             registerWithVersion1(attempt, distributor);
             return;
           }
           version2_ = true;
           if (error != nullptr) {
             return fail(callFailure(distributor, error));
           }
           GVariant* map = g_variant_get_child_value(reply, 0);
           const auto result = lookup(map, "result");
           const auto reason = lookup(map, "reason");
           g_variant_unref(map);
           registrationAnswered(distributor, result.value_or(""), reason.value_or(""));
         });
  }

  void registerWithVersion1(std::uint64_t attempt, const std::string& distributor) {
    call(distributor.c_str(), kDistributorPath, kDistributor1, "Register",
         g_variant_new("(sss)", options_.applicationId.c_str(), record_.token.c_str(),
                       options_.description.c_str()),
         "(ss)", [this, attempt, distributor](GVariant* reply, const GError* error) {
           if (!current(attempt)) {
             return;
           }
           version2_ = false;
           if (error != nullptr) {
             return fail(callFailure(distributor, error));
           }
           if (!options_.vapidPublicKey.empty()) {
             OrvantaLogger::info("The push distributor " + distributor +
                                 " serves only Distributor1, which carries no VAPID key: its "
                                 "push server does not check who signs the pushes");
           }
           const gchar* result = nullptr;
           const gchar* reason = nullptr;
           g_variant_get(reply, "(&s&s)", &result, &reason);
           registrationAnswered(distributor, result, reason);
         });
  }

  static std::optional<std::string> lookup(GVariant* map, const char* key) {
    GVariant* value = g_variant_lookup_value(map, key, G_VARIANT_TYPE_STRING);
    if (value == nullptr) {
      return std::nullopt;
    }
    std::string text = g_variant_get_string(value, nullptr);
    g_variant_unref(value);
    return text;
  }

  static std::string callFailure(const std::string& distributor, const GError* error) {
    return "The push distributor " + distributor + " did not answer the registration (" +
           strippedMessage(error) + ")";
  }

  void registrationAnswered(const std::string& distributor, const std::string& result,
                            const std::string& reason) {
    if (result != kSucceeded) {
      return fail("The push distributor " + distributor + " refused the registration" +
                  (reason.empty() ? std::string() : ": " + reason));
    }
    registerReplied_ = true;
    if (!record_.endpoint.empty()) {
      return succeed();
    }
    // The endpoint comes in a NewEndpoint call of its own.
    endpointTimer_ = g_timeout_source_new(
        static_cast<guint>(std::max<std::int64_t>(0, options_.endpointTimeout.count())));
    g_source_set_callback(
        endpointTimer_,
        [](gpointer data) -> gboolean {
          auto* core = static_cast<Core*>(data);
          g_source_unref(core->endpointTimer_);
          core->endpointTimer_ = nullptr;
          core->fail("The push distributor " + core->record_.distributor +
                     " accepted the registration but sent no endpoint");
          return G_SOURCE_REMOVE;
        },
        this, nullptr);
    g_source_attach(endpointTimer_, g_main_context_get_thread_default());
  }

  void unregister() {
    if (registering_) {
      fail("The registration was given up");
    }
    connected_ = nullptr;
    if (connection_ != nullptr && !record_.distributor.empty()) {
      GVariant* parameters = nullptr;
      if (version2_) {
        GVariantBuilder arguments;
        g_variant_builder_init(&arguments, variantType("a{sv}"));
        g_variant_builder_add(&arguments, "{sv}", "token",
                              g_variant_new_string(record_.token.c_str()));
        parameters = g_variant_new("(@a{sv})", g_variant_builder_end(&arguments));
      } else {
        parameters = g_variant_new("(s)", record_.token.c_str());
      }
      call(record_.distributor.c_str(), kDistributorPath, version2_ ? kDistributor2 : kDistributor1,
           "Unregister", parameters, nullptr, [](GVariant*, const GError*) {});
    }
    // Forgotten even when this run never registered: the next registration starts afresh, with
    // new keys.
    loadRecord();
    record_.distributor.clear();
    record_.endpoint.clear();
    record_.keys.reset();
    saveRecord();
    lastReported_.clear();
    latestRegistered_ = nullptr;
  }

  // --- the connector's methods (loop thread) -----------------------------------------------

  // Only the distributor's calls get through: see DistributorWatch.
  static void onMethodCall(GDBusConnection*, const gchar*, const gchar*, const gchar*,
                           const gchar* method, GVariant*, GDBusMethodInvocation* invocation,
                           gpointer data) {
    auto* core = static_cast<Core*>(data);
    core->watch_.admit(invocation, [core, name = std::string(method)](GDBusMethodInvocation* call) {
      core->handleCall(name, g_dbus_method_invocation_get_parameters(call));
    });
  }

  void handleCall(const std::string& name, GVariant* parameters) {
    if (name == "Message") {
      const gchar* token = nullptr;
      const gchar* id = nullptr;
      GVariant* bytes = nullptr;
      g_variant_get(parameters, "(&s@ay&s)", &token, &bytes, &id);
      gsize size = 0;
      const auto* content = static_cast<const char*>(g_variant_get_fixed_array(bytes, &size, 1));
      message(token, std::string_view(content != nullptr ? content : "", size));
      g_variant_unref(bytes);
    } else if (name == "NewEndpoint") {
      const gchar* token = nullptr;
      const gchar* endpoint = nullptr;
      g_variant_get(parameters, "(&s&s)", &token, &endpoint);
      newEndpoint(token, endpoint);
    } else if (name == "Unregistered") {
      const gchar* token = nullptr;
      g_variant_get(parameters, "(&s)", &token);
      unregistered(token);
    }
  }

  bool ours(const std::string& token) const { return !token.empty() && token == record_.token; }

  void message(const std::string& token, std::string_view bytes) {
    if (!ours(token) || !options_.onPush) {
      return;
    }
    std::optional<std::string> plaintext;
    if (record_.keys) {
      // The cap first: nothing bigger is decrypted, so nothing bigger is allocated.
      if (bytes.size() > kMaxRemotePushBytes) {
        return dropRemotePushMessage(std::to_string(bytes.size()) + " bytes, more than the " +
                                     std::to_string(kMaxRemotePushBytes) + " a push may have");
      }
      if (options_.acceptPlainMessages && isPlainPush(bytes)) {
        plaintext = std::string(bytes);
      } else {
        auto decrypted = record_.keys->decrypt(bytes);
        if (!decrypted.plaintext) {
          return dropRemotePushMessage(
              isPlainPush(bytes) ? "not encrypted (this registration takes encrypted pushes only)"
                                 : decrypted.error);
        }
        plaintext = std::move(decrypted.plaintext);
      }
      bytes = *plaintext;
    }
    if (auto userInfo = remotePushUserInfo(bytes)) {
      try {
        options_.onPush(std::move(*userInfo));
      } catch (...) {  // NOLINT(bugprone-empty-catch): a push must not stop the loop
      }
    }
  }

  void newEndpoint(const std::string& token, const std::string& endpoint) {
    if (!ours(token)) {
      return;
    }
    if (!isEndpoint(endpoint)) {
      OrvantaLogger::error("The push distributor sent an endpoint that is not a URL; ignored");
      return;
    }
    if (endpoint != record_.endpoint) {
      record_.endpoint = endpoint;
      saveRecord();
    }
    if (registering_) {
      if (registerReplied_) {
        succeed();
      }
      return;  // the answer to Register completes it
    }
    if (endpoint != lastReported_ && latestRegistered_ && record_.keys) {
      // The distributor moved the application to a new endpoint; the keys stay.
      lastReported_ = endpoint;
      latestRegistered_(pushToken(endpoint, *record_.keys));
    }
  }

  void unregistered(const std::string& token) {
    if (!ours(token)) {
      return;
    }
    OrvantaLogger::info("The push distributor ended this application's registration");
    record_.endpoint.clear();
    saveRecord();
    lastReported_.clear();
  }

  // --- the kept registration ---------------------------------------------------------------

  void loadRecord() {
    if (!record_.token.empty()) {
      return;
    }
    bool damagedKeys = false;
    if (options_.store) {
      if (auto bytes = options_.store->read(kUnifiedPushAccount)) {
        const auto json = nlohmann::json::parse(*bytes, nullptr, false);
        const auto text = [&json](const char* key) {
          auto found = json.is_object() ? json.find(key) : json.end();
          return found != json.end() && found->is_string() ? found->get<std::string>()
                                                           : std::string();
        };
        record_ = Record{text("token"), text("distributor"), text("endpoint"), std::nullopt};
        const bool hasKeys = json.is_object() &&
                             (json.contains(kPrivateKeyField) || json.contains(kAuthSecretField));
        if (hasKeys && !record_.token.empty()) {
          const auto privateKey = base64UrlDecode(text(kPrivateKeyField));
          const auto secret = base64UrlDecode(text(kAuthSecretField));
          if (privateKey && secret) {
            record_.keys = WebPushKeys::fromSecrets(*privateKey, *secret);
          }
          damagedKeys = !record_.keys;
        }
      }
    }
    saved_ = record_;
    if (record_.token.empty()) {
      record_ = Record{makeUuidString(), {}, {}, std::nullopt};
      saveRecord();
    } else if (damagedKeys) {
      // Pushes encrypted to the old keys can't be read any more: the next registration hands
      // the service the new ones.
      OrvantaLogger::warning(
          "The keys for encrypted pushes kept with the push registration are damaged; made new "
          "ones");
      record_.keys = WebPushKeys::generate();
      saveRecord();
    }
  }

  void saveRecord() {
    if (record_ == saved_) {
      return;
    }
    saved_ = record_;
    if (!options_.store) {
      return;
    }
    nlohmann::json json{{"token", record_.token},
                        {"distributor", record_.distributor},
                        {"endpoint", record_.endpoint}};
    if (record_.keys) {
      json[kPrivateKeyField] = base64UrlEncode(record_.keys->privateKey());
      json[kAuthSecretField] = base64UrlEncode(record_.keys->authSecret());
    }
    options_.store->remove(kUnifiedPushAccount);
    if (options_.store->add(kUnifiedPushAccount, json.dump()) != port::SecureStoreStatus::success) {
      OrvantaLogger::error("Could not keep the push registration; the next start registers anew");
    }
  }

  // --- the bus connection (loop thread) ----------------------------------------------------

  void withConnection(std::function<void()> ready) {
    if (connection_ != nullptr) {
      ready();
      return;
    }
    connected_ = std::move(ready);
    bus_.openConnection(options_.busAddress,
                        [this](GDBusConnection* connection, const std::string& error) {
                          if (connection == nullptr) {
                            return fail("No session D-Bus (" + error + ")");
                          }
                          serve(connection);
                        });
  }

  // Serves the connector's object and takes the application's name.
  void serve(GDBusConnection* connection) {
    GError* error = nullptr;
    GDBusNodeInfo* node = g_dbus_node_info_new_for_xml(kIntrospection, nullptr);
    static const GDBusInterfaceVTable kVTable = {&Core::onMethodCall, nullptr, nullptr, {}};
    const guint object = g_dbus_connection_register_object(
        connection, kConnectorPath, node->interfaces[0], &kVTable, this, nullptr, &error);
    g_dbus_node_info_unref(node);
    if (object == 0) {
      const std::string why =
          std::string("Could not serve the push connector (") + error->message + ")";
      g_error_free(error);
      bus_.closeConnection(connection);
      return fail(why);
    }
    connection_ = connection;
    object_ = object;
    closedHandler_ =
        g_signal_connect_data(connection_, "closed", reinterpret_cast<GCallback>(&Core::onClosed),
                              this, nullptr, static_cast<GConnectFlags>(0));
    // DO_NOT_QUEUE (4): 1 the name is ours now, 4 it was already.
    call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "RequestName",
         g_variant_new("(su)", options_.applicationId.c_str(), 4u), "(u)",
         [this](GVariant* reply, const GError* failed) {
           guint32 answer = 0;
           if (reply != nullptr) {
             g_variant_get(reply, "(u)", &answer);
           }
           if (answer != 1 && answer != 4) {
             const std::string why =
                 failed != nullptr
                     ? "Could not take the name " + options_.applicationId +
                           " on the session D-Bus (" + strippedMessage(failed) + ")"
                     : "Another program owns " + options_.applicationId +
                           " on the session D-Bus (is the application running twice?)";
             dropConnection();
             return fail(why);
           }
           // A restarted application hears its distributor before it registers again.
           watch_.watch(connection_, record_.distributor);
           if (auto ready = std::exchange(connected_, nullptr)) {
             ready();
           }
         });
  }

  static void onClosed(GDBusConnection*, gboolean, GError*, gpointer data) {
    auto* core = static_cast<Core*>(data);
    core->dropConnection();
    if (core->registering_) {
      core->fail("The session D-Bus connection was closed");
    }
  }

  void dropConnection() {
    if (connection_ == nullptr) {
      return;
    }
    watch_.stop();
    g_dbus_connection_unregister_object(connection_, object_);
    object_ = 0;
    g_signal_handler_disconnect(connection_, closedHandler_);
    closedHandler_ = 0;
    bus_.closeConnection(std::exchange(connection_, nullptr));
  }

  void closeOnLoop() {
    bus_.close();
    endRegistration();
    waiters_.clear();
    latestRegistered_ = nullptr;
    connected_ = nullptr;
    dropConnection();
  }

  // One method call; `done` runs on the loop thread unless the connector is closing.
  void call(const char* destination, const char* path, const char* interface, const char* method,
            GVariant* parameters, const char* replyType, CallDone done) {
    bus_.call(connection_, destination, path, interface, method, parameters, replyType,
              std::move(done));
  }

  const UnifiedPushConnectorOptions options_;

  // Loop thread only.
  BusCalls bus_;
  DistributorWatch watch_{bus_};  // who may call the connector
  GDBusConnection* connection_ = nullptr;
  guint object_ = 0;
  gulong closedHandler_ = 0;
  std::function<void()> connected_;  // what runs once the name is ours
  Record record_;
  Record saved_;  // as the store has it
  bool registering_ = false;
  bool registerReplied_ = false;  // the distributor accepted the registration under way
  std::uint64_t attempt_ = 0;     // registrations started
  bool version2_ = false;         // the distributor took the registration through Distributor2
  GSource* endpointTimer_ = nullptr;
  std::vector<std::pair<Registered, Failed>> waiters_;
  Registered latestRegistered_;  // told when the endpoint moves later
  std::string lastReported_;     // the endpoint `registered` was last given

  // Last: the thread stops before the members it uses are destroyed.
  GlibLoopThread loop_;
};

class UnifiedPushConnector final : public RemoteNotificationTransport {
 public:
  explicit UnifiedPushConnector(UnifiedPushConnectorOptions options)
      : core_(std::make_shared<Core>(std::move(options))) {}
  ~UnifiedPushConnector() override { core_->shutdown(); }
  UnifiedPushConnector(const UnifiedPushConnector&) = delete;
  UnifiedPushConnector& operator=(const UnifiedPushConnector&) = delete;

  void registerForRemoteNotifications(Registered registered, Failed failed) override {
    core_->registerForRemoteNotifications(std::move(registered), std::move(failed));
  }
  void unregisterForRemoteNotifications() override { core_->unregisterForRemoteNotifications(); }

 private:
  std::shared_ptr<Core> core_;
};

}  // namespace

std::shared_ptr<RemoteNotificationTransport> makeUnifiedPushConnector(
    UnifiedPushConnectorOptions options) {
  return std::make_shared<UnifiedPushConnector>(std::move(options));
}

}  // namespace orvanta::linux_platform
