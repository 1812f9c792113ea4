#include "orvanta_distributor/distributor.hpp"

#include <arpa/inet.h>
#include <gio/gio.h>
#include <microhttpd.h>
#include <netinet/in.h>
#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/params.h>
#include <pthread.h>

#include <nlohmann/json.hpp>

#include <cctype>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <stdexcept>
#include <string_view>
#include <thread>
#include <utility>

namespace orvanta::distributor {
namespace {

constexpr const char* kDistributorPath = "/org/unifiedpush/Distributor";
constexpr const char* kConnectorPath = "/org/unifiedpush/Connector";
constexpr const char* kConnectorInterface = "org.unifiedpush.Connector1";
constexpr std::string_view kEndpointPath = "/up/";

// Connections served at once, and how long one may stay idle: a local program cannot hold them
// all for long.
constexpr unsigned kMaxConnections = 64;
constexpr unsigned kIdleTimeoutSeconds = 10;

constexpr const char* kSucceeded = "REGISTRATION_SUCCEEDED";
constexpr const char* kFailed = "REGISTRATION_FAILED";

constexpr const char* kIntrospection = R"(
<node>
  <interface name="org.unifiedpush.Distributor1">
    <method name="Register">
      <arg direction="in" type="s" name="serviceName"/>
      <arg direction="in" type="s" name="token"/>
      <arg direction="in" type="s" name="description"/>
      <arg direction="out" type="s" name="result"/>
      <arg direction="out" type="s" name="reason"/>
    </method>
    <method name="Unregister">
      <arg direction="in" type="s" name="token"/>
    </method>
  </interface>
  <interface name="org.unifiedpush.Distributor2">
    <method name="Register">
      <arg direction="in" type="a{sv}" name="args"/>
      <arg direction="out" type="a{sv}" name="result"/>
    </method>
    <method name="Unregister">
      <arg direction="in" type="a{sv}" name="args"/>
    </method>
  </interface>
</node>)";

const GVariantType* variantType(const char* text) {
  return reinterpret_cast<const GVariantType*>(text);  // a type is its type string
}

std::string fullName(const std::string& name) {
  const std::string_view prefix = kNamePrefix;
  return name.compare(0, prefix.size(), prefix) == 0 ? name : std::string(prefix) + name;
}

// A string member of a version-2 argument map; none when absent or not a string.
std::optional<std::string> mapString(GVariant* map, const char* key) {
  GVariant* value = g_variant_lookup_value(map, key, G_VARIANT_TYPE_STRING);
  if (value == nullptr) {
    return std::nullopt;
  }
  std::string text = g_variant_get_string(value, nullptr);
  g_variant_unref(value);
  return text;
}

// --- VAPID (RFC 8292) ---------------------------------------------------------------------------

// URL-safe base64, padding tolerated; none for other text.
std::optional<std::string> unbase64(std::string_view text) {
  while (!text.empty() && text.back() == '=') {
    text.remove_suffix(1);
  }
  std::string bytes;
  unsigned buffer = 0;
  int bits = 0;
  for (const char c : text) {
    const char* alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
    const char* found = c != '\0' ? std::strchr(alphabet, c) : nullptr;
    if (found == nullptr) {
      return std::nullopt;
    }
    buffer = (buffer << 6) | static_cast<unsigned>(found - alphabet);
    bits += 6;
    if (bits >= 8) {
      bits -= 8;
      bytes.push_back(static_cast<char>((buffer >> bits) & 0xFF));
    }
  }
  return bits >= 6 ? std::nullopt : std::optional<std::string>(std::move(bytes));
}

// The application server's P-256 public key from its 65-byte point; null when it is none.
EVP_PKEY* vapidKey(const std::string& point) {
  if (point.size() != 65 || point[0] != '\x04') {
    return nullptr;
  }
  char group[] = "prime256v1";
  std::string copy = point;
  OSSL_PARAM params[] = {
      OSSL_PARAM_construct_utf8_string(OSSL_PKEY_PARAM_GROUP_NAME, group, 0),
      OSSL_PARAM_construct_octet_string(OSSL_PKEY_PARAM_PUB_KEY, copy.data(), copy.size()),
      OSSL_PARAM_construct_end(),
  };
  EVP_PKEY_CTX* context = EVP_PKEY_CTX_new_from_name(nullptr, "EC", nullptr);
  EVP_PKEY* key = nullptr;
  if (context == nullptr || EVP_PKEY_fromdata_init(context) != 1 ||
      EVP_PKEY_fromdata(context, &key, EVP_PKEY_PUBLIC_KEY, params) != 1) {
    key = nullptr;
  }
  EVP_PKEY_CTX_free(context);
  return key;
}

bool isVapidKey(const std::string& text) {
  const auto point = unbase64(text);
  EVP_PKEY* key = point ? vapidKey(*point) : nullptr;
  EVP_PKEY_free(key);
  return key != nullptr;
}

// An ES256 signature (r and s, 32 bytes each) of `text` by `key`.
bool verifies(EVP_PKEY* key, const std::string& text, const std::string& signature) {
  if (signature.size() != 64) {
    return false;
  }
  const auto* raw = reinterpret_cast<const unsigned char*>(signature.data());
  ECDSA_SIG* pair = ECDSA_SIG_new();
  BIGNUM* r = BN_bin2bn(raw, 32, nullptr);
  BIGNUM* s = BN_bin2bn(raw + 32, 32, nullptr);
  if (pair == nullptr || r == nullptr || s == nullptr || ECDSA_SIG_set0(pair, r, s) != 1) {
    BN_free(r);
    BN_free(s);
    ECDSA_SIG_free(pair);
    return false;
  }
  unsigned char* der = nullptr;
  const int derLength = i2d_ECDSA_SIG(pair, &der);
  ECDSA_SIG_free(pair);
  EVP_MD_CTX* digest = EVP_MD_CTX_new();
  const bool good =
      derLength > 0 && digest != nullptr &&
      EVP_DigestVerifyInit(digest, nullptr, EVP_sha256(), nullptr, key) == 1 &&
      EVP_DigestVerify(digest, der, static_cast<std::size_t>(derLength),
                       reinterpret_cast<const unsigned char*>(text.data()), text.size()) == 1;
  EVP_MD_CTX_free(digest);
  OPENSSL_free(der);
  return good;
}

// Checks the Authorization header of a POST to an endpoint whose application registered the
// VAPID key `registered`: {0, ""} when it is "vapid t=<JWT>, k=<key>" with that key, a JWT signed
// with it (ES256) for `audience` (the endpoint's origin) that has not expired and expires within
// 24 hours; otherwise the status to answer (401 unsigned, 403 signed wrongly) and why.
std::pair<int, std::string> checkVapid(const char* header, const std::string& registered,
                                       const std::string& audience) {
  if (header == nullptr) {
    return {401, "unsigned: the application takes only pushes signed with VAPID"};
  }
  std::string_view text(header);
  if (text.size() < 6 || std::tolower(static_cast<unsigned char>(text[0])) != 'v' ||
      std::string_view(text.substr(1, 5)) != "apid ") {
    return {401, "the Authorization header is no VAPID signature (vapid t=..., k=...)"};
  }
  text.remove_prefix(6);
  std::string token;
  std::string key;
  while (!text.empty()) {
    const auto comma = text.find(',');
    std::string_view part = text.substr(0, comma);
    text = comma == std::string_view::npos ? std::string_view() : text.substr(comma + 1);
    while (!part.empty() && part.front() == ' ') {
      part.remove_prefix(1);
    }
    while (!part.empty() && part.back() == ' ') {
      part.remove_suffix(1);
    }
    if (part.substr(0, 2) == "t=") {
      token = part.substr(2);
    } else if (part.substr(0, 2) == "k=") {
      key = part.substr(2);
    }
  }
  if (token.empty() || key.empty()) {
    return {401, "the Authorization header is no VAPID signature (vapid t=..., k=...)"};
  }
  const auto given = unbase64(key);
  if (!given || given != unbase64(registered)) {
    return {403, "signed with another key than the application registered"};
  }
  const auto firstDot = token.find('.');
  const auto lastDot = token.rfind('.');
  if (firstDot == std::string::npos || firstDot == lastDot) {
    return {403, "the VAPID token is no JWT"};
  }
  const auto header64 = unbase64(token.substr(0, firstDot));
  const auto claims64 = unbase64(token.substr(firstDot + 1, lastDot - firstDot - 1));
  const auto signature = unbase64(token.substr(lastDot + 1));
  const auto jwtHeader = nlohmann::json::parse(header64.value_or(""), nullptr, false);
  const auto claims = nlohmann::json::parse(claims64.value_or(""), nullptr, false);
  if (!signature || !jwtHeader.is_object() || !claims.is_object() ||
      jwtHeader.value("alg", "") != "ES256") {
    return {403, "the VAPID token is no ES256 JWT"};
  }
  EVP_PKEY* publicKey = vapidKey(*given);
  const bool good =
      publicKey != nullptr && verifies(publicKey, token.substr(0, lastDot), *signature);
  EVP_PKEY_free(publicKey);
  if (!good) {
    return {403, "the VAPID signature does not verify"};
  }
  const auto now = std::chrono::duration_cast<std::chrono::seconds>(
                       std::chrono::system_clock::now().time_since_epoch())
                       .count();
  const auto expiry = claims.contains("exp") && claims["exp"].is_number_integer()
                          ? claims["exp"].get<std::int64_t>()
                          : std::int64_t{0};
  if (expiry <= now) {
    return {403, "the VAPID token has expired"};
  }
  if (expiry > now + 24 * 3600) {
    return {403, "the VAPID token expires more than 24 hours ahead"};
  }
  if (!claims.contains("aud") || claims["aud"] != audience) {
    return {403,
            "the VAPID token is for another push server (its \"aud\" is not " + audience + ")"};
  }
  return {0, {}};
}

// One POST on its way in.
struct Upload {
  std::string body;
  bool tooLarge = false;
};

}  // namespace

