#include <utility>

#include "core/guard.hpp"
#include "core/logger.hpp"
#include "models/value_json.hpp"
#include "push/orvanta_push_impl.hpp"

namespace orvanta {

namespace detail {

std::string hexString(const std::vector<std::uint8_t>& bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  text.reserve(bytes.size() * 2);
  for (std::uint8_t byte : bytes) {
    text.push_back(kDigits[byte >> 4]);
    text.push_back(kDigits[byte & 0x0F]);
  }
  return text;
}

}  // namespace detail

// --- OrvantaPushOptions ------------------------------------------------------------------------

OrvantaPushOptions::OrvantaPushOptions(port::AuthorizationOptions authorizationOptions,
                                       bool useAutomaticConfiguration)
    : authorizationOptions_(authorizationOptions),
      useAutomaticConfiguration_(useAutomaticConfiguration) {}

std::shared_ptr<OrvantaPushOptions> OrvantaPushOptions::defaultOptions() {
  return std::make_shared<OrvantaPushOptions>(port::kAuthorizationOptionBadge |
                                                  port::kAuthorizationOptionSound |
                                                  port::kAuthorizationOptionAlert,
                                              true);
}

// --- OrvantaPush: the host's side, shielded ----------------------------------------------------

OrvantaPush::OrvantaPush(std::shared_ptr<Impl> impl) : impl_(std::move(impl)) {}

OrvantaPush::~OrvantaPush() = default;

void OrvantaPush::setDelegate(std::shared_ptr<OrvantaPushDelegate> delegate) {
  detail::shielded([&] { impl_->setDelegate(std::move(delegate)); });
}

std::shared_ptr<OrvantaPushDelegate> OrvantaPush::delegate() const {
  return detail::shielded([&] { return impl_->delegate(); },
                          std::shared_ptr<OrvantaPushDelegate>());
}

void OrvantaPush::setRegistrationObserver(std::shared_ptr<OrvantaRegistrationObserver> observer) {
  detail::shielded([&] { impl_->setRegistrationObserver(std::move(observer)); });
}

std::shared_ptr<OrvantaRegistrationObserver> OrvantaPush::registrationObserver() const {
  return detail::shielded([&] { return impl_->registrationObserver(); },
                          std::shared_ptr<OrvantaRegistrationObserver>());
}

std::shared_ptr<OrvantaPushOptions> OrvantaPush::options() const {
  return impl_->options();
}

void OrvantaPush::setOptions(std::shared_ptr<OrvantaPushOptions> options) {
  detail::shielded([&] { impl_->setOptions(std::move(options)); });
}

void OrvantaPush::registerForPushNotifications(std::shared_ptr<OrvantaPushOptions> options) {
  detail::shielded([&] { impl_->registerForPushNotifications(std::move(options)); });
}

void OrvantaPush::unregisterForPushNotifications() {
  detail::shielded([&] { impl_->unregisterForPushNotifications(); });
}

void OrvantaPush::didRegisterForRemoteNotifications(const std::vector<std::uint8_t>& deviceToken) {
  detail::shielded([&] { impl_->didRegisterForRemoteNotifications(deviceToken); });
}

void OrvantaPush::didFailToRegisterForRemoteNotifications(const Error& error) {
  detail::shielded([&] { impl_->didFailToRegisterForRemoteNotifications(error); });
}

port::PresentationOptions OrvantaPush::willPresentNotification(
    const port::Notification& notification, port::PresentationOptions presentationOptions) {
  return detail::shielded(
      [&] { return impl_->willPresentNotification(notification, presentationOptions); },
      presentationOptions);
}

void OrvantaPush::didReceiveNotificationResponse(const port::NotificationResponse& response) {
  detail::shielded([&] { impl_->didReceiveNotificationResponse(response); });
}

// --- OrvantaPush::Impl -------------------------------------------------------------------------

OrvantaPush::Impl::Impl(Dependencies dependencies)
    : dependencies_(std::move(dependencies)), options_(OrvantaPushOptions::defaultOptions()) {}

void OrvantaPush::Impl::setDelegate(std::shared_ptr<OrvantaPushDelegate> delegate) {
  std::lock_guard lock(mutex_);
  delegate_ = std::move(delegate);
}

std::shared_ptr<OrvantaPushDelegate> OrvantaPush::Impl::delegate() const {
  std::lock_guard lock(mutex_);
  return delegate_.lock();
}

void OrvantaPush::Impl::setRegistrationObserver(
    std::shared_ptr<OrvantaRegistrationObserver> observer) {
  bool observe = false;
  {
    std::lock_guard lock(mutex_);
    observer_ = observer;
    observe = observer && !std::exchange(observingAuthData_, true);
  }
  if (observe) {
    std::weak_ptr<Impl> weak = weak_from_this();
    dependencies_.authData->setRegistrationOutcome(
        [weak](const OrvantaDevice& record, const std::optional<Error>& error) {
          auto self = weak.lock();
          if (!self) {
            return;
          }
          self->tellObserver([token = record.deviceToken, error](const auto& listener) {
            if (error && listener.didFailToRegister) {
              listener.didFailToRegister(*error);
            } else if (!error && listener.didRegisterWithService) {
              listener.didRegisterWithService(token);
            }
          });
        });
  }
}

std::shared_ptr<OrvantaRegistrationObserver> OrvantaPush::Impl::registrationObserver() const {
  std::lock_guard lock(mutex_);
  return observer_.lock();
}

void OrvantaPush::Impl::tellObserver(
    std::function<void(const OrvantaRegistrationObserver&)> call) const {
  if (!registrationObserver()) {
    return;
  }
  // The observer is looked up again when the work runs: one released meanwhile is not called.
  std::weak_ptr<const Impl> weak = weak_from_this();
  dependencies_.mainQueue->async([weak, call = std::move(call)] {
    auto self = weak.lock();
    auto observer = self ? self->registrationObserver() : nullptr;
    if (observer) {
      detail::shielded([&] { call(*observer); });
    }
  });
}

std::shared_ptr<OrvantaPushOptions> OrvantaPush::Impl::options() const {
  std::lock_guard lock(mutex_);
  return options_;
}

void OrvantaPush::Impl::setOptions(std::shared_ptr<OrvantaPushOptions> options) {
  if (!options) {
    return;
  }
  std::lock_guard lock(mutex_);
  options_ = std::move(options);
}

void OrvantaPush::Impl::registerForPushNotifications(std::shared_ptr<OrvantaPushOptions> options) {
  if (!options) {
    options = OrvantaPushOptions::defaultOptions();
  }
  const auto authorization = options->authorizationOptions();
  setOptions(std::move(options));
  std::weak_ptr<Impl> weak = weak_from_this();
  dependencies_.notificationCenter->requestAuthorization(
      authorization, [weak](bool granted, const std::optional<Error>&) {
        auto self = weak.lock();
        if (!granted || !self) {
          return;
        }
        self->dependencies_.mainQueue->async([weak] {
          if (auto owner = weak.lock()) {
            owner->dependencies_.application->registerForRemoteNotifications();
          }
        });
        OrvantaLogger::info("Successfully registered for Push Notifications");
      });
}

void OrvantaPush::Impl::unregisterForPushNotifications() {
  std::weak_ptr<Impl> weak = weak_from_this();
  dependencies_.mainQueue->async([weak] {
    if (auto self = weak.lock()) {
      self->dependencies_.application->unregisterForRemoteNotifications();
    }
  });
}

void OrvantaPush::Impl::didRegisterForRemoteNotifications(
    const std::vector<std::uint8_t>& deviceToken) {
  const std::string token = detail::hexString(deviceToken);
  // Told before the registration starts, so the observer hears of the token before its outcome.
  tellObserver([token](const auto& observer) {
    if (observer.didReceiveToken) {
      observer.didReceiveToken(token);
    }
  });
  dependencies_.authData->storeDeviceTokenAndRegister(token);
  OrvantaLogger::info("APNs token retrieved: " + token);
  dependencies_.categoriesFactory->setNotificationCategories(*dependencies_.notificationCenter);
}

void OrvantaPush::Impl::didFailToRegisterForRemoteNotifications(const Error& error) {
  OrvantaLogger::error([&] {
    return "Failed to register for remote notifications with error: " +
           error.localizedDescription();
  });
  tellObserver([error](const auto& observer) {
    if (observer.didFailToRegister) {
      observer.didFailToRegister(error);
    }
  });
}

port::PresentationOptions OrvantaPush::Impl::willPresentNotification(
    const port::Notification& notification, port::PresentationOptions presentationOptions) {
  const ValueMap& userInfo = notification.request.content.userInfo;
  if (auto json = detail::valueToJson(Value(userInfo))) {
    OrvantaLogger::debug([&] { return ":love_letter: Notification Recived: " + json->dump(2); });
  } else {
    OrvantaLogger::error(Error(Error::Domain::decoding, 0, "Invalid type in JSON write"));
  }
  if (auto listener = delegate(); listener && listener->didRecieveNotificationWithUserInfo) {
    detail::shielded([&] { listener->didRecieveNotificationWithUserInfo(userInfo); });
  }
  return presentationOptions;
}

void OrvantaPush::Impl::didReceiveNotificationResponse(const port::NotificationResponse& response) {
  const std::string& actionIdentifier = response.actionIdentifier;
  auto payload =
      OrvantaNotificationPayload::fromUserInfo(response.notification.request.content.userInfo);
  if (!payload) {
    return;  // not one of the kit's pushes
  }
  auto deviceToken = dependencies_.authData->device().deviceToken;
  if (!deviceToken) {
    return;
  }
  using Status = OrvantaNotificationStatus;
  if (actionIdentifier == port::kDefaultActionIdentifier) {
    handleOpenedNotification(*payload);
    dependencies_.statusReporter->report(Status::PushReportStatus::reactedOn, payload->id,
                                         *deviceToken, Status::DetailsType::click, std::nullopt);
  } else {
    handleNotificationAction(actionIdentifier, *payload);
    dependencies_.statusReporter->report(Status::PushReportStatus::reactedOn, payload->id,
                                         *deviceToken, std::nullopt, actionIdentifier);
  }
}

void OrvantaPush::Impl::handleOpenedNotification(const OrvantaNotificationPayload& payload) {
  if (auto listener = delegate(); listener && listener->didOpenNotificationWithUserInfo) {
    detail::shielded([&] { listener->didOpenNotificationWithUserInfo(payload.userInfo); });
    return;
  }
  if (payload.action) {
    dependencies_.actionHandler->handleAction(*payload.action);
  }
}

void OrvantaPush::Impl::handleNotificationAction(const std::string& identifier,
                                                 const OrvantaNotificationPayload& payload) {
  if (identifier == port::kDefaultActionIdentifier) {
    return;
  }
  OrvantaLogger::debug(
      [&] { return "Did click on notification action with id: \"" + identifier + "\""; });
  if (auto listener = delegate(); listener && listener->didClickOnActionButtonWithIdentifier) {
    detail::shielded(
        [&] { listener->didClickOnActionButtonWithIdentifier(identifier, payload.userInfo); });
    return;
  }
  if (auto action = searchNotificationAction(identifier, payload)) {
    dependencies_.actionHandler->handleAction(*action);
  }
}

}  // namespace orvanta
