#include "push/push_action_handler.hpp"

namespace orvanta {

std::optional<OrvantaNotificationAction> searchNotificationAction(
    const std::string& actionId, const OrvantaNotificationPayload& payload) {
  if (!payload.actionButtons) {
    return std::nullopt;
  }
  for (const auto& candidate : *payload.actionButtons) {
    if (candidate.id == actionId) {
      return candidate;
    }
  }
  return std::nullopt;
}

}  // namespace orvanta