class Distributor::Impl {
 public:
  explicit Impl(Options options)
      : options_(std::move(options)),
        name_(fullName(options_.name)),
        context_(g_main_context_new()),
        loop_(g_main_loop_new(context_, FALSE)) {}

  ~Impl() {
    stop();
    g_main_loop_unref(loop_);
    g_main_context_unref(context_);
  }

  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  void start() {
    if (!g_dbus_is_name(name_.c_str()) || g_dbus_is_unique_name(name_.c_str())) {
      throw std::runtime_error("orvanta-distributor: \"" + name_ + "\" is not a bus name");
    }
    thread_ = std::thread([this] {
      g_main_context_push_thread_default(context_);
      g_main_loop_run(loop_);
      g_main_context_pop_thread_default(context_);
    });
    pthread_setname_np(thread_.native_handle(), "orvanta-distrib");
    // Listening first: endpoints handed out on the bus name the port.
    std::string failure = listen();
    if (failure.empty()) {
      onLoop([&] { failure = connect(); });
    }
    if (!failure.empty()) {
      stop();
      throw std::runtime_error("orvanta-distributor: " + failure);
    }
  }

  void stop() {
    {
      std::lock_guard lock(mutex_);
      if (stopped_) {
        return;
      }
      stopped_ = true;
    }
    // HTTP first: from then on nothing forwards through the connection.
    if (daemon_ != nullptr) {
      MHD_stop_daemon(daemon_);
      daemon_ = nullptr;
    }
    if (thread_.joinable()) {
      onLoop([this] { disconnect(); });
      g_main_loop_quit(loop_);
      thread_.join();
    }
  }

