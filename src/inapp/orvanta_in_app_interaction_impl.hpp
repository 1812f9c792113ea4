#pragma once

#include <memory>
#include <optional>
#include <string>

#include "inapp/alert_controller.hpp"
#include "models/orvanta_notification_action.hpp"
#include "models/orvanta_notification_payload.hpp"
#include "networking/auth_data.hpp"
#include "orvanta/orvanta_in_app_interaction.hpp"
#include "orvanta/port/application.hpp"
#include "orvanta/port/bundle.hpp"
#include "orvanta/port/main_queue.hpp"
#include "orvanta/port/presenter.hpp"
#include "push/orvanta_notification_status_reporter.hpp"
#include "push/push_action_handler.hpp"

namespace orvanta {

/// Carries out the actions of the kit's pushes in the application and shows its in-app screens:
/// opens a URL in the browser or as a deep link, shows the web view screen, shows a push as an
/// alert with its buttons. Screens are shown on the main queue: a call made on another thread is
/// carried there. Always owned by a `std::shared_ptr`.
class OrvantaInAppInteraction::Impl : public PushActionHandler,
                                      public std::enable_shared_from_this<Impl> {
 public:
  struct Dependencies {
    /// Shows the screens.
    std::shared_ptr<port::Presenter> presenter;
    /// Opens URLs.
    std::shared_ptr<port::Application> application;
    /// Where screens are shown and the web view screen dismisses itself.
    std::shared_ptr<port::MainQueue> mainQueue;
    /// The alerts' button titles.
    std::shared_ptr<port::Bundle> bundle;
    /// What the alerts' buttons report, with the device token of `authData`.
    std::shared_ptr<OrvantaNotificationStatusReporter> statusReporter;
    std::shared_ptr<AuthData> authData;
  };

  explicit Impl(Dependencies dependencies);

  /// Shows the push as an alert: its title and body, the buttons `AlertControllerFactory`
  /// chooses. Over `on`, or the visible screen of the key window.
  void presentInAppPushAlert(const std::shared_ptr<port::Screen>& on,
                             const OrvantaNotificationPayload& payload);
  /// Shows an alert whose "loc_show" button opens `url` in the web view screen.
  void presentAlertWithWebViewPresentationAction(const std::shared_ptr<port::Screen>& on,
                                                 const std::string& title,
                                                 const std::string& message,
                                                 const std::string& url);
  /// Shows the web view screen for `url` over `on`, or over the visible screen of the key window
  /// when `on` is null; nothing when there is none.
  void presentWebViewController(const std::shared_ptr<port::Screen>& on, const std::string& url);

  /// Carries out `action`, checking in this order: no type logs "Can't handle action, type is
  /// missing"; no URL logs "Can't handle action, URL is missing" (a "NONE" action included);
  /// "WEBVIEW" shows the URL in the web view screen; "NONE" does nothing; "BROWSER" and
  /// "DEEPLINK" open the URL when the platform may open it as that (`canOpenURLAs`), else log
  /// "Unable to openURL: " + URL + " for type: " + the type.
  void handleAction(const OrvantaNotificationAction& action) override;

  const Dependencies& dependencies() const { return dependencies_; }

 private:
  AlertControllerFactory alertControllerFactory();
  /// Shows `alert` over `on` or the visible screen of the key window; nothing when there is none.
  void present(port::Alert alert, const std::shared_ptr<port::Screen>& on);
  /// `on`, else the visible screen of the key window; none without a presenter or key window.
  std::shared_ptr<port::Screen> targetScreen(const std::shared_ptr<port::Screen>& on);
  /// Runs `work` now on the main queue, or carries it there.
  template <class Work>
  bool onMainQueue(Work work);

  Dependencies dependencies_;
};

}  // namespace orvanta
