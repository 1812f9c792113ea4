#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "orvanta/export.hpp"
#include "orvanta/port/web_engine.hpp"

namespace orvanta::port {

// Everything in this header is used on the main queue only: objects are created, called and
// destroyed there, and every handler runs there.

/// One screen of the host's user interface, as the kit sees it when it looks for the screen to
/// present on. A screen may have a screen presented modally over it; a navigation screen shows
/// the top of a stack of screens; a tab screen shows its selected screen. Main queue only.
class ORVANTA_API Screen {
 public:
  enum class Kind { plain, navigation, tab };

  virtual ~Screen() = default;

  /// What kind of container the screen is. Main queue only.
  virtual Kind kind() const { return Kind::plain; }
  /// The screen presented modally over this one; null when none. Main queue only.
  virtual std::shared_ptr<Screen> presentedScreen() const = 0;
  /// A navigation screen's stack, bottom first (the last one is shown). Empty for other kinds.
  /// Main queue only.
  virtual std::vector<std::shared_ptr<Screen>> navigationStack() const { return {}; }
  /// A tab screen's selected screen; null when none is selected or for other kinds. Main queue
  /// only.
  virtual std::shared_ptr<Screen> selectedScreen() const { return nullptr; }
};

/// How an alert button looks and behaves. `cancel` is the button that dismissing the alert
/// (escape, closing its window) stands for; the first `defaultStyle` button is the one the
/// return key presses.
enum class AlertActionStyle { defaultStyle, cancel, destructive };

/// One button of an alert.
struct AlertButton {
  std::string title;
  AlertActionStyle style = AlertActionStyle::defaultStyle;
  /// Runs on the main queue when the button is pressed, after the alert has closed. May be empty.
  std::function<void()> handler;
};

/// What an alert shows: a title, a message and its buttons in display order.
struct Alert {
  std::optional<std::string> title;
  std::optional<std::string> message;
  std::vector<AlertButton> buttons;
};

/// What the platform draws for the web view screen: the page (through its engine), the page
/// title as the screen's title, a progress bar 2 points high at the top, a toolbar with a back
/// and a forward button, and a close button. It reports button presses to its `WebViewScreen`.
/// Main queue only.
class ORVANTA_API WebViewSurface {
 public:
  virtual ~WebViewSurface() = default;

  /// The engine that shows the page; it lives as long as the surface. Main queue only.
  virtual WebEngine& webEngine() = 0;

  /// The screen's title; none shows an empty title. Main queue only.
  virtual void setTitle(const std::optional<std::string>& title) = 0;
  /// The progress bar's value, from 0 to 1. Main queue only.
  virtual void setProgress(double progress) = 0;
  /// Whether the back button can be pressed. Main queue only.
  virtual void setBackButtonEnabled(bool enabled) = 0;
  /// Whether the forward button can be pressed. Main queue only.
  virtual void setForwardButtonEnabled(bool enabled) = 0;

  /// Takes the screen away; the surface and its engine are released afterwards. Doing it again
  /// does nothing. Main queue only.
  virtual void dismiss(bool animated) = 0;
};

/// The kit's side of the web view screen: it decides what is loaded, what is bound to what, when
/// a button is enabled and what a press does. The platform keeps it alive while the screen is
/// shown, and calls it on the main queue.
class ORVANTA_API WebViewScreen {
 public:
  virtual ~WebViewScreen() = default;

  /// The surface has been built and is about to be shown; nothing is loaded yet. Called once,
  /// before any press is reported. The surface is owned by the platform: hold it weakly.
  virtual void viewDidLoad(std::shared_ptr<WebViewSurface> surface) = 0;
  /// The close button was pressed, or the user closed the screen another way.
  virtual void closeButtonPressed() = 0;
  /// The back button was pressed (only reported while it is enabled).
  virtual void backToolbarButtonPressed() = 0;
  /// The forward button was pressed (only reported while it is enabled).
  virtual void forwardToolbarButtonPressed() = 0;
};

/// Shows the kit's screens: the key window's screen tree, alerts and the web view screen.
/// Main queue only.
class ORVANTA_API Presenter {
 public:
  virtual ~Presenter() = default;

  /// The root screen of the application's key window; null when there is no key window (no
  /// display, or no window yet). Main queue only.
  virtual std::shared_ptr<Screen> keyWindowRootScreen() = 0;

  /// Shows `alert` modally over `on`. Pressing a button closes the alert, then runs that button's
  /// handler on the main queue; a button pressed again after that does nothing. Dismissing the
  /// alert without a button (escape, closing its window) presses its first `cancel` button, and
  /// is not possible when it has none. Main queue only.
  virtual void presentAlert(const std::shared_ptr<Screen>& on, Alert alert, bool animated) = 0;

  /// Shows the web view screen modally over `on`, inside a navigation container of its own (title
  /// bar with the close button, toolbar with back and forward). Builds the surface, calls
  /// `screen->viewDidLoad(surface)`, then shows it; `screen` is kept alive until the surface is
  /// dismissed. Main queue only.
  virtual void presentWebViewScreen(const std::shared_ptr<Screen>& on,
                                    std::shared_ptr<WebViewScreen> screen, bool animated) = 0;
};

}  // namespace orvanta::port
