#include "inapp/orvanta_in_app_interaction.hpp"

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

OrvantaInAppInteraction::OrvantaInAppInteraction(Dependencies dependencies)
    : dependencies_(std::move(dependencies)) {}

void OrvantaInAppInteraction::handleAction(const OrvantaNotificationAction& action) {
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
      if (dependencies_.application && dependencies_.application->canOpenURL(url)) {
        dependencies_.application->open(url);
      } else {
        OrvantaLogger::error([&] {
          return "Unable to openURL: " + url + " for type: " + std::string(caseName(*action.type));
        });
      }
      return;
  }
}

void OrvantaInAppInteraction::presentWebViewController(const std::shared_ptr<port::Screen>& on,
                                                       const std::string& url) {
  auto& presenter = dependencies_.presenter;
  if (!presenter) {
    return;
  }
  auto target = on ? on : visibleScreenOfKeyWindow(*presenter);
  if (!target) {
    return;
  }
  auto screen = std::make_shared<OrvantaWebViewController>(
      url, OrvantaWebViewController::Dependencies{dependencies_.mainQueue});
  presenter->presentWebViewScreen(target, std::move(screen), true);
}

std::optional<OrvantaNotificationAction> OrvantaInAppInteraction::searchNotificationAction(
    const std::string& actionId, const OrvantaNotificationPayload& payload) {
  if (!payload.actionButtons) {
    return std::nullopt;
  }
  for (const auto& candidate : *payload.actionButtons) {
    if (candidate.id == actionId) {
      return candidate;
    }
  }
  return std::nullopt;
}

}  // namespace orvanta