  const std::string& busName() const { return name_; }
  std::uint16_t port() const { return port_; }
  std::string origin() const { return "http://127.0.0.1:" + std::to_string(port_); }
  std::string endpointBase() const {
    return "http://127.0.0.1:" + std::to_string(port_) + std::string(kEndpointPath);
  }

  std::vector<Registration> registrations() const {
    std::lock_guard lock(mutex_);
    return registrations_;
  }
  std::vector<Forwarded> forwarded() const {
    std::lock_guard lock(mutex_);
    return forwarded_;
  }
  std::size_t refusals() const {
    std::lock_guard lock(mutex_);
    return refusals_;
  }

  bool waitFor(const std::function<bool()>& predicate, std::chrono::milliseconds timeout) const {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (true) {
      std::uint64_t seen = 0;
      {
        std::lock_guard lock(mutex_);
        seen = generation_;
      }
      if (predicate()) {
        return true;
      }
      std::unique_lock lock(mutex_);
      if (!changed_.wait_until(lock, deadline, [&] { return generation_ != seen; })) {
        lock.unlock();
        return predicate();
      }
    }
  }

 private:
  // Runs `work` on the loop thread and waits for it. The hand-over goes through members of ours,
  // made before the loop thread started, both ways: the sanitizer does not see inside GLib's own
  // queue. Called by one thread at a time (start, then stop).
  void onLoop(const std::function<void()>& work) {
    {
      std::lock_guard lock(handOverMutex_);
      handOver_ = &work;
      handOverFinished_ = false;
    }
    g_main_context_invoke(
        context_,
        [](gpointer data) -> gboolean {
          auto* self = static_cast<Impl*>(data);
          const std::function<void()>* task = nullptr;
          {
            std::lock_guard lock(self->handOverMutex_);
            task = self->handOver_;
          }
          (*task)();
          {
            std::lock_guard lock(self->handOverMutex_);
            self->handOverFinished_ = true;
          }
          self->handOverDone_.notify_all();
          return G_SOURCE_REMOVE;
        },
        this);
    std::unique_lock lock(handOverMutex_);
    handOverDone_.wait(lock, [this] { return handOverFinished_; });
  }

