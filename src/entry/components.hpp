#pragma once

#include <memory>

#include "entry/kit_context.hpp"
#include "inapp/orvanta_in_app_interaction_impl.hpp"
#include "inapp/orvanta_in_app_push_handler.hpp"
#include "orvanta/orvanta_analytics.hpp"
#include "orvanta/orvanta_notification_service_extension.hpp"
#include "orvanta/orvanta_push.hpp"
#include "orvanta/orvanta_user_data.hpp"
#include "push/push_interception.hpp"

namespace orvanta::detail {

/// The push facade over a context, its in-app action handling, and the kit's hook on the
/// platform's push callbacks (already installed as the notification centre's and the
/// application's delegate, which hold it weakly).
struct PushComponents {
  std::unique_ptr<OrvantaPush> push;
  std::shared_ptr<OrvantaInAppInteraction::Impl> inAppInteraction;
  std::shared_ptr<PushInterception> interception;
};

/// Step 1 of the kit's start: the push facade, with its categories, status reporter and action
/// handling; hooked on the platform's push callbacks when `hookPlatformCallbacks` (the shared
/// instance's is).
PushComponents makePushComponents(const std::shared_ptr<KitContext>& context,
                                  bool hookPlatformCallbacks = true);

/// Step 2: the user-data facade over the context's device authorization.
std::unique_ptr<OrvantaUserData> makeUserData(const std::shared_ptr<KitContext>& context);

/// Step 3: the event queue over the context's event database (opened by its first use) and the
/// analytics facade, observing did-enter-background.
std::unique_ptr<OrvantaAnalytics> makeAnalytics(const std::shared_ptr<KitContext>& context);

/// Step 4: the in-app push handler, observing will-enter-foreground and did-finish-launching.
std::shared_ptr<OrvantaInAppPushHandler> makeInAppPushHandler(
    const std::shared_ptr<KitContext>& context, const PushComponents& push);

/// The rich-push extension's work over a context: a new status reporter, the platform's HTTP
/// client (the image download) and its temporary folder.
std::shared_ptr<OrvantaNotificationServiceExtension::Impl> makeNotificationServiceExtension(
    const std::shared_ptr<KitContext>& context);

}  // namespace orvanta::detail
