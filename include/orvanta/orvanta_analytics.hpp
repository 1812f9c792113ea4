#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "orvanta/export.hpp"
#include "orvanta/value.hpp"

namespace orvanta {

/// The analytics facade, reached as `Orvanta::analytics()`. One instance exists, owned by the kit.
///
/// Tracked events are kept in a database file in the application's documents directory until the
/// service has taken them, so they survive a closed or killed application and a missing network.
/// They are sent at once, again with every later tracked event, and when the application goes to
/// the background (`postLifecycleEvent(port::LifecycleEvent::didEnterBackground)`), under a
/// background task.
class ORVANTA_API OrvantaAnalytics {
 public:
  /// Records an event named `name` with `parameters`, then sends every stored event. Parameters
  /// are kept by type: integers (and boxed numbers that are exactly integers), strings, Booleans
  /// and dates; any other value (a fraction, an array, a map, null) is dropped.
  ///
  /// Nothing is recorded until the device has a push token, nor an event whose request body would
  /// be over `kMaxEventSize` (one error line says so): the service refuses those. Any thread; blocks the caller for one
  /// database insert and one read, never for the network; never throws, and no failure reaches
  /// the caller (failures are logged).
  ///
  ///   orvanta::Orvanta::analytics().trackEvent("purchase", {{"sku", "A-1"}, {"qty", 2}});
  void trackEvent(const std::string& name, const ValueMap& parameters = {});

  /// The largest event the service takes: 64 KiB of request body, that is the event's name and
  /// parameters as JSON with about 300 bytes of the kit's own.
  static constexpr std::size_t kMaxEventSize = 64 * 1024;

  class Impl;  ///< internal
  explicit OrvantaAnalytics(std::shared_ptr<Impl> impl);
  ~OrvantaAnalytics();
  OrvantaAnalytics(const OrvantaAnalytics&) = delete;
  OrvantaAnalytics& operator=(const OrvantaAnalytics&) = delete;

  const std::shared_ptr<Impl>& impl() const { return impl_; }

 private:
  std::shared_ptr<Impl> impl_;
};

}  // namespace orvanta
