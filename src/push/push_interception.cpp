#include "push/push_interception.hpp"

#include <utility>

#include "core/guard.hpp"
#include "push/orvanta_push_impl.hpp"

namespace orvanta {

PushInterception::PushInterception(std::shared_ptr<OrvantaPush::Impl> push)
    : push_(std::move(push)) {}

bool PushInterception::enabled() const {
  auto push = push_.lock();
  return push && push->options()->useAutomaticConfiguration();
}

void PushInterception::willPresentNotification(
    const port::Notification& notification,
    std::function<void(port::PresentationOptions)> completionHandler) {
  detail::shielded([&] {
    if (auto push = push_.lock(); push && enabled()) {
      // A notification in front shows as an alert, without sound or badge.
      auto options = push->willPresentNotification(notification, port::kPresentationOptionAlert);
      if (completionHandler) {
        completionHandler(options);
      }
    }
  });
}

void PushInterception::didReceiveNotificationResponse(const port::NotificationResponse& response,
                                                      std::function<void()> completionHandler) {
  detail::shielded([&] {
    if (auto push = push_.lock(); push && enabled()) {
      push->didReceiveNotificationResponse(response);
      if (completionHandler) {
        completionHandler();
      }
    }
  });
}

void PushInterception::didRegisterForRemoteNotifications(
    const std::vector<std::uint8_t>& deviceToken) {
  detail::shielded([&] {
    if (auto push = push_.lock(); push && enabled()) {
      push->didRegisterForRemoteNotifications(deviceToken);
    }
  });
}

void PushInterception::didFailToRegisterForRemoteNotifications(const Error& error) {
  detail::shielded([&] {
    if (auto push = push_.lock(); push && enabled()) {
      push->didFailToRegisterForRemoteNotifications(error);
    }
  });
}

}  // namespace orvanta
