#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "models/action.hpp"
#include "models/orvanta_notification_action.hpp"
#include "models/orvanta_notification_payload.hpp"
#include "networking/auth_data.hpp"
#include "orvanta/port/bundle.hpp"
#include "orvanta/port/presenter.hpp"
#include "push/orvanta_notification_status_reporter.hpp"
#include "push/push_notification_categories.hpp"

namespace orvanta {

/// What an in-app alert shows: a title, a message and its buttons in display order.
class AlertControllerViewModel {
 public:
  struct Dependencies {
    /// One button: the default one ("loc_ok"), the cancel one ("loc_cancel"), or one with a
    /// title and style of its own whose handler may be empty.
    struct AlertAction {
      enum class Kind { defaultAction, cancel, custom };
      Kind kind = Kind::defaultAction;
      std::string title;                                                    ///< custom only
      port::AlertActionStyle style = port::AlertActionStyle::defaultStyle;  ///< custom only
      std::optional<Action<>> handler;

      static AlertAction defaultAction(Action<> handler);
      static AlertAction cancel(Action<> handler);
      static AlertAction custom(std::string title, port::AlertActionStyle style,
                                std::optional<Action<>> handler);
    };
  };
  using AlertAction = Dependencies::AlertAction;

  std::optional<std::string> titleText;
  std::optional<std::string> descriptionText;
  std::vector<AlertAction> actions;

  /// The platform's alert: one button per action, in order; the two fixed titles are looked up in
  /// `bundle`'s string table.
  port::Alert alertController(port::Bundle& bundle) const;
};

/// Chooses the buttons of the in-app alert for a push, and what each one does and reports. The
/// buttons' handlers run on the main queue (they hold copies of the collaborators, not the
/// factory). Any thread.
class AlertControllerFactory {
 public:
  using AlertAction = AlertControllerViewModel::AlertAction;
  using Category = OrvantaPushNotificationCategoriesFactory::PushNotificationCategories;

  struct Dependencies {
    std::shared_ptr<OrvantaNotificationStatusReporter> statusReporter;
    /// The device token of the reports.
    std::shared_ptr<AuthData> authData;
    /// The button titles.
    std::shared_ptr<port::Bundle> bundle;
    /// Carries out an action (`OrvantaInAppInteraction`'s `handleAction`).
    std::function<void(const OrvantaNotificationAction&)> handleAction;
  };

  explicit AlertControllerFactory(Dependencies dependencies);

  /// The buttons of a push's alert: its category's buttons when it names one of the kit's
  /// categories; else, when it has an action, an OK button that runs it and a cancel button;
  /// else a single OK button. Every button reports the reaction (see each case below).
  std::vector<AlertAction> mapNotificationPayloadToAlertControllerActions(
      const OrvantaNotificationPayload& payload) const;

  /// One button per action of `category`, titled like the notification's: a press runs the
  /// payload's action of the same identifier and reports it, or logs "Can't handle alert action,
  /// notificationPayload doesn't have action with id: " + the identifier.
  std::vector<AlertAction> alertControllerActionsForCategory(
      Category category, const OrvantaNotificationPayload& payload) const;
  /// OK runs `action` and reports its id; cancel reports a dismissal and goes nowhere.
  std::vector<AlertAction> alertControllerActionsForSingleAction(
      const OrvantaNotificationAction& action, const OrvantaNotificationPayload& payload) const;
  /// A single OK button that only reports the reaction.
  std::vector<AlertAction> defaultAlertControllerActions(
      const OrvantaNotificationPayload& payload) const;

  /// The alert that offers a web view: cancel ("loc_cancel", does nothing) and "loc_show", which
  /// runs `showWebView`.
  port::Alert prepareWebViewAlertController(const std::string& title, const std::string& message,
                                            Action<> showWebView) const;

 private:
  Dependencies dependencies_;
};

}  // namespace orvanta
