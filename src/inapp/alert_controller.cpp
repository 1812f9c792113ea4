#include "inapp/alert_controller.hpp"

#include <utility>

#include "core/logger.hpp"
#include "push/push_action_handler.hpp"

namespace orvanta {
namespace {

using Status = OrvantaNotificationStatus;
using Factory = OrvantaPushNotificationCategoriesFactory;

std::string localized(port::Bundle& bundle, const std::string& key) {
  return bundle.localizedString(key, std::string(Factory::kStringTable));
}

/// Reports a reaction to `pushId` with the device token of the moment the button is pressed.
void reportReaction(const AlertControllerFactory::Dependencies& dependencies,
                    const std::string& pushId, std::optional<Status::DetailsType> details,
                    std::optional<std::string> actionId) {
  std::string token = dependencies.authData->device().deviceToken.value_or("");
  dependencies.statusReporter->report(Status::PushReportStatus::reactedOn, pushId, token, details,
                                      std::move(actionId));
}

/// The button that only reports: with `details` for the cancel button, none for the OK one.
Action<> reportingOnly(const AlertControllerFactory::Dependencies& dependencies,
                       const std::string& pushId, std::optional<Status::DetailsType> details) {
  return Action<>([dependencies, pushId, details] {
    reportReaction(dependencies, pushId, details, std::nullopt);
  });
}

}  // namespace

using AlertAction = AlertControllerViewModel::AlertAction;

AlertAction AlertAction::defaultAction(Action<> handler) {
  return {Kind::defaultAction, {}, port::AlertActionStyle::defaultStyle, std::move(handler)};
}

AlertAction AlertAction::cancel(Action<> handler) {
  return {Kind::cancel, {}, port::AlertActionStyle::cancel, std::move(handler)};
}

AlertAction AlertAction::custom(std::string title, port::AlertActionStyle style,
                                std::optional<Action<>> handler) {
  return {Kind::custom, std::move(title), style, std::move(handler)};
}

port::Alert AlertControllerViewModel::alertController(port::Bundle& bundle) const {
  port::Alert alert{titleText, descriptionText, {}};
  for (const auto& action : actions) {
    port::AlertButton button;
    switch (action.kind) {
      case AlertAction::Kind::defaultAction:
        button.title = localized(bundle, "loc_ok");
        button.style = port::AlertActionStyle::defaultStyle;
        break;
      case AlertAction::Kind::cancel:
        button.title = localized(bundle, "loc_cancel");
        button.style = port::AlertActionStyle::cancel;
        break;
      case AlertAction::Kind::custom:
        button.title = action.title;
        button.style = action.style;
        break;
    }
    if (action.handler) {
      button.handler = [handler = *action.handler] { handler(); };
    }
    alert.buttons.push_back(std::move(button));
  }
  return alert;
}

AlertControllerFactory::AlertControllerFactory(Dependencies dependencies)
    : dependencies_(std::move(dependencies)) {}

std::vector<AlertAction> AlertControllerFactory::mapNotificationPayloadToAlertControllerActions(
    const OrvantaNotificationPayload& payload) const {
  if (payload.category) {
    if (auto category = Factory::categoryFromId(*payload.category)) {
      return alertControllerActionsForCategory(*category, payload);
    }
  }
  if (payload.action) {
    return alertControllerActionsForSingleAction(*payload.action, payload);
  }
  return defaultAlertControllerActions(payload);
}

std::vector<AlertAction> AlertControllerFactory::alertControllerActionsForCategory(
    Category category, const OrvantaNotificationPayload& payload) const {
  std::vector<AlertAction> actions;
  for (auto button : Factory::actions(category)) {
    std::string identifier = Factory::identifier(button);
    auto handler = Action<>([dependencies = dependencies_, payload, identifier] {
      auto found = searchNotificationAction(identifier, payload);
      if (!found) {
        OrvantaLogger::error(
            "Can't handle alert action, notificationPayload doesn't have action with id: " +
            identifier);
        return;
      }
      dependencies.handleAction(*found);
      reportReaction(dependencies, payload.id, std::nullopt, found->id);
    });
    actions.push_back(
        AlertAction::custom(localized(*dependencies_.bundle, Factory::titleKey(button)),
                            port::AlertActionStyle::defaultStyle, std::move(handler)));
  }
  if (actions.empty()) {
    actions.push_back(
        AlertAction::defaultAction(reportingOnly(dependencies_, payload.id, std::nullopt)));
  }
  return actions;
}

std::vector<AlertAction> AlertControllerFactory::alertControllerActionsForSingleAction(
    const OrvantaNotificationAction& action, const OrvantaNotificationPayload& payload) const {
  auto run = Action<>([dependencies = dependencies_, action, pushId = payload.id] {
    dependencies.handleAction(action);
    reportReaction(dependencies, pushId, std::nullopt, action.id);
  });
  return {
      AlertAction::defaultAction(std::move(run)),
      AlertAction::cancel(reportingOnly(dependencies_, payload.id, Status::DetailsType::dismiss))};
}

std::vector<AlertAction> AlertControllerFactory::defaultAlertControllerActions(
    const OrvantaNotificationPayload& payload) const {
  return {AlertAction::defaultAction(reportingOnly(dependencies_, payload.id, std::nullopt))};
}

port::Alert AlertControllerFactory::prepareWebViewAlertController(const std::string& title,
                                                                  const std::string& message,
                                                                  Action<> showWebView) const {
  AlertControllerViewModel model;
  model.titleText = title;
  model.descriptionText = message;
  model.actions = {
      AlertAction::cancel(Action<>([] {})),
      AlertAction::custom(localized(*dependencies_.bundle, "loc_show"),
                          port::AlertActionStyle::defaultStyle, std::move(showWebView))};
  return model.alertController(*dependencies_.bundle);
}

}  // namespace orvanta
