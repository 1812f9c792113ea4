#pragma once

// The demo's desktop side of remote pushes: a session bus (a private one the demo starts when the
// machine has none, as on a headless build machine) and orvanta-distributor on it, so that the
// sandbox can send a push the way the service does and the kit receives it over UnifiedPush.

#include <orvanta.hpp>
#include <orvanta_sandbox/sandbox.hpp>

#include <functional>
#include <memory>
#include <optional>
#include <string>

class DesktopPush {
 public:
  // The application id the demo receives pushes under.
  static constexpr const char* kApplicationId = "io.orvanta.Demo";

  // When `wanted`, makes sure there is a session bus: without one, starts a private dbus-daemon
  // and points DBUS_SESSION_BUS_ADDRESS at it. Call it first thing in main, before any thread
  // starts.
  explicit DesktopPush(bool wanted);
  // Stops the distributor and the private bus.
  ~DesktopPush();
  DesktopPush(const DesktopPush&) = delete;
  DesktopPush& operator=(const DesktopPush&) = delete;

  // The platform options for pushes over UnifiedPush: the application id, the demo's own
  // distributor as the one the application picks, and the VAPID public key of the service (the
  // sandbox's), so that the distributor takes only the pushes the sandbox signed.
  void configure(orvanta::LinuxPlatformOptions& options, const std::string& vapidPublicKey) const;

  // Registers the application for remote notifications, has `sandbox` send a push with an image
  // and two buttons to the endpoint it got (encrypted to the keys the token carries, signed with
  // the sandbox's VAPID key), waits until `arrived` (the host heard of the push) and the sandbox
  // has the received report, presses a button and waits for its report. The device token becomes
  // the registration's. None when pushes can't travel that way here (no bus, no distributor): the
  // caller hands the push to the kit directly.
  std::optional<bool> receivePushFromSandbox(orvanta::sandbox::Sandbox& sandbox,
                                             const std::function<bool()>& arrived,
                                             std::string& deviceToken);

 private:
  struct State;
  std::unique_ptr<State> state_;
};
