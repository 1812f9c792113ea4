#pragma once

#include <memory>

#include "entry/kit_context.hpp"
#include "inapp/orvanta_in_app_interaction_impl.hpp"
#include "inapp/orvanta_in_app_push_handler.hpp"
#include "orvanta/orvanta.hpp"
#include "orvanta/orvanta_analytics.hpp"
#include "orvanta/orvanta_push.hpp"
#include "orvanta/orvanta_user_data.hpp"
#include "push/push_interception.hpp"

namespace orvanta {

/// The long-lived components an `Orvanta` owns for the life of the process, and the context they
/// were built from.
struct Orvanta::Components {
  std::shared_ptr<detail::KitContext> context;
  std::unique_ptr<OrvantaPush> orvantaPush;
  std::unique_ptr<OrvantaUserData> orvantaUserData;
  std::unique_ptr<OrvantaAnalytics> orvantaAnalytics;
  std::shared_ptr<OrvantaInAppPushHandler> orvantaInAppPushHandler;
  /// The kit's in-app screens and actions, shared by the push facade and the in-app handler.
  std::shared_ptr<OrvantaInAppInteraction::Impl> inAppInteraction;
  /// The kit's hook on the platform's push callbacks (the platform holds it weakly).
  std::shared_ptr<PushInterception> pushInterception;
};

}  // namespace orvanta
