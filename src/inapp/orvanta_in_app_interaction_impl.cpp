#include "inapp/orvanta_in_app_interaction_impl.hpp"

#include <utility>

#include "core/logger.hpp"
#include "inapp/orvanta_web_view_controller.hpp"
#include "inapp/visible_screen.hpp"

namespace orvanta {
namespace {

using ActionType = OrvantaNotificationAction::ActionType;

/// The type as the log line names it: the case's own name.
std::string_view caseName(ActionType type) {
  switch (type) {
    case ActionType::browser:
      return "browser";
    case ActionType::deeplink:
      return "deeplink";
    case ActionType::webview:
      return "webview";
    case ActionType::none:
      return "none";
  }
  return "";
}

}  // namespace

OrvantaInAppInteraction::Impl::Impl(Dependencies dependencies)
    : dependencies_(std::move(dependencies)) {}

template <class Work>
bool OrvantaInAppInteraction::Impl::onMainQueue(Work work) {
  auto& queue = dependencies_.mainQueue;
  if (!queue || queue->isCurrent()) {
    return false;
  }
  std::weak_ptr<Impl> weak = weak_from_this();
  queue->async([weak, work = std::move(work)]() mutable {
    if (auto self = weak.lock()) {
      work(*self);
    }
  });
  return true;
}

AlertControllerFactory OrvantaInAppInteraction::Impl::alertControllerFactory() {
  std::weak_ptr<Impl> weak = weak_from_this();
  return AlertControllerFactory({
      .statusReporter = dependencies_.statusReporter,
      .authData = dependencies_.authData,
      .bundle = dependencies_.bundle,
      .handleAction =
          [weak](const OrvantaNotificationAction& action) {
            if (auto self = weak.lock()) {
              self->handleAction(action);
            }
          },
  });
}

void OrvantaInAppInteraction::Impl::presentInAppPushAlert(
    const std::shared_ptr<port::Screen>& on, const OrvantaNotificationPayload& payload) {
  if (onMainQueue([on, payload](Impl& self) { self.presentInAppPushAlert(on, payload); })) {
    return;
  }
  AlertControllerViewModel model;
  model.titleText = payload.title;
  model.descriptionText = payload.body;
  model.actions = alertControllerFactory().mapNotificationPayloadToAlertControllerActions(payload);
  present(model.alertController(*dependencies_.bundle), on);
}

void OrvantaInAppInteraction::Impl::presentAlertWithWebViewPresentationAction(
    const std::shared_ptr<port::Screen>& on, const std::string& title, const std::string& message,
    const std::string& url) {
  if (onMainQueue([on, title, message, url](Impl& self) {
        self.presentAlertWithWebViewPresentationAction(on, title, message, url);
      })) {
    return;
  }
  std::weak_ptr<Impl> weak = weak_from_this();
  auto alert = alertControllerFactory().prepareWebViewAlertController(
      title, message, Action<>([weak, on, url] {
        if (auto self = weak.lock()) {
          self->presentWebViewController(on, url);
        }
      }));
  present(std::move(alert), on);
}

void OrvantaInAppInteraction::Impl::presentWebViewController(
    const std::shared_ptr<port::Screen>& on, const std::string& url) {
  if (onMainQueue([on, url](Impl& self) { self.presentWebViewController(on, url); })) {
    return;
  }
  if (auto target = targetScreen(on)) {
    auto screen = std::make_shared<OrvantaWebViewController>(
        url, OrvantaWebViewController::Dependencies{dependencies_.mainQueue});
    dependencies_.presenter->presentWebViewScreen(target, std::move(screen), true);
  }
}

void OrvantaInAppInteraction::Impl::present(port::Alert alert,
                                            const std::shared_ptr<port::Screen>& on) {
  if (auto target = targetScreen(on)) {
    dependencies_.presenter->presentAlert(target, std::move(alert), true);
  }
}

std::shared_ptr<port::Screen> OrvantaInAppInteraction::Impl::targetScreen(
    const std::shared_ptr<port::Screen>& on) {
  if (!dependencies_.presenter) {
    return nullptr;
  }
  return on ? on : visibleScreenOfKeyWindow(*dependencies_.presenter);
}

void OrvantaInAppInteraction::Impl::handleAction(const OrvantaNotificationAction& action) {
  if (!action.type) {
    OrvantaLogger::error("Can't handle action, type is missing");
    return;
  }
  if (!action.url) {
    OrvantaLogger::error("Can't handle action, URL is missing");
    return;
  }
  const std::string& url = action.url->string();
  switch (*action.type) {
    case ActionType::webview:
      presentWebViewController(nullptr, url);
      return;
    case ActionType::none:
      return;
    case ActionType::browser:
    case ActionType::deeplink:
      if (dependencies_.application &&
          dependencies_.application->canOpenURLAs(url, *action.type == ActionType::browser
                                                           ? port::UrlTarget::browser
                                                           : port::UrlTarget::deepLink)) {
        dependencies_.application->open(url);
      } else {
        OrvantaLogger::error([&] {
          return "Unable to openURL: " + url + " for type: " + std::string(caseName(*action.type));
        });
      }
      return;
  }
}

}  // namespace orvanta
