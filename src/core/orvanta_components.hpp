#pragma once

#include <memory>

#include "orvanta/orvanta.hpp"
#include "orvanta/orvanta_analytics.hpp"
#include "orvanta/orvanta_push.hpp"

namespace orvanta {

/// The long-lived components the shared `Orvanta` owns for the life of the process. Each feature
/// module adds its field here and its construction step to `Orvanta::Orvanta()`.
struct Orvanta::Components {
  // Filled in order by the constructor:
  //   1. push facade (`OrvantaPush`)
  //   2. user-data facade (`OrvantaUserData`)
  //   3. analytics stack (event database, operations handler, `OrvantaAnalytics`)
  //   4. in-app push handler (`OrvantaInAppPushHandler`)
  std::unique_ptr<OrvantaPush> orvantaPush;
  std::unique_ptr<OrvantaAnalytics> orvantaAnalytics;
};

}  // namespace orvanta
