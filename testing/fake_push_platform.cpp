#include "testing/fake_push_platform.hpp"

#include <utility>

#include "core/uri.hpp"

namespace orvanta::testing {

void RecordingNotificationCenter::requestAuthorization(
    port::AuthorizationOptions options,
    std::function<void(bool, std::optional<Error>)> completion) {
  bool granted = false;
  {
    std::lock_guard lock(mutex_);
    authorizationRequests_.push_back(options);
    granted = granted_;
  }
  queue_->async([completion = std::move(completion), granted] {
    completion(granted,
               granted ? std::nullopt : std::optional<Error>(Error::custom("refused by the test")));
  });
}

void RecordingNotificationCenter::setNotificationCategories(
    std::vector<port::NotificationCategory> categories) {
  std::lock_guard lock(mutex_);
  installed_.push_back(std::move(categories));
}

void RecordingNotificationCenter::add(port::NotificationRequest request,
                                      std::function<void(std::optional<Error>)> completion) {
  {
    std::lock_guard lock(mutex_);
    added_.push_back(std::move(request));
  }
  if (completion) {
    queue_->async([completion = std::move(completion)] { completion(std::nullopt); });
  }
}

void RecordingNotificationCenter::setDelegate(
    std::weak_ptr<port::NotificationCenterDelegate> delegate) {
  std::lock_guard lock(mutex_);
  delegate_ = std::move(delegate);
}

std::shared_ptr<port::NotificationCenterDelegate> RecordingNotificationCenter::delegate() const {
  std::lock_guard lock(mutex_);
  return delegate_.lock();
}

std::vector<port::AuthorizationOptions> RecordingNotificationCenter::authorizationRequests() const {
  std::lock_guard lock(mutex_);
  return authorizationRequests_;
}

std::vector<port::NotificationRequest> RecordingNotificationCenter::added() const {
  std::lock_guard lock(mutex_);
  return added_;
}

std::vector<std::vector<port::NotificationCategory>>
RecordingNotificationCenter::installedCategories() const {
  std::lock_guard lock(mutex_);
  return installed_;
}

void RecordingApplication::registerForRemoteNotifications() {
  std::lock_guard lock(mutex_);
  ++registrations_;
}

void RecordingApplication::unregisterForRemoteNotifications() {
  std::lock_guard lock(mutex_);
  ++unregistrations_;
}

bool RecordingApplication::canOpenURL(const std::string& url) {
  auto components = parseUriReference(url);
  return components && components->scheme &&
         (*components->scheme == "https" || *components->scheme == "myapp");
}

void RecordingApplication::open(const std::string& url) {
  std::lock_guard lock(mutex_);
  opened_.push_back(url);
}

void RecordingApplication::setDelegate(std::weak_ptr<port::ApplicationDelegate>) {}

int RecordingApplication::registrations() const {
  std::lock_guard lock(mutex_);
  return registrations_;
}

int RecordingApplication::unregistrations() const {
  std::lock_guard lock(mutex_);
  return unregistrations_;
}

std::vector<std::string> RecordingApplication::opened() const {
  std::lock_guard lock(mutex_);
  return opened_;
}

void RecordingPushesService::report(const OrvantaNotificationStatus& status,
                                    CompletionHandler<Void> completionHandler) {
  {
    std::lock_guard lock(mutex_);
    reported_.push_back(status);
  }
  if (completionHandler.onNext) {
    completionHandler.onNext();
  }
}

std::vector<OrvantaNotificationStatus> RecordingPushesService::reported() const {
  std::lock_guard lock(mutex_);
  return reported_;
}

}  // namespace orvanta::testing
