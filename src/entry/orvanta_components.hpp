#pragma once

#include <memory>

#include "entry/kit_context.hpp"
#include "orvanta/orvanta.hpp"
#include "orvanta/orvanta_analytics.hpp"
#include "orvanta/orvanta_push.hpp"
#include "push/push_interception.hpp"

namespace orvanta {

/// The long-lived components an `Orvanta` owns for the life of the process, and the context they
/// were built from.
struct Orvanta::Components {
  std::shared_ptr<detail::KitContext> context;
  std::unique_ptr<OrvantaPush> orvantaPush;
  /// The kit's hook on the platform's push callbacks (the platform holds it weakly).
  std::shared_ptr<PushInterception> pushInterception;
  std::unique_ptr<OrvantaAnalytics> orvantaAnalytics;
};

}  // namespace orvanta