  void say(const std::string& line) const {
    if (options_.log) {
      options_.log(line);
    }
  }

  void changed() {
    {
      std::lock_guard lock(mutex_);
      ++generation_;
    }
    changed_.notify_all();
  }

  // --- D-Bus (loop thread) ------------------------------------------------------------------

  std::string connect() {
    GError* error = nullptr;
    std::string address = options_.busAddress;
    if (address.empty()) {
      gchar* found = g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SESSION, nullptr, &error);
      if (found == nullptr) {
        std::string why = std::string("no session bus: ") + error->message;
        g_error_free(error);
        return why;
      }
      address = found;
      g_free(found);
    }
    connection_ = g_dbus_connection_new_for_address_sync(
        address.c_str(),
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, &error);
    if (connection_ == nullptr) {
      std::string why = std::string("could not connect to the bus: ") + error->message;
      g_error_free(error);
      return why;
    }
    // The distributor stays up when the bus goes away; it just can't forward any more.
    g_dbus_connection_set_exit_on_close(connection_, FALSE);

    GDBusNodeInfo* node = g_dbus_node_info_new_for_xml(kIntrospection, nullptr);
    static const GDBusInterfaceVTable kVTable = {&Impl::onMethodCall, nullptr, nullptr, {}};
    const int interfaces = options_.offerVersion2 ? 2 : 1;
    for (int i = 0; i < interfaces; ++i) {
      const guint id = g_dbus_connection_register_object(
          connection_, kDistributorPath, node->interfaces[i], &kVTable, this, nullptr, &error);
      if (id == 0) {
        std::string why = std::string("could not serve the distributor: ") + error->message;
        g_error_free(error);
        g_dbus_node_info_unref(node);
        return why;
      }
      objects_.push_back(id);
    }
    g_dbus_node_info_unref(node);

