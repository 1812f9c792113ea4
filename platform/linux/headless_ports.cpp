#include "linux/headless_ports.hpp"

#include <utility>

#include "core/logger.hpp"

namespace orvanta::linux_platform {

HeadlessNotificationCenter::HeadlessNotificationCenter(std::shared_ptr<port::MainQueue> mainQueue,
                                                       std::string reason)
    : mainQueue_(std::move(mainQueue)), reason_(std::move(reason)) {}

void HeadlessNotificationCenter::requestAuthorization(
    port::AuthorizationOptions,
    std::function<void(bool granted, std::optional<Error> error)> completionHandler) {
  // The kit's push facade stays silent when permission is refused, so the centre says why.
  OrvantaLogger::error("Permission to show notifications refused: " + reason_);
  if (completionHandler) {
    mainQueue_->async([completionHandler, reason = reason_] {
      completionHandler(false, Error(Error::Domain::system, 0, reason));
    });
  }
}

void HeadlessNotificationCenter::setNotificationCategories(
    std::vector<port::NotificationCategory>) {}

void HeadlessNotificationCenter::add(port::NotificationRequest,
                                     std::function<void(std::optional<Error>)> completionHandler) {
  if (!told_.exchange(true)) {
    OrvantaLogger::error("Notifications are not shown: " + reason_);
  }
  if (completionHandler) {
    mainQueue_->async([completionHandler, reason = reason_] {
      completionHandler(Error(Error::Domain::system, 0, reason));
    });
  }
}

void HeadlessNotificationCenter::setDelegate(
    std::weak_ptr<port::NotificationCenterDelegate> delegate) {
  std::lock_guard lock(mutex_);
  delegate_ = std::move(delegate);
}

std::shared_ptr<port::NotificationCenterDelegate> HeadlessNotificationCenter::delegate() const {
  std::lock_guard lock(mutex_);
  return delegate_.lock();
}

HeadlessApplication::HeadlessApplication(std::shared_ptr<port::MainQueue> mainQueue,
                                         std::string reason)
    : mainQueue_(std::move(mainQueue)), reason_(std::move(reason)) {}

void HeadlessApplication::registerForRemoteNotifications() {
  std::weak_ptr<port::ApplicationDelegate> delegate;
  {
    std::lock_guard lock(mutex_);
    delegate = delegate_;
  }
  mainQueue_->async([delegate, reason = reason_] {
    if (auto listener = delegate.lock()) {
      listener->didFailToRegisterForRemoteNotifications(Error(Error::Domain::system, 0, reason));
    }
  });
}

void HeadlessApplication::setDelegate(std::weak_ptr<port::ApplicationDelegate> delegate) {
  std::lock_guard lock(mutex_);
  delegate_ = std::move(delegate);
}

std::shared_ptr<port::Screen> HeadlessPresenter::keyWindowRootScreen() {
  if (!told_.exchange(true)) {
    OrvantaLogger::info("No display: the kit's alerts and web view screen are not shown");
  }
  return nullptr;
}

}  // namespace orvanta::linux_platform
