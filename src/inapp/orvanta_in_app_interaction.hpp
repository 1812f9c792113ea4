#pragma once

#include <memory>
#include <optional>
#include <string>

#include "models/orvanta_notification_action.hpp"
#include "models/orvanta_notification_payload.hpp"
#include "orvanta/port/application.hpp"
#include "orvanta/port/main_queue.hpp"
#include "orvanta/port/presenter.hpp"

namespace orvanta {

/// Carries out the actions of the kit's pushes in the application: opens a URL in the browser or
/// as a deep link, or shows it in the in-app web view screen. Main queue only, like everything
/// that shows something; `searchNotificationAction` may be called from any thread.
class OrvantaInAppInteraction {
 public:
  struct Dependencies {
    /// Shows the screens; none where there is no display (nothing is then shown).
    std::shared_ptr<port::Presenter> presenter;
    /// Opens URLs.
    std::shared_ptr<port::Application> application;
    /// Where the web view screen dismisses itself.
    std::shared_ptr<port::MainQueue> mainQueue;
  };

  explicit OrvantaInAppInteraction(Dependencies dependencies);

  /// Carries out `action`, checking in this order: no type logs "Can't handle action, type is
  /// missing"; no URL logs "Can't handle action, URL is missing" (a "NONE" action included);
  /// "WEBVIEW" shows the URL in the web view screen; "NONE" does nothing; "BROWSER" and
  /// "DEEPLINK" open the URL when some program can, else log "Unable to openURL: " + URL +
  /// " for type: " + the type. Main queue only.
  void handleAction(const OrvantaNotificationAction& action);

  /// Shows the web view screen for `url` over `on`, or over the visible screen of the key window
  /// when `on` is null; nothing when there is none. Main queue only.
  void presentWebViewController(const std::shared_ptr<port::Screen>& on, const std::string& url);

  /// The first of the payload's button actions whose id equals `actionId`; none when there is none
  /// (or the payload has no button actions). Any thread.
  static std::optional<OrvantaNotificationAction> searchNotificationAction(
      const std::string& actionId, const OrvantaNotificationPayload& payload);

  const Dependencies& dependencies() const { return dependencies_; }

 private:
  Dependencies dependencies_;
};

}  // namespace orvanta
