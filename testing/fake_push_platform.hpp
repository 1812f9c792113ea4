#pragma once

// Recording stand-ins for the platform's push side, for tests of the push facade: a notification
// centre and an application object that keep what they are asked, and a pushes service that keeps
// the statuses it is given. Completions run on the main queue the test hands them.

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "networking/pushes_service.hpp"
#include "orvanta/port/application.hpp"
#include "orvanta/port/main_queue.hpp"
#include "orvanta/port/notification_center.hpp"

namespace orvanta::testing {

class RecordingNotificationCenter : public port::NotificationCenter {
 public:
  explicit RecordingNotificationCenter(std::shared_ptr<port::MainQueue> queue)
      : queue_(std::move(queue)) {}

  /// What the next permission requests answer.
  void grant(bool granted) { granted_ = granted; }

  void requestAuthorization(port::AuthorizationOptions options,
                            std::function<void(bool, std::optional<Error>)> completion) override;
  void setNotificationCategories(std::vector<port::NotificationCategory> categories) override;
  void add(port::NotificationRequest request,
           std::function<void(std::optional<Error>)> completion) override;
  void setDelegate(std::weak_ptr<port::NotificationCenterDelegate> delegate) override;
  std::shared_ptr<port::NotificationCenterDelegate> delegate() const override;

  std::vector<port::AuthorizationOptions> authorizationRequests() const;
  /// The notifications it was asked to show, in order.
  std::vector<port::NotificationRequest> added() const;
  /// Each set of categories installed, in order.
  std::vector<std::vector<port::NotificationCategory>> installedCategories() const;

 private:
  std::shared_ptr<port::MainQueue> queue_;
  bool granted_ = true;
  mutable std::mutex mutex_;
  std::vector<port::AuthorizationOptions> authorizationRequests_;
  std::vector<std::vector<port::NotificationCategory>> installed_;
  std::vector<port::NotificationRequest> added_;
  std::weak_ptr<port::NotificationCenterDelegate> delegate_;
};

class RecordingApplication : public port::Application {
 public:
  // URLs of the schemes "https" and "myapp" can be opened.
  void registerForRemoteNotifications() override;
  void unregisterForRemoteNotifications() override;
  bool canOpenURL(const std::string& url) override;
  void open(const std::string& url) override;
  void setDelegate(std::weak_ptr<port::ApplicationDelegate> delegate) override;

  int registrations() const;
  int unregistrations() const;
  std::vector<std::string> opened() const;

 private:
  mutable std::mutex mutex_;
  int registrations_ = 0;
  int unregistrations_ = 0;
  std::vector<std::string> opened_;
};

/// Keeps each status it is asked to report; answers success at once.
class RecordingPushesService : public PushesServiceProtocol {
 public:
  void report(const OrvantaNotificationStatus& status,
              CompletionHandler<Void> completionHandler) override;
  std::vector<OrvantaNotificationStatus> reported() const;

 private:
  mutable std::mutex mutex_;
  std::vector<OrvantaNotificationStatus> reported_;
};

}  // namespace orvanta::testing