    // DO_NOT_QUEUE (4): the name is ours now (answer 1), or someone else has it.
    GVariant* reply = g_dbus_connection_call_sync(
        connection_, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
        "RequestName", g_variant_new("(su)", name_.c_str(), 4u), variantType("(u)"),
        G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &error);
    if (reply == nullptr) {
      std::string why = std::string("could not take the name ") + name_ + ": " + error->message;
      g_error_free(error);
      return why;
    }
    guint32 answer = 0;
    g_variant_get(reply, "(u)", &answer);
    g_variant_unref(reply);
    if (answer != 1) {
      return "the name " + name_ + " belongs to another program";
    }
    ownsName_ = true;
    return {};
  }

  void disconnect() {
    if (connection_ == nullptr) {
      return;
    }
    for (const guint id : objects_) {
      g_dbus_connection_unregister_object(connection_, id);
    }
    objects_.clear();
    if (ownsName_) {
      // Given back explicitly, so that the bus has released it when `stop` returns.
      GVariant* reply = g_dbus_connection_call_sync(
          connection_, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
          "ReleaseName", g_variant_new("(s)", name_.c_str()), variantType("(u)"),
          G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
      if (reply != nullptr) {
        g_variant_unref(reply);
      }
      ownsName_ = false;
    }
    g_dbus_connection_close_sync(connection_, nullptr, nullptr);
    g_object_unref(connection_);
    connection_ = nullptr;
  }

  static void onMethodCall(GDBusConnection*, const gchar*, const gchar*, const gchar* interface,
                           const gchar* method, GVariant* parameters,
                           GDBusMethodInvocation* invocation, gpointer data) {
    auto* self = static_cast<Impl*>(data);
    const std::string name = method;
    const bool version2 = std::string_view(interface) == "org.unifiedpush.Distributor2";
    const gchar* caller = g_dbus_method_invocation_get_sender(invocation);
    const std::string sender = caller != nullptr ? caller : "";
    if (name == "Register" && !version2) {
      const gchar* service = nullptr;
      const gchar* token = nullptr;
      const gchar* description = nullptr;
      g_variant_get(parameters, "(&s&s&s)", &service, &token, &description);
      const auto outcome =
          self->registerApplication(sender, service, token, description, std::nullopt, 1);
      g_dbus_method_invocation_return_value(
          invocation,
          g_variant_new("(ss)", outcome.succeeded ? kSucceeded : kFailed, outcome.reason.c_str()));
      self->announce(outcome);
    } else if (name == "Register") {
      GVariant* map = g_variant_get_child_value(parameters, 0);
      const auto outcome = self->registerApplication(
          sender, mapString(map, "service").value_or(""), mapString(map, "token").value_or(""),
          mapString(map, "description").value_or(""), mapString(map, "vapid"), 2);
      g_variant_unref(map);
      GVariantBuilder result;
      g_variant_builder_init(&result, variantType("a{sv}"));
      g_variant_builder_add(&result, "{sv}", "result",
                            g_variant_new_string(outcome.succeeded ? kSucceeded : kFailed));
      g_variant_builder_add(&result, "{sv}", "reason",
                            g_variant_new_string(outcome.reason.c_str()));
      g_dbus_method_invocation_return_value(
          invocation, g_variant_new("(@a{sv})", g_variant_builder_end(&result)));
      self->announce(outcome);
    } else if (name == "Unregister") {
      std::string token;
      if (version2) {
        GVariant* map = g_variant_get_child_value(parameters, 0);
        token = mapString(map, "token").value_or("");
        g_variant_unref(map);
      } else {
        const gchar* text = nullptr;
        g_variant_get(parameters, "(&s)", &text);
        token = text;
      }
      if (!self->unregisterApplication(sender, token)) {
        g_dbus_method_invocation_return_dbus_error(
            invocation, "org.freedesktop.DBus.Error.AccessDenied",
            "only the application that registered a token may unregister it");
        return;
      }
      g_dbus_method_invocation_return_value(invocation, nullptr);
    } else {
      g_dbus_method_invocation_return_dbus_error(
          invocation, "org.freedesktop.DBus.Error.UnknownMethod", "unknown method");
    }
  }

  struct Outcome {
    bool succeeded = false;
    std::string reason;
    std::string service;
    std::string token;
    std::string endpoint;
  };

  // `sender` (the caller's unique name) must own `service`: a program may register only itself,
  // or it could have another application's messages sent to it.
  Outcome registerApplication(const std::string& sender, const std::string& service,
                              const std::string& token, const std::string& description,
                              std::optional<std::string> vapid, int version) {
    Outcome outcome;
    outcome.service = service;
    outcome.token = token;
    if (options_.refuseReason) {
      outcome.reason = *options_.refuseReason;
    } else if (!g_dbus_is_name(service.c_str()) || g_dbus_is_unique_name(service.c_str())) {
      outcome.reason = "the service name is not a well-known bus name";
    } else if (token.empty()) {
      outcome.reason = "the token is empty";
    } else if (vapid && !isVapidKey(*vapid)) {
      outcome.reason = "the VAPID key is not a P-256 public key (65 bytes in URL-safe base64)";
    } else if (sender.empty() || ownerOf(service) != sender) {
      outcome.reason = "the caller does not own the service name " + service;
    }
    if (!outcome.reason.empty()) {
      {
        std::lock_guard lock(mutex_);
        ++refusals_;
      }
      say("refused " + service + ": " + outcome.reason);
      changed();
      return outcome;
    }
    {
      std::lock_guard lock(mutex_);
      Registration* existing = find(token);
      if (existing != nullptr && existing->service != service) {
        outcome.reason = "the token is registered by another application";
        ++refusals_;
      } else if (existing != nullptr) {
        // The same application again (after a restart, say): same endpoint.
        existing->description = description;
        existing->vapid = std::move(vapid);
        existing->interfaceVersion = version;
        outcome.endpoint = existing->endpoint;
      } else {
        gchar* id = g_uuid_string_random();
        outcome.endpoint = endpointBase() + id;
        g_free(id);
        registrations_.push_back(
            Registration{service, token, description, outcome.endpoint, std::move(vapid), version});
      }
    }
    if (!outcome.reason.empty()) {
      say("refused " + service + ": " + outcome.reason);
    } else {
      outcome.succeeded = true;
      say("registered " + service + " (" + description + ") through Distributor" +
          std::to_string(version) + ": " + outcome.endpoint);
    }
    changed();
    return outcome;
  }

  // After the answer to Register: the endpoint goes to the connector.
  void announce(const Outcome& outcome) {
    if (outcome.succeeded) {
      callConnector(outcome.service, "NewEndpoint",
                    g_variant_new("(ss)", outcome.token.c_str(), outcome.endpoint.c_str()));
    }
  }

  // False when the registration of `token` belongs to a service `sender` does not own.
  bool unregisterApplication(const std::string& sender, const std::string& token) {
    std::optional<std::string> service;
    {
      std::lock_guard lock(mutex_);
      if (const Registration* found = find(token)) {
        service = found->service;
      }
    }
    if (!service) {
      return true;
    }
    if (sender.empty() || ownerOf(*service) != sender) {
      say("refused to unregister " + *service + ": the caller does not own the name");
      return false;
    }
    std::optional<Registration> removed;
    {
      std::lock_guard lock(mutex_);
      for (auto it = registrations_.begin(); it != registrations_.end(); ++it) {
        if (it->token == token) {
          removed = std::move(*it);
          registrations_.erase(it);
          break;
        }
      }
    }
    if (!removed) {
      return true;
    }
    say("unregistered " + removed->service);
    callConnector(removed->service, "Unregistered", g_variant_new("(s)", token.c_str()));
    changed();
    return true;
  }

  // A call on a connector that nobody waits for (the connector's methods have no answer). Any
  // thread: GIO sends messages from whichever thread asks.
  void callConnector(const std::string& service, const char* method, GVariant* parameters) {
    GDBusMessage* message = g_dbus_message_new_method_call(service.c_str(), kConnectorPath,
                                                           kConnectorInterface, method);
    g_dbus_message_set_body(message, parameters);
    g_dbus_message_set_flags(message, G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED);
    g_dbus_connection_send_message(connection_, message, G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr,
                                   nullptr);
    g_object_unref(message);
  }

  Registration* find(const std::string& token) {
    for (auto& registration : registrations_) {
      if (registration.token == token) {
        return &registration;
      }
    }
    return nullptr;
  }

  // --- HTTP (the server's thread) -----------------------------------------------------------

  std::string listen() {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(options_.port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    // poll(), not epoll: it sees a client that closed its side while a request was incomplete,
    // which the edge-triggered epoll of this libmicrohttpd misses until the idle time-out.
    daemon_ = MHD_start_daemon(
        MHD_USE_POLL_INTERNAL_THREAD, options_.port, nullptr, nullptr, &Impl::onAccess, this,
        MHD_OPTION_SOCK_ADDR, reinterpret_cast<const sockaddr*>(&address),
        MHD_OPTION_CONNECTION_LIMIT, kMaxConnections, MHD_OPTION_CONNECTION_TIMEOUT,
        kIdleTimeoutSeconds, MHD_OPTION_NOTIFY_COMPLETED, &Impl::onCompleted, this, MHD_OPTION_END);
    if (daemon_ == nullptr) {
      return "can't listen on 127.0.0.1:" + std::to_string(options_.port);
    }
    const auto* info = MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_BIND_PORT);
    port_ = info != nullptr ? info->port : options_.port;
    return {};
  }

  static MHD_Result onAccess(void* cls, MHD_Connection* connection, const char* url,
                             const char* method, const char*, const char* uploadData,
                             std::size_t* uploadDataSize, void** context) {
    auto* self = static_cast<Impl*>(cls);
    auto* upload = static_cast<Upload*>(*context);
    if (upload == nullptr) {
      *context = new Upload;
      return MHD_YES;
    }
    if (*uploadDataSize != 0) {
      if (upload->body.size() + *uploadDataSize > self->options_.maxMessageBytes) {
        upload->tooLarge = true;
      } else {
        upload->body.append(uploadData, *uploadDataSize);
      }
      *uploadDataSize = 0;
      return MHD_YES;
    }
    // Browsers name the page in "Origin" on every POST: a web page must not push to the desktop.
    const bool fromWebPage =
        MHD_lookup_connection_value(connection, MHD_HEADER_KIND, "Origin") != nullptr;
    const char* authorization =
        MHD_lookup_connection_value(connection, MHD_HEADER_KIND, "Authorization");
    const auto [status, text] = fromWebPage ? self->refuseWebPage(url, method)
                                            : self->answer(url, method, authorization, *upload);
    MHD_Response* response = MHD_create_response_from_buffer(
        text.size(), const_cast<char*>(text.data()), MHD_RESPMEM_MUST_COPY);
    MHD_add_response_header(response, "Content-Type", "text/plain; charset=utf-8");
    // One push a connection: none lingers waiting for a next request.
    MHD_add_response_header(response, "Connection", "close");
    const MHD_Result result =
        MHD_queue_response(connection, static_cast<unsigned int>(status), response);
    MHD_destroy_response(response);
    return result;
  }

  static void onCompleted(void*, MHD_Connection*, void** context, MHD_RequestTerminationCode) {
    delete static_cast<Upload*>(*context);
    *context = nullptr;
  }

  std::pair<int, std::string> refuseWebPage(const std::string_view path,
                                            const std::string_view method) const {
    say(std::string(method) + " " + std::string(path) + ": 403, sent by a web page");
    return {403, "requests from web pages are refused\n"};
  }

  std::pair<int, std::string> answer(const std::string_view path, const std::string_view method,
                                     const char* authorization, Upload& upload) {
    if (path.substr(0, kEndpointPath.size()) != kEndpointPath) {
      return {404, "no such endpoint\n"};
    }
    const std::string endpoint = endpointBase() + std::string(path.substr(kEndpointPath.size()));
    std::string service;
    std::string token;
    std::optional<std::string> vapid;
    {
      std::lock_guard lock(mutex_);
      for (const auto& registration : registrations_) {
        if (registration.endpoint == endpoint) {
          service = registration.service;
          token = registration.token;
          vapid = registration.vapid;
        }
      }
    }
    if (token.empty()) {
      say(std::string(method) + " " + std::string(path) + ": 404, no such endpoint");
      return {404, "no such endpoint\n"};
    }
    if (method != "POST") {
      return {405, "an endpoint takes POST\n"};
    }
    if (vapid) {
      // The application named its server's key: only pushes that server signed get through.
      const auto [status, why] = checkVapid(authorization, *vapid, origin());
      if (status != 0) {
        say(std::string(method) + " " + std::string(path) + ": " + std::to_string(status) + ", " +
            why);
        return {status, why + "\n"};
      }
    }
    if (upload.tooLarge) {
      say("refused a message of more than " + std::to_string(options_.maxMessageBytes) +
          " bytes for " + service);
      return {413, "the message is too large\n"};
    }
    if (ownerOf(service).empty()) {
      say("no message for " + service + ": it is not on the bus");
      return {503, "the application is not running\n"};
    }
    std::string id;
    {
      std::lock_guard lock(mutex_);
      id = "m-" + std::to_string(++messages_);
    }
    GVariant* bytes =
        g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, upload.body.data(), upload.body.size(), 1);
    callConnector(service, "Message", g_variant_new("(s@ays)", token.c_str(), bytes, id.c_str()));
    say("message " + id + " (" + std::to_string(upload.body.size()) + " bytes) to " + service);
    {
      std::lock_guard lock(mutex_);
      forwarded_.push_back(Forwarded{service, token, id, std::move(upload.body)});
    }
    changed();
    return {201, ""};
  }

  // The unique name of the program that owns `name` now; empty when none does. Any thread.
  std::string ownerOf(const std::string& name) {
    GVariant* reply = g_dbus_connection_call_sync(
        connection_, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
        "GetNameOwner", g_variant_new("(s)", name.c_str()), variantType("(s)"),
        G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
    if (reply == nullptr) {
      return {};
    }
    const gchar* owner = nullptr;
    g_variant_get(reply, "(&s)", &owner);
    std::string text = owner;
    g_variant_unref(reply);
    return text;
  }

  const Options options_;
  const std::string name_;
  GMainContext* const context_;
  GMainLoop* const loop_;
  std::mutex handOverMutex_;
  std::condition_variable handOverDone_;
  const std::function<void()>* handOver_ = nullptr;  // guarded by handOverMutex_
  bool handOverFinished_ = false;                    // guarded by handOverMutex_
  std::thread thread_;

  // Set on the loop thread during start and stop, while no HTTP request is served.
  GDBusConnection* connection_ = nullptr;
  std::vector<guint> objects_;
  bool ownsName_ = false;
  MHD_Daemon* daemon_ = nullptr;
  std::uint16_t port_ = 0;

  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  std::uint64_t generation_ = 0;
  bool stopped_ = false;
  std::vector<Registration> registrations_;
  std::vector<Forwarded> forwarded_;
  std::size_t refusals_ = 0;
  std::uint64_t messages_ = 0;
};

std::unique_ptr<Distributor> Distributor::start(Options options) {
  auto impl = std::make_unique<Impl>(std::move(options));
  impl->start();
  return std::unique_ptr<Distributor>(new Distributor(std::move(impl)));
}

Distributor::Distributor(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
Distributor::~Distributor() {
  stop();
}
void Distributor::stop() {
  impl_->stop();
}
const std::string& Distributor::busName() const {
  return impl_->busName();
}
std::uint16_t Distributor::port() const {
  return impl_->port();
}
std::string Distributor::endpointBase() const {
  return impl_->endpointBase();
}
std::vector<Registration> Distributor::registrations() const {
  return impl_->registrations();
}
std::vector<Forwarded> Distributor::forwarded() const {
  return impl_->forwarded();
}
std::size_t Distributor::refusals() const {
  return impl_->refusals();
}
bool Distributor::waitFor(const std::function<bool()>& predicate,
                          std::chrono::milliseconds timeout) const {
  return impl_->waitFor(predicate, timeout);
}

}  // namespace orvanta::distributor
