#pragma once

#include <memory>
#include <optional>

#include "core/owned_thread.hpp"
#include "orvanta/port/network_monitor.hpp"

namespace orvanta::linux_platform {

/// The network monitor over GIO's: it follows the kernel's routes (and NetworkManager or the
/// desktop portal, where GIO picks them) and reports metered connections.
///
/// It keeps a private instance of the monitor type GIO chose for the process, bound to a private
/// GLib main context that a thread of its own ("orvanta-netmon") iterates: its signals never reach
/// the host's main loop, and the host's use of GIO's default monitor is left as it would be without
/// the kit. Construction waits until the first state is read; when no monitor can be made,
/// `currentState` gives none and `startWatching` false.
///
/// Change handlers run on the monitor's thread. Every member may be called from any thread; the
/// object may be destroyed from its own change handler (the thread is then handed over and joined
/// later, as an `OwnedThread` is).
class GioNetworkMonitor final : public port::NetworkMonitor {
 public:
  GioNetworkMonitor();
  /// Stops watching, ends the thread's loop and joins it.
  ~GioNetworkMonitor() override;
  GioNetworkMonitor(const GioNetworkMonitor&) = delete;
  GioNetworkMonitor& operator=(const GioNetworkMonitor&) = delete;

  std::optional<port::NetworkState> currentState() const override;
  bool startWatching(ChangeHandler onChange) override;
  void stopWatching() override;

  struct Shared;

 private:
  std::shared_ptr<Shared> shared_;
  OwnedThread thread_;
};

}  // namespace orvanta::linux_platform
