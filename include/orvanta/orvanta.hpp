#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <mutex>

#include "orvanta/export.hpp"
#include "orvanta/health.hpp"
#include "orvanta/orvanta_analytics.hpp"
#include "orvanta/orvanta_configuration.hpp"
#include "orvanta/orvanta_push.hpp"
#include "orvanta/orvanta_user_data.hpp"

namespace orvanta {

/// The kit's entry point. The host calls `Orvanta::configure` once, early, then uses the facades.
///
/// The shared instance is created on first use of any static member, exactly once, whichever
/// thread gets there first. Creating it builds the kit's long-lived components and installs the
/// default configuration, which switches logging off until the host turns it on again.
/// No exception leaves any member.
class ORVANTA_API Orvanta {
 public:
  /// The one instance the kit uses. Any thread.
  static Orvanta& shared();

  /// Installs `configuration` (a null pointer installs a fresh `OrvantaConfiguration`) and logs the
  /// credentials read from the configuration file at info level. Starts no network activity.
  /// Meant to be called once, early, from the host's main thread; safe from any thread.
  static void configure(std::shared_ptr<OrvantaConfiguration> configuration);

  /// The push facade of the shared instance. Any thread.
  static OrvantaPush& push();

  /// The user-data facade of the shared instance. Any thread.
  static OrvantaUserData& user();

  /// The analytics facade of the shared instance. Any thread.
  static OrvantaAnalytics& analytics();

  /// Posts every stored event and waits until the service has taken them all or `timeout` has
  /// passed; while posts fail (the service unreachable, say) they are tried again every few
  /// hundred milliseconds until then, as are events waiting in memory for a disk that refused
  /// them. Returns how many events are left, 0 when all were delivered: for a command-line host,
  /// the last call before it exits. Then syncs what is stored to the disk, so that a power cut
  /// can't take it; events left are sent by a later launch. Blocks the caller; any thread but the
  /// kit's own callbacks.
  ///
  ///   std::size_t left = orvanta::Orvanta::flush(std::chrono::seconds(10));
  static std::size_t flush(std::chrono::milliseconds timeout);

  /// What the kit has done since the process started (events, posts, storage, pushes, reports)
  /// and the event queue as it stands: a copy, cheap enough to take often. Any thread.
  static OrvantaHealth health();

  /// Whether the platform's push callbacks reach the kit first: the push options'
  /// `useAutomaticConfiguration` (on by default), read and written there. Any thread.
  static bool isAutoConfigurationForPushNotificationsEnabled();
  static void setIsAutoConfigurationForPushNotificationsEnabled(bool enabled);

  /// Builds a second, independent set of components over the platform in force (its own device
  /// authorization, stores and event database connection). The platform's push callbacks keep
  /// reaching the shared instance's. The kit itself only uses `shared()`.
  Orvanta();
  ~Orvanta();
  Orvanta(const Orvanta&) = delete;
  Orvanta& operator=(const Orvanta&) = delete;

  /// The configuration in force; never null. Any thread.
  std::shared_ptr<OrvantaConfiguration> configuration() const;

  /// The kit's long-lived components (push, user data, analytics, in-app handler); internal.
  struct Components;
  const Components& components() const { return *components_; }

 private:
  struct SharedInstance {};
  explicit Orvanta(SharedInstance);
  void build(bool shared);

  std::unique_ptr<Components> components_;
  mutable std::mutex configurationMutex_;
  std::shared_ptr<OrvantaConfiguration> configuration_;
};

}  // namespace orvanta
