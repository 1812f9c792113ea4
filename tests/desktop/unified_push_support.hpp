#pragma once

// Test support for remote pushes over UnifiedPush: a connector whose outcomes and pushes are
// collected, calls on the bus as other programs make them, pushes encrypted to a registration's
// keys as an application server does (the sandbox's encryption), and POSTs to endpoints.

#include <curl/curl.h>
#include <gio/gio.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "linux/gio/gio_bus.hpp"
#include "linux/gio/unified_push_connector.hpp"
#include "linux/web_push_crypto.hpp"
#include "orvanta_sandbox/web_push.hpp"
#include "testing/inbox.hpp"

namespace orvanta::testing {

inline constexpr const char* kTestApplicationId = "io.orvanta.Test";

/// A picture: one orange pixel, as a PNG file.
inline const std::string kTinyPng(
    "\x89\x50\x4e\x47\x0d\x0a\x1a\x0a\x00\x00\x00\x0d\x49\x48\x44\x52\x00\x00\x00\x01\x00\x00"
    "\x00\x01\x08\x02\x00\x00\x00\x90\x77\x53\xde\x00\x00\x00\x0c\x49\x44\x41\x54\x78\x9c"
    "\x63\x78\x61\x15\x0d\x00\x03\x8b\x01\x7e\x0e\x16\x9a\x4f\x00\x00\x00\x00\x49\x45\x4e\x44"
    "\xae\x42\x60\x82",
    69);

inline std::string hex(const std::string& bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const unsigned char byte : bytes) {
    text.push_back(kDigits[byte >> 4]);
    text.push_back(kDigits[byte & 0x0F]);
  }
  return text;
}

/// A program of the test's own on the bus: one connection, owning `name` when one is given (as a
/// distributor owns its name), that calls methods and waits for their answers.
class BusPeer {
 public:
  explicit BusPeer(const std::string& busAddress, const std::string& name = {}) {
    GError* error = nullptr;
    connection_ = g_dbus_connection_new_for_address_sync(
        busAddress.c_str(),
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, &error);
    if (connection_ == nullptr) {
      failure_ = error->message;
      g_error_free(error);
      return;
    }
    if (!name.empty()) {
      // DO_NOT_QUEUE (4): the name is ours (1) or the peer is not ready.
      if (auto answer =
              call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                   "RequestName", g_variant_new("(su)", name.c_str(), 4u), "(u)");
          answer.failure || answer.number != 1) {
        failure_ = "could not take " + name + " " + answer.failure.value_or("");
      }
    }
  }
  ~BusPeer() {
    if (connection_ != nullptr) {
      g_dbus_connection_close_sync(connection_, nullptr, nullptr);
      g_object_unref(connection_);
    }
  }
  BusPeer(const BusPeer&) = delete;
  BusPeer& operator=(const BusPeer&) = delete;

  bool ready() const { return failure_.empty(); }
  const std::string& failure() const { return failure_; }

  struct Answer {
    std::optional<std::string> failure;  // the error's text
    guint32 number = 0;                  // a "(u)" answer's number
  };
  /// Calls `method` and waits for the answer. `parameters` may be floating. `reply`, when given,
  /// gets the answer (the caller releases it), or null.
  Answer call(const std::string& destination, const char* path, const char* interface,
              const char* method, GVariant* parameters, const char* replyType = nullptr,
              GVariant** reply = nullptr) {
    Answer answer;
    if (connection_ == nullptr) {
      g_variant_unref(g_variant_ref_sink(parameters));
      answer.failure = failure_;
      if (reply != nullptr) {
        *reply = nullptr;
      }
      return answer;
    }
    GError* error = nullptr;
    GVariant* answered = g_dbus_connection_call_sync(
        connection_, destination.c_str(), path, interface, method, parameters,
        replyType != nullptr ? linux_platform::variantType(replyType) : nullptr,
        G_DBUS_CALL_FLAGS_NONE, 20'000, nullptr, &error);
    if (answered == nullptr) {
      answer.failure = error->message;
      g_error_free(error);
    } else if (g_variant_is_of_type(answered, linux_platform::variantType("(u)"))) {
      g_variant_get(answered, "(u)", &answer.number);
    }
    if (reply != nullptr) {
      *reply = answered;
    } else if (answered != nullptr) {
      g_variant_unref(answered);
    }
    return answer;
  }

  /// A call on the connector of `kTestApplicationId`, as a distributor makes it: the error text
  /// when it failed, none otherwise. A connector answers once it has dealt with the call, so what
  /// the call did is done when this returns.
  std::optional<std::string> callConnector(const char* method, GVariant* parameters) {
    return call(kTestApplicationId, "/org/unifiedpush/Connector", "org.unifiedpush.Connector1",
                method, parameters)
        .failure;
  }

 private:
  GDBusConnection* connection_ = nullptr;
  std::string failure_;
};

