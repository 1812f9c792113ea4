#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "orvanta/port/main_queue.hpp"
#include "orvanta/port/network_monitor.hpp"

namespace orvanta {

/// Why `Reachability::startNotifier` failed.
enum class ReachabilityError {
  failedToCreateWithAddress,
  failedToCreateWithHostname,
  unableToSetCallback,
  unableToSetDispatchQueue,
  unableToGetInitialFlags,
};

/// The case name ("unableToSetCallback").
std::string_view toString(ReachabilityError error);

/// Name of the notification posted to a monitor's observers after each change.
inline constexpr std::string_view kReachabilityChangedNotification =
    "ReachabilityChangedNotification";

/// Watches whether the internet can be reached, and over what kind of link, and tells the host.
///
/// A standalone monitor: nothing else in the kit creates or consults it; requests are never held
/// back because of what it says.
///
/// The connection is read from the `NetworkMonitor` port: an available network is "cellular" when
/// it is metered (`allowsCellularConnection` decides whether that counts as a connection), "wifi"
/// otherwise. Between `startNotifier` and `stopNotifier`, every change of the state is delivered on
/// the main queue: `whenReachable` or `whenUnreachable` (by the connection at that moment), then
/// the observers with `kReachabilityChangedNotification` and the monitor itself. Callbacks and
/// observers hold nothing: once the monitor is destroyed, pending deliveries do nothing.
///
/// Every member may be called from any thread; `startNotifier` and `stopNotifier` not concurrently
/// with each other.
class Reachability : public std::enable_shared_from_this<Reachability> {
 public:
  enum class Connection { none, wifi, cellular };
  /// The older form of `Connection`, kept beside it.
  enum class NetworkStatus { notReachable, reachableViaWiFi, reachableViaWWAN };

  /// Receives the monitor; runs on the main queue.
  using NetworkReachable = std::function<void(Reachability&)>;
  using NetworkUnreachable = std::function<void(Reachability&)>;
  /// Receives the notification's name and its object, the monitor; runs on the main queue.
  using Observer = std::function<void(std::string_view name, Reachability& object)>;
  using ObserverToken = std::uint64_t;

  struct Dependencies {
    std::shared_ptr<port::NetworkMonitor> monitor;
    /// Where the callbacks and observers run.
    std::shared_ptr<port::MainQueue> mainQueue;
  };

  /// A monitor of the general route to the internet. Null when a dependency is missing.
  static std::shared_ptr<Reachability> make(Dependencies dependencies);

  /// Stops the notifier.
  ~Reachability();
  Reachability(const Reachability&) = delete;
  Reachability& operator=(const Reachability&) = delete;

  void setWhenReachable(NetworkReachable callback);
  void setWhenUnreachable(NetworkUnreachable callback);

  /// When false, a metered ("cellular") link counts as no connection. True by default.
  bool allowsCellularConnection() const;
  void setAllowsCellularConnection(bool allows);

  /// Adds an observer of `kReachabilityChangedNotification`. An observer removed on the main queue
  /// is not called afterwards.
  ObserverToken addObserver(Observer observer);
  void removeObserver(ObserverToken token);

  /// Starts delivering changes; nothing when already running. The first state read counts as a
  /// change when no state was known before (or a different one), so the callbacks learn it.
  /// On failure the notifier is stopped again and the error tells which step failed.
  std::optional<ReachabilityError> startNotifier();
  void stopNotifier();
  bool isNotifierRunning() const;

  /// The connection now. When no state is known yet, it is read from the monitor first (without
  /// notifying anyone); `none` when the system cannot tell.
  Connection connection();
  NetworkStatus currentReachabilityStatus();
  /// The description of `currentReachabilityStatus()`.
  std::string currentReachabilityString();
  bool isReachable();

  /// One character per item of the last known state (reachable "R", metered "M", connectivity
  /// "l" local / "t" limited / "p" portal / "f" full; "-" for an item that is off), or
  /// "unavailable flags" when no state is known.
  std::string description() const;

  struct Passkey {
   private:
    Passkey() = default;
    friend class Reachability;
  };
  Reachability(Passkey, Dependencies dependencies);

 private:
  /// Stores `state`; true when it differs from the one known before.
  bool store(const port::NetworkState& state);
  void reachabilityChanged(const port::NetworkState& state);
  void notifyReachabilityChanged();
  Connection connectionFor(const std::optional<port::NetworkState>& state) const;

  Dependencies dependencies_;
  mutable std::mutex mutex_;
  NetworkReachable whenReachable_;
  NetworkUnreachable whenUnreachable_;
  bool allowsCellularConnection_ = true;
  bool notifierRunning_ = false;
  std::optional<port::NetworkState> flags_;
  std::map<ObserverToken, Observer> observers_;
  ObserverToken nextObserverToken_ = 1;
};

/// "No Connection", "WiFi", "Cellular".
std::string_view description(Reachability::Connection connection);
std::string_view description(Reachability::NetworkStatus status);

}  // namespace orvanta
