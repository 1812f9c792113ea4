#pragma once

#include <functional>
#include <optional>

#include "orvanta/export.hpp"

namespace orvanta::port {

/// How far the system believes the network reaches.
enum class NetworkConnectivity {
  local,    ///< no route beyond the local machine
  limited,  ///< a network, but no route to the internet
  portal,   ///< behind a captive portal: the internet needs a sign-in first
  full,     ///< the internet is reachable
};

/// The system's view of its network connection.
struct NetworkState {
  /// A default route exists: requests to the internet can at least be attempted.
  bool available = false;
  /// The connection is paid or capped by volume (a mobile-data link, a phone's hotspot, or one the
  /// user marked so). The closest a desktop has to "cellular".
  bool metered = false;
  NetworkConnectivity connectivity = NetworkConnectivity::local;

  friend bool operator==(const NetworkState&, const NetworkState&) = default;
};

/// Watches the system's network connection.
///
/// `currentState` may be called from any thread. `startWatching` and `stopWatching` may be called
/// from any thread, but not concurrently with each other.
class ORVANTA_API NetworkMonitor {
 public:
  using ChangeHandler = std::function<void(const NetworkState&)>;

  virtual ~NetworkMonitor() = default;

  /// The state as last seen; none when the system cannot tell.
  virtual std::optional<NetworkState> currentState() const = 0;

  /// Starts delivering changes to `onChange`, replacing any earlier handler. It runs on the
  /// monitor's own thread, one call at a time, never inside this call, and only when the state
  /// differs from the one delivered (or read) before. False when changes cannot be watched.
  virtual bool startWatching(ChangeHandler onChange) = 0;

  /// Stops delivering changes. When it returns, the handler is not running and will not run
  /// again, unless `stopWatching` is called from the handler itself (then no later call follows).
  virtual void stopWatching() = 0;
};

}  // namespace orvanta::port
