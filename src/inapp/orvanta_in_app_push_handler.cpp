#include "inapp/orvanta_in_app_push_handler.hpp"

#include <atomic>
#include <utility>

#include "core/guard.hpp"
#include "core/logger.hpp"

namespace orvanta {

std::shared_ptr<OrvantaInAppPushHandler> OrvantaInAppPushHandler::make(Dependencies dependencies) {
  auto handler = std::make_shared<OrvantaInAppPushHandler>(std::move(dependencies));
  handler->observeApplicationWillEnterForeground();
  handler->observeApplicationDidFinishLaunching();
  return handler;
}

OrvantaInAppPushHandler::OrvantaInAppPushHandler(Dependencies dependencies)
    : dependencies_(std::move(dependencies)) {}

void OrvantaInAppPushHandler::observeApplicationWillEnterForeground() {
  std::weak_ptr<OrvantaInAppPushHandler> weak = weak_from_this();
  auto observer =
      dependencies_.lifecycle->observe(port::LifecycleEvent::willEnterForeground, [weak] {
        if (auto self = weak.lock()) {
          self->applicationWillEnterForeground();
        }
      });
  std::lock_guard lock(mutex_);
  applicationWillEnterForegroundNotificationObserver_ = std::move(observer);
}

void OrvantaInAppPushHandler::observeApplicationDidFinishLaunching() {
  std::weak_ptr<OrvantaInAppPushHandler> weak = weak_from_this();
  auto observer =
      dependencies_.lifecycle->observe(port::LifecycleEvent::didFinishLaunching, [weak] {
        if (auto self = weak.lock()) {
          self->applicationDidFinishLaunching();
        }
      });
  std::lock_guard lock(mutex_);
  applicationDidFinishLaunchingNotificationObserver_ = std::move(observer);
}

void OrvantaInAppPushHandler::applicationWillEnterForeground() {
  checkDeviceTokenAndFetchLastPush();
}

void OrvantaInAppPushHandler::applicationDidFinishLaunching() {
  stopObservingApplicationDidFinishLaunching();
  checkDeviceTokenAndFetchLastPush();
}

void OrvantaInAppPushHandler::stopObservingApplicationDidFinishLaunching() {
  std::unique_ptr<port::LifecycleObservation> observer;  // released outside the lock
  std::lock_guard lock(mutex_);
  observer = std::move(applicationDidFinishLaunchingNotificationObserver_);
}

void OrvantaInAppPushHandler::checkDeviceTokenAndFetchLastPush() {
  auto deviceToken = dependencies_.authData->device().deviceToken;
  if (!deviceToken) {
    OrvantaLogger::error("Unable to fetch lastPush, deviceToken doesn't not exists.");
    return;
  }
  std::weak_ptr<OrvantaInAppPushHandler> weak = weak_from_this();
  CompletionHandler<OrvantaNotificationPayload> handler;
  handler.onNext = [weak, token = *deviceToken](const OrvantaNotificationPayload& payload) {
    if (auto self = weak.lock()) {
      self->handleLastPush(payload, token);
    }
  };
  handler.onError = [weak](const Error& error) {
    if (!weak.lock()) {
      return;
    }
    if (error.orvantaCase() == Error::OrvantaErrorCase::statusCode && error.code() == 404) {
      OrvantaLogger::info(Error::lastPushNotAvailable());
    } else {
      OrvantaLogger::error(error);
    }
  };
  dependencies_.devicesService->lastPush(*deviceToken, std::move(handler));
}

void OrvantaInAppPushHandler::handleLastPush(const OrvantaNotificationPayload& payload,
                                             const std::string& deviceToken) {
  if (dependencies_.commonData->lastOpenedPushId() == payload.id) {
    OrvantaLogger::error("Fetched lastPush was already opened by user.");
    return;
  }
  auto delegate = dependencies_.push->delegate();
  if (delegate && delegate->unreachedNotificationIsAvailableToDisplay) {
    auto reporter = dependencies_.push->dependencies().statusReporter;
    auto answered = std::make_shared<std::atomic<bool>>(false);
    auto completion = [reporter, answered, pushId = payload.id, deviceToken](bool displayed) {
      if (!displayed || answered->exchange(true)) {
        return;
      }
      reporter->report(OrvantaNotificationStatus::PushReportStatus::reactedOn, pushId, deviceToken,
                       OrvantaNotificationStatus::DetailsType::dismiss, std::nullopt);
    };
    detail::shielded(
        [&] { delegate->unreachedNotificationIsAvailableToDisplay(payload.userInfo, completion); });
    return;
  }
  dependencies_.inAppInteraction->presentInAppPushAlert(nullptr, payload);
}

}  // namespace orvanta
