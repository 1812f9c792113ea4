#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace orvanta::testing {

/// One Notify call as the server received it.
struct RecordedNotification {
  std::uint32_t id = 0;  ///< the id the server answered
  std::string appName;
  std::uint32_t replacesId = 0;
  std::string summary;
  std::string body;
  std::vector<std::string> actions;  ///< key, label, key, label...
  /// String hints as they are; other hints in GVariant text form.
  std::map<std::string, std::string> hints;
  std::int32_t expireTimeout = 0;
};

/// A desktop notification server of our own (org.freedesktop.Notifications at
/// /org/freedesktop/Notifications) on a bus the test started. It records Notify calls, answers
/// GetCapabilities with the capabilities it was given and GetServerInformation with the name and
/// version below, numbers notifications from 1 (a Notify that replaces a known id keeps it), and
/// emits ActionInvoked and NotificationClosed when the test asks. Like many real servers it never
/// closes a notification on its own when an action was invoked: it closes one when a client calls
/// CloseNotification (recorded, and answered with NotificationClosed, reason 3). Its D-Bus work
/// runs on a thread of its own, "orvanta-fake-ns"; every member may be called from any thread.
///
/// A Notify call is recorded after its answer was sent, so a signal emitted once the test saw the
/// record reaches clients after that answer, as with a real server.
class FakeNotificationServer {
 public:
  static constexpr std::chrono::milliseconds kWaitTimeout{20'000};
  static constexpr const char* kServerName = "orvanta-fake-ns";
  static constexpr const char* kServerVersion = "1.0";

  /// Connects to `busAddress` and takes the server's name; returns once the name is ours (see
  /// `started`).
  explicit FakeNotificationServer(const std::string& busAddress,
                                  std::vector<std::string> capabilities = {"actions", "body"});
  /// Gives the name back (the bus has released it when this returns) and disconnects.
  ~FakeNotificationServer();
  FakeNotificationServer(const FakeNotificationServer&) = delete;
  FakeNotificationServer& operator=(const FakeNotificationServer&) = delete;

  bool started() const;
  /// Why the server did not start; empty once started.
  std::string failure() const;

  std::vector<RecordedNotification> notifications() const;
  /// Waits until `predicate` holds for the notifications recorded; false on time-out.
  bool waitFor(const std::function<bool(const std::vector<RecordedNotification>&)>& predicate,
               std::chrono::milliseconds timeout = kWaitTimeout) const;
  /// Waits until at least `count` notifications were recorded; false on time-out.
  bool waitForNotifications(std::size_t count,
                            std::chrono::milliseconds timeout = kWaitTimeout) const;
  /// How many GetCapabilities calls were answered.
  std::size_t capabilityRequests() const;

  /// The ids clients asked to close, in order.
  std::vector<std::uint32_t> closeRequests() const;
  /// Waits until at least `count` CloseNotification calls arrived; false on time-out.
  bool waitForCloseRequests(std::size_t count,
                            std::chrono::milliseconds timeout = kWaitTimeout) const;

  /// Emits ActionInvoked(id, key), as when the user chose an action ("default": the body).
  void emitActionInvoked(std::uint32_t id, const std::string& key);
  /// Emits NotificationClosed(id, reason): 1 expired, 2 dismissed, 3 closed by a call.
  void emitNotificationClosed(std::uint32_t id, std::uint32_t reason = 2);

 private:
  struct Impl;
  std::shared_ptr<Impl> impl_;
};

}  // namespace orvanta::testing
