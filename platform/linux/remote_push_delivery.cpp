#include "linux/remote_push_delivery.hpp"

#include <atomic>
#include <mutex>
#include <utility>

#include "core/guard.hpp"
#include "core/health.hpp"
#include "core/logger.hpp"
#include "push/remote_notification.hpp"

namespace orvanta::linux_platform {
namespace {

constexpr std::chrono::milliseconds kDefaultBudget{30'000};

// One push on its way. The budget's timer holds it; the extension's content handler holds it
// weakly, so that an extension never keeps itself alive.
class PushInFlight : public std::enable_shared_from_this<PushInFlight> {
 public:
  PushInFlight(port::NotificationRequest request,
               std::shared_ptr<port::NotificationCenter> notificationCenter,
               std::shared_ptr<port::MainQueue> mainQueue)
      : request_(std::move(request)),
        notificationCenter_(std::move(notificationCenter)),
        mainQueue_(std::move(mainQueue)) {}

  // Main queue.
  void start(const RemotePushDelivery::ExtensionFactory& makeExtension,
             std::chrono::milliseconds budget) {
    extension_ = detail::shielded([&] { return makeExtension ? makeExtension() : nullptr; },
                                  std::shared_ptr<OrvantaNotificationServiceExtension>());
    if (!extension_) {
      show(request_.content);
      return;
    }
    auto self = shared_from_this();
    auto timer = mainQueue_->asyncAfter(budget, [self] { self->expire(); });
    {
      std::lock_guard lock(mutex_);
      timer_ = std::move(timer);
    }
    std::weak_ptr<PushInFlight> weak = self;
    auto extension = extension_;
    detail::shielded([&] {
      extension->didReceive(request_, [weak](port::NotificationContent content) {
        if (auto push = weak.lock()) {
          push->show(std::move(content));
        }
      });
    });
  }

 private:
  // Any thread; the first content wins.
  void show(port::NotificationContent content) {
    if (shown_.exchange(true)) {
      return;
    }
    cancelTimer();
    notificationCenter_->add(port::NotificationRequest{request_.identifier, std::move(content)},
                             [](const std::optional<Error>& error) {
                               health::count(error ? health::Counter::pushesDroppedNotShown
                                                   : health::Counter::pushesShown);
                             });
    // Released on the main queue, never inside one of the extension's own calls.
    mainQueue_->async([self = shared_from_this()] { self->extension_.reset(); });
  }

  // Main queue: the budget is spent.
  void expire() {
    if (shown_ || !extension_) {
      return;
    }
    auto extension = extension_;
    detail::shielded([&] { extension->serviceExtensionTimeWillExpire(); });
    if (!shown_) {
      OrvantaLogger::error(
          "The notification service extension handed no content over in time; the push is "
          "shown as it came");
      show(request_.content);
    }
  }

  void cancelTimer() {
    std::shared_ptr<port::Cancellable> timer;
    {
      std::lock_guard lock(mutex_);
      timer = std::move(timer_);
    }
    if (timer) {
      timer->cancel();
    }
  }

  const port::NotificationRequest request_;
  const std::shared_ptr<port::NotificationCenter> notificationCenter_;
  const std::shared_ptr<port::MainQueue> mainQueue_;
  std::shared_ptr<OrvantaNotificationServiceExtension> extension_;  // main queue only
  std::atomic<bool> shown_{false};
  std::mutex mutex_;
  std::shared_ptr<port::Cancellable> timer_;  // guarded by mutex_
};

}  // namespace

std::shared_ptr<RemotePushDelivery> RemotePushDelivery::make(Options options) {
  return std::shared_ptr<RemotePushDelivery>(new RemotePushDelivery(std::move(options)));
}

RemotePushDelivery::RemotePushDelivery(Options options) : options_(std::move(options)) {
  if (options_.budget <= std::chrono::milliseconds::zero()) {
    options_.budget = kDefaultBudget;
  }
}

void RemotePushDelivery::deliver(ValueMap userInfo) {
  health::count(health::Counter::pushesReceived);
  auto push = std::make_shared<PushInFlight>(notificationRequestFromUserInfo(userInfo),
                                             options_.notificationCenter, options_.mainQueue);
  ExtensionFactory makeExtension = options_.makeExtension;
  if (!makeExtension) {
    std::lock_guard lock(mutex_);
    makeExtension = kitExtension_;
  }
  options_.mainQueue->async([push, makeExtension = std::move(makeExtension),
                             budget = options_.budget] { push->start(makeExtension, budget); });
}

void RemotePushDelivery::setKitExtension(ExtensionFactory makeExtension) {
  std::lock_guard lock(mutex_);
  kitExtension_ = std::move(makeExtension);
}

}  // namespace orvanta::linux_platform
