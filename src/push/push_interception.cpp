#include "push/push_interception.hpp"

#include <utility>

#include "core/guard.hpp"
#include "push/orvanta_push_impl.hpp"

namespace orvanta {

PushInterception::PushInterception(std::shared_ptr<OrvantaPush::Impl> push)
    : push_(std::move(push)) {}

std::shared_ptr<OrvantaPush::Impl> PushInterception::enabledPush() const {
  auto push = push_.lock();
  return push && push->options()->useAutomaticConfiguration() ? push : nullptr;
}

void PushInterception::willPresentNotification(
    const port::Notification& notification,
    std::function<void(port::PresentationOptions)> completionHandler) {
  willPresentNotification(notification, std::move(completionHandler), {});
}

void PushInterception::didReceiveNotificationResponse(const port::NotificationResponse& response,
                                                      std::function<void()> completionHandler) {
  didReceiveNotificationResponse(response, std::move(completionHandler), {});
}

void PushInterception::didRegisterForRemoteNotifications(
    const std::vector<std::uint8_t>& deviceToken) {
  didRegisterForRemoteNotifications(deviceToken, {});
}

void PushInterception::didFailToRegisterForRemoteNotifications(const Error& error) {
  detail::shielded([&] {
    if (auto push = enabledPush()) {
      push->didFailToRegisterForRemoteNotifications(error);
    }
  });
}

void PushInterception::willPresentNotification(
    const port::Notification& notification,
    std::function<void(port::PresentationOptions)> completionHandler,
    const OrvantaPushInterception::WillPresentHandler& hostHandler) {
  detail::shielded([&] {
    if (auto push = enabledPush()) {
      // A notification in front shows as an alert, without sound or badge.
      auto options = push->willPresentNotification(notification, port::kPresentationOptionAlert);
      if (completionHandler) {
        completionHandler(options);
      }
    }
  });
  if (hostHandler) {
    detail::shielded([&] { hostHandler(notification, completionHandler); });
  }
}

void PushInterception::didReceiveNotificationResponse(
    const port::NotificationResponse& response, std::function<void()> completionHandler,
    const OrvantaPushInterception::ResponseHandler& hostHandler) {
  detail::shielded([&] {
    if (auto push = enabledPush()) {
      push->didReceiveNotificationResponse(response);
      if (completionHandler) {
        completionHandler();
      }
    }
  });
  if (hostHandler) {
    detail::shielded([&] { hostHandler(response, completionHandler); });
  }
}

void PushInterception::didRegisterForRemoteNotifications(
    const std::vector<std::uint8_t>& deviceToken,
    const OrvantaPushInterception::TokenHandler& hostHandler) {
  detail::shielded([&] {
    if (auto push = enabledPush()) {
      push->didRegisterForRemoteNotifications(deviceToken);
    }
  });
  if (hostHandler) {
    detail::shielded([&] { hostHandler(deviceToken); });
  }
}

}  // namespace orvanta
