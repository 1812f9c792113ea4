#pragma once

#include <gio/gio.h>

#include <functional>
#include <string>

namespace orvanta::linux_platform {

/// What a GIO adapter keeps about the bus work it has under way. Used on the adapter's loop
/// thread only.
///
/// Every asynchronous call counts in `pending` until GIO has reported it, so that the loop can
/// keep turning until the count is back to zero before it ends. Once `close` was called, results
/// are no longer handed to the adapter: connections that still arrive are closed.
class BusCalls {
 public:
  BusCalls() : cancellable_(g_cancellable_new()) {}
  ~BusCalls() { g_object_unref(cancellable_); }
  BusCalls(const BusCalls&) = delete;
  BusCalls& operator=(const BusCalls&) = delete;

  bool settled() const { return pending_ == 0; }

  /// Called with a connection that is ours to close (`closeConnection`), or with none and GIO's
  /// reason.
  using Opened = std::function<void(GDBusConnection* connection, const std::string& error)>;
  /// Opens a connection of our own (not GIO's shared one) to the bus at `address`, or to the
  /// session bus when it is empty: closing it never touches the host's connections, and a bus that
  /// goes away never ends the process. `done` runs on the loop thread, at once when there is no
  /// session bus to look for.
  void openConnection(const std::string& address, Opened done);
  /// Closes and releases a connection.
  void closeConnection(GDBusConnection* connection);

  using CallDone = std::function<void(GVariant* reply, const GError* error)>;
  /// One method call, replying `replyType` (a type string; none: any). With no connection, `done`
  /// runs at once with a "connection closed" error. `parameters` may be floating.
  void call(GDBusConnection* connection, const char* destination, const char* path,
            const char* interface, const char* method, GVariant* parameters, const char* replyType,
            CallDone done);

  /// Stops handing results over and cancels the calls under way.
  void close();

 private:
  GCancellable* const cancellable_;
  int pending_ = 0;
  bool closing_ = false;
};

/// A GVariant type from its type string.
inline const GVariantType* variantType(const char* text) {
  return reinterpret_cast<const GVariantType*>(text);  // a type is its type string
}

}  // namespace orvanta::linux_platform