/// A call on the connector from a program of its own that owns no name: a stranger on the bus.
inline std::optional<std::string> callConnector(const std::string& busAddress, const char* method,
                                                GVariant* parameters) {
  return BusPeer(busAddress).callConnector(method, parameters);
}

/// The arguments of the connector's calls.
inline GVariant* endpointArguments(const std::string& token, const std::string& url) {
  return g_variant_new("(ss)", token.c_str(), url.c_str());
}
inline GVariant* messageArguments(const std::string& token, const std::string& body) {
  return g_variant_new("(s@ays)", token.c_str(),
                       g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, body.data(), body.size(), 1),
                       "m-1");
}

/// POSTs `body` to `url` with `headers` ("Name: value") besides curl's own; the answer's status,
/// 0 without one.
inline long postTo(const std::string& url, const std::string& body,
                   const std::vector<std::string>& headers = {}) {
  curl_slist* list = nullptr;
  for (const auto& header : headers) {
    list = curl_slist_append(list, header.c_str());
  }
  CURL* easy = curl_easy_init();
  curl_easy_setopt(easy, CURLOPT_HTTPHEADER, list);
  curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
  curl_easy_setopt(easy, CURLOPT_POSTFIELDS, body.data());
  curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
  curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(easy, CURLOPT_TIMEOUT, 20L);
  curl_easy_setopt(
      easy, CURLOPT_WRITEFUNCTION,
      +[](char*, std::size_t size, std::size_t count, void*) { return size * count; });
  long status = 0;
  if (curl_easy_perform(easy) == CURLE_OK) {
    curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
  }
  curl_easy_cleanup(easy);
  curl_slist_free_all(list);
  return status;
}

/// What a registration ended with: the endpoint and keys of its token, or the error's text.
struct RegistrationOutcome {
  std::optional<std::string> endpoint;
  std::optional<std::string> error;
  std::string token;      // the bytes handed to the application
  std::string publicKey;  // what the token carries besides the endpoint
  std::string authSecret;

  /// `plaintext` encrypted to the registration's keys, as an application server sends it.
  std::string sealed(const std::string& plaintext) const {
    return sandbox::webpush::encrypt(plaintext, publicKey, authSecret).value_or("");
  }
};

inline RegistrationOutcome outcomeOf(const std::vector<std::uint8_t>& token) {
  RegistrationOutcome outcome;
  outcome.token.assign(token.begin(), token.end());
  if (auto contents = linux_platform::readPushToken(token)) {
    outcome.endpoint = contents->endpoint;
    outcome.publicKey = contents->publicKey;
    outcome.authSecret = contents->authSecret;
  } else {
    outcome.error = "a token that is not in the push token layout";
  }
  return outcome;
}

/// A connector for `kTestApplicationId` on a test's bus, keeping its registration in `store`.
/// Destroyed before what it reports into.
class ConnectorProbe {
 public:
  struct Settings {
    std::string distributor{};
    std::string applicationId = kTestApplicationId;
    std::string vapidPublicKey{};
    bool acceptPlainMessages = false;
  };

  ConnectorProbe(const std::string& busAddress, std::shared_ptr<port::SecureStore> store,
                 std::string distributor = {}, std::string applicationId = kTestApplicationId)
      : ConnectorProbe(busAddress, std::move(store),
                       Settings{std::move(distributor), std::move(applicationId)}) {}

  ConnectorProbe(const std::string& busAddress, std::shared_ptr<port::SecureStore> store,
                 Settings settings) {
    connector_ = linux_platform::makeUnifiedPushConnector({
        .busAddress = busAddress,
        .applicationId = std::move(settings.applicationId),
        .description = "Orvanta test",
        .distributor = std::move(settings.distributor),
        .store = std::move(store),
        .vapidPublicKey = std::move(settings.vapidPublicKey),
        .acceptPlainMessages = settings.acceptPlainMessages,
        .onPush = [this](ValueMap userInfo) { pushes.push(std::move(userInfo)); },
    });
  }

  void registerNow() {
    connector_->registerForRemoteNotifications(
        [this](std::vector<std::uint8_t> token) { outcomes.push(outcomeOf(token)); },
        [this](const Error& error) {
          RegistrationOutcome failed;
          failed.error = error.localizedDescription();
          outcomes.push(std::move(failed));
        });
  }

  /// Registers and waits for the outcome.
  RegistrationOutcome registerAndWait() {
    const std::size_t before = outcomes.items().size();
    registerNow();
    if (!outcomes.waitFor(before + 1)) {
      RegistrationOutcome none;
      none.error = "no outcome";
      return none;
    }
    return outcomes.items()[before];
  }

  void unregister() { connector_->unregisterForRemoteNotifications(); }

  Inbox<RegistrationOutcome> outcomes;
  Inbox<ValueMap> pushes;

 private:
  std::shared_ptr<linux_platform::RemoteNotificationTransport> connector_;  // last: goes first
};

}  // namespace orvanta::testing
