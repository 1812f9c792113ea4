#pragma once

#include <memory>
#include <string>

#include "orvanta/export.hpp"
#include "orvanta/port/presenter.hpp"

namespace orvanta {

/// Shows the kit's in-app screens for the host. Main queue only (the platform's presenter runs
/// there); nothing is shown when there is no screen to show it on (no display, no key window).
class ORVANTA_API OrvantaInAppInteraction {
 public:
  /// Shows an alert with `title` and `message` and two buttons: "loc_cancel", which only closes
  /// it, and "loc_show", which opens `webViewURL` in the in-app web view screen. Over `in`, or
  /// over the visible screen of the key window when `in` is null.
  static void presentAlertWithWebViewPresentationAction(const std::shared_ptr<port::Screen>& in,
                                                        const std::string& title,
                                                        const std::string& message,
                                                        const std::string& webViewURL);

  /// Opens `url` in the in-app web view screen (title, progress bar, back and forward, close),
  /// over `in`, or over the visible screen of the key window when `in` is null.
  static void presentWebViewController(const std::shared_ptr<port::Screen>& in,
                                       const std::string& url);

  class Impl;  ///< internal
  OrvantaInAppInteraction() = delete;
};

}  // namespace orvanta
