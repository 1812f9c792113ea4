#pragma once

#include <gio/gio.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <string>

#include "linux/gio/gio_bus.hpp"

namespace orvanta::linux_platform {

/// Who may call the push connector: the program that owns the push distributor's well-known name
/// ("org.unifiedpush.Distributor.<x>") now. Any program on the session bus can call the
/// connector's methods, and the connection token travels in every message, so the caller's
/// unique bus name is what tells the distributor apart from a stranger.
///
/// The watch asks the bus who owns the name and follows `NameOwnerChanged` for it, so a
/// distributor that restarts (a new unique name) is followed. Until the first answer comes, calls
/// wait, in the order they came. A call from the owner is handled and answered with an empty
/// reply; any other call is answered "org.freedesktop.DBus.Error.AccessDenied" and logged with
/// one warning line. Either way the answer goes out once the call was dealt with.
///
/// Loop thread only: the thread whose default main context runs the connection's callbacks.
class DistributorWatch {
 public:
  /// Handles one admitted call; the invocation still owns its parameters.
  using Handle = std::function<void(GDBusMethodInvocation* invocation)>;

  explicit DistributorWatch(BusCalls& bus) : bus_(bus) {}
  ~DistributorWatch() { stop(); }
  DistributorWatch(const DistributorWatch&) = delete;
  DistributorWatch& operator=(const DistributorWatch&) = delete;

  /// Admits calls from the owner of `distributor` on `connection` from now on. An empty name (or
  /// no connection) admits nobody. Watching the same name again changes nothing.
  void watch(GDBusConnection* connection, const std::string& distributor);
  /// Stops watching; waiting calls are refused.
  void stop();
  /// True once no signal subscription is left to release (the loop may end).
  bool settled() const { return subscriptions_ == 0; }

  /// Takes over `invocation` (as a method-call handler receives it): `handle` runs when its
  /// sender owns the distributor's name, at once or once the owner is known.
  void admit(GDBusMethodInvocation* invocation, Handle handle);

 private:
  struct Waiting {
    GDBusMethodInvocation* invocation;
    Handle handle;
  };

  static void onOwnerChanged(GDBusConnection*, const gchar*, const gchar*, const gchar*,
                             const gchar*, GVariant* parameters, gpointer data);
  void ownerKnown(std::string owner);
  void decide(GDBusMethodInvocation* invocation, const Handle& handle) const;

  BusCalls& bus_;
  GDBusConnection* connection_ = nullptr;  // a reference of ours
  std::string distributor_;                // empty: nobody is admitted
  guint subscription_ = 0;
  int subscriptions_ = 0;         // subscriptions whose data GIO has not released yet
  std::uint64_t generation_ = 0;  // names watched so far: an answer about an older one is stale
  bool known_ = false;            // the owner of `distributor_` is known
  std::string owner_;             // its unique name; empty: nobody owns the name now
  std::deque<Waiting> waiting_;   // calls that came before the owner was known
};

}  // namespace orvanta::linux_platform
