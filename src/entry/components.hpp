#pragma once

#include <memory>

#include "entry/kit_context.hpp"
#include "orvanta/orvanta_analytics.hpp"
#include "orvanta/orvanta_notification_service_extension.hpp"
#include "orvanta/orvanta_push.hpp"
#include "push/push_interception.hpp"

namespace orvanta::detail {

/// The push facade over a context, and the kit's hook on its platform's push callbacks (already
/// installed as the notification centre's and the application's delegate, which hold it weakly).
struct PushComponents {
  std::unique_ptr<OrvantaPush> push;
  std::shared_ptr<PushInterception> interception;
};

/// Step 1 of the kit's start: the push facade, with its categories, status reporter and action
/// handling, hooked on the platform's push callbacks.
PushComponents makePushComponents(const std::shared_ptr<KitContext>& context);

/// Step 3: the event queue over the context's event database and the analytics facade, observing
/// did-enter-background.
std::unique_ptr<OrvantaAnalytics> makeAnalytics(const std::shared_ptr<KitContext>& context);

/// The rich-push extension's work over a context: a new status reporter, the platform's HTTP
/// client (the image download) and its temporary folder.
std::shared_ptr<OrvantaNotificationServiceExtension::Impl> makeNotificationServiceExtension(
    const std::shared_ptr<KitContext>& context);

}  // namespace orvanta::detail
