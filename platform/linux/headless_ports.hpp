#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

#include "orvanta/port/application.hpp"
#include "orvanta/port/main_queue.hpp"
#include "orvanta/port/notification_center.hpp"
#include "orvanta/port/presenter.hpp"

namespace orvanta::linux_platform {

/// The notification centre of a system that has none reachable: permission is refused with the
/// reason, nothing is shown, and the first attempt to show something says why in the kit's log.
/// Completions run on the main queue.
class HeadlessNotificationCenter : public port::NotificationCenter {
 public:
  HeadlessNotificationCenter(std::shared_ptr<port::MainQueue> mainQueue, std::string reason);

  void requestAuthorization(
      port::AuthorizationOptions options,
      std::function<void(bool granted, std::optional<Error> error)> completionHandler) override;
  void setNotificationCategories(std::vector<port::NotificationCategory> categories) override;
  void add(port::NotificationRequest request,
           std::function<void(std::optional<Error>)> completionHandler) override;
  void setDelegate(std::weak_ptr<port::NotificationCenterDelegate> delegate) override;
  std::shared_ptr<port::NotificationCenterDelegate> delegate() const override;

 private:
  std::shared_ptr<port::MainQueue> mainQueue_;
  std::string reason_;
  std::atomic<bool> told_{false};
  mutable std::mutex mutex_;
  std::weak_ptr<port::NotificationCenterDelegate> delegate_;
};

/// The application object of a system without a push transport or URL handlers: registration
/// fails with the reason (on the main queue), no URL can be opened.
class HeadlessApplication : public port::Application {
 public:
  HeadlessApplication(std::shared_ptr<port::MainQueue> mainQueue, std::string reason);

  void registerForRemoteNotifications() override;
  void unregisterForRemoteNotifications() override {}
  bool canOpenURL(const std::string&) override { return false; }
  void open(const std::string&) override {}
  void setDelegate(std::weak_ptr<port::ApplicationDelegate> delegate) override;

 private:
  std::shared_ptr<port::MainQueue> mainQueue_;
  std::string reason_;
  std::mutex mutex_;
  std::weak_ptr<port::ApplicationDelegate> delegate_;
};

/// The presenter of a host without a display: there is no key window, so nothing is shown; the
/// first time the kit looks for one, the kit's log says so once.
class HeadlessPresenter : public port::Presenter {
 public:
  std::shared_ptr<port::Screen> keyWindowRootScreen() override;
  void presentAlert(const std::shared_ptr<port::Screen>&, port::Alert, bool) override {}
  void presentWebViewScreen(const std::shared_ptr<port::Screen>&,
                            std::shared_ptr<port::WebViewScreen>, bool) override {}

 private:
  std::atomic<bool> told_{false};
};

}  // namespace orvanta::linux_platform
