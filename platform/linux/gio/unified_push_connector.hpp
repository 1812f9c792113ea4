#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "linux/gio/gio_application.hpp"
#include "orvanta/port/secure_store.hpp"
#include "orvanta/value.hpp"

namespace orvanta::linux_platform {

/// The environment variable in which the user names the push distributor to use (its bus name,
/// or the part after "org.unifiedpush.Distributor.").
inline constexpr const char* kDistributorEnvironmentVariable = "ORVANTA_PUSH_DISTRIBUTOR";

/// Where the connector keeps its registration in the secure store.
inline constexpr const char* kUnifiedPushAccount = "unifiedPush.registration";

struct UnifiedPushConnectorOptions {
  /// D-Bus address of the bus; empty: the user's session bus, found the way GIO finds it.
  std::string busAddress;
  /// The application's reverse-DNS id ("com.example.Shop"): the connector's name on the bus, and
  /// the service name distributors know the application by.
  std::string applicationId;
  /// The application as people know it; distributors show it.
  std::string description;
  /// The distributor the application picks (see below); empty: none.
  std::string distributor;
  /// Keeps the connection token, the distributor, the endpoint and the keys for encrypted pushes
  /// (one item, `kUnifiedPushAccount`).
  std::shared_ptr<port::SecureStore> store;
  /// The application server's VAPID public key (RFC 8292: the uncompressed P-256 point in
  /// URL-safe base64, as servers publish it), handed to a Distributor2 registration as "vapid" so
  /// that the distributor's push server takes only the pushes that server signed. Empty: none.
  std::string vapidPublicKey;
  /// Takes unencrypted messages (the push's JSON in clear) even once the registration has keys,
  /// for distributors that cannot carry binary messages. Off: such messages are dropped.
  bool acceptPlainMessages = false;
  /// Each push: the JSON object the application server sent. Called on the connector's thread.
  std::function<void(ValueMap userInfo)> onPush;
  /// How long a distributor that accepted a registration has to send the endpoint.
  std::chrono::milliseconds endpointTimeout{30'000};
};

/// Remote notifications over UnifiedPush, the push standard of Linux desktops (its D-Bus
/// interface, version DBUS_0.3.0): the application side, a "connector".
///
/// The connector owns the application id's name on the bus and serves org.unifiedpush.Connector1
/// at /org/unifiedpush/Connector (Message, NewEndpoint, Unregistered; none answers anything).
///
/// Registering picks a distributor among the names starting with "org.unifiedpush.Distributor."
/// that the bus has, or can start:
///   1. the one the user names in `ORVANTA_PUSH_DISTRIBUTOR`, else the one the application names
///      (`distributor`): it must be there, or the registration fails;
///   2. else the one this installation registered with before, if it is still there;
///   3. else the only one there is. None, or several: the registration fails and says so.
/// It then calls Register on org.unifiedpush.Distributor2 (a map: "service", "token",
/// "description", and "vapid" when `vapidPublicKey` is set; answered by a map with "result" and
/// "reason") where the distributor offers it, else on org.unifiedpush.Distributor1.
/// "REGISTRATION_SUCCEEDED" and an endpoint (the one kept from an earlier registration with the
/// same distributor, or the first NewEndpoint within `endpointTimeout`) make the registration
/// succeed with a push token (`pushToken`: the endpoint, the public key and the authentication
/// secret) as the device token; "REGISTRATION_FAILED", no distributor, no application id, a
/// VAPID key that is none, the name held by another program or no bus make it fail with an error
/// that says why. A later NewEndpoint with another URL calls `registered` again with the new
/// token.
///
/// Encrypted pushes: the first registration makes a P-256 key pair and an authentication secret
/// (`WebPushKeys`), kept with the registration; a new endpoint keeps them, unregistering forgets
/// them. A record kept by an earlier version without keys gets them at the next registration; a
/// damaged key is replaced (with a warning line). Once the registration has keys, every Message
/// must be an RFC 8291 message to them: one that does not decrypt, and a plain one (unless
/// `acceptPlainMessages`), is dropped with one error line.
///
/// Only the distributor may call the connector: a call whose sender is not the program that owns
/// the distributor's name now (followed as the distributor restarts) is answered AccessDenied and
/// changes nothing, with one warning line. The distributor is the one chosen by the registration
/// under way, else the one kept from the last registration.
///
/// The connection token is a random UUID kept in `store` with the distributor and the endpoint,
/// so a restarted application keeps its endpoint. Calls with another token are ignored, as is a
/// NewEndpoint whose endpoint is not an http(s) URL (logged). Unregistered forgets the endpoint.
/// A Message is handed to `onPush` after it was decrypted and `remotePushUserInfo` read it
/// (malformed bytes are dropped with one log line). Unregistering calls Unregister on the
/// distributor and forgets the endpoint, the distributor and the keys.
///
/// Threads: the connector owns one thread, "orvanta-upush", running a GLib loop on a private
/// context; every D-Bus exchange, `onPush` and the registration outcomes happen there. Its members
/// may be called from any thread and return at once. Destroying it cancels what is under way
/// (outcomes still pending are dropped), gives the name back by closing its connection and joins
/// the thread.
std::shared_ptr<RemoteNotificationTransport> makeUnifiedPushConnector(
    UnifiedPushConnectorOptions options);

}  // namespace orvanta::linux_platform
