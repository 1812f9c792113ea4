#pragma once

#include <optional>
#include <string>

#include "models/orvanta_notification_action.hpp"
#include "models/orvanta_notification_payload.hpp"

namespace orvanta {

/// Carries out the action of a push that the user opened, or of the button they pressed, when the
/// host's delegate did not take it: opens the URL in the browser or as a deep link, or shows it in
/// the web view screen (the in-app layer's `OrvantaInAppInteraction::Impl` does). Any thread.
class PushActionHandler {
 public:
  virtual ~PushActionHandler() = default;
  virtual void handleAction(const OrvantaNotificationAction& action) = 0;
};

/// The first of the payload's button actions whose id equals `actionId`; none when there is none
/// (or the payload has no button actions). Any thread.
std::optional<OrvantaNotificationAction> searchNotificationAction(
    const std::string& actionId, const OrvantaNotificationPayload& payload);

}  // namespace orvanta
