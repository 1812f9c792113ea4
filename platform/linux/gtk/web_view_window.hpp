#pragma once

#include <gtk/gtk.h>

#include <memory>
#include <optional>
#include <string>

#include "linux/gtk/webkit_web_engine.hpp"
#include "orvanta/port/presenter.hpp"

namespace orvanta::gtk_platform {

/// Names given to the web view window's widgets, so that tests and accessibility tools can find
/// them.
inline constexpr const char* kWebViewWindowName = "orvanta-web-view";
inline constexpr const char* kWebViewCloseButtonName = "orvanta-web-view-close";
inline constexpr const char* kWebViewBackButtonName = "orvanta-web-view-back";
inline constexpr const char* kWebViewForwardButtonName = "orvanta-web-view-forward";
inline constexpr const char* kWebViewProgressBarName = "orvanta-web-view-progress";

/// The web view screen drawn by GTK: a modal window with a header bar (the page title, a "Close"
/// button at its start), a progress bar 2 pixels high, the WebKit view, and a toolbar with back
/// and forward buttons 45 pixels apart. Presses and requests to close the window go to the
/// screen; the window owns the surface and the surface owns the screen, so both live until the
/// window is destroyed (`dismiss`). Main context only.
class WebViewWindow : public port::WebViewSurface,
                      public std::enable_shared_from_this<WebViewWindow> {
 public:
  /// Builds the window (not shown yet) transient for `parent` (may be null).
  static std::shared_ptr<WebViewWindow> create(GtkWindow* parent,
                                               std::shared_ptr<port::WebViewScreen> screen);
  ~WebViewWindow() override;
  WebViewWindow(const WebViewWindow&) = delete;
  WebViewWindow& operator=(const WebViewWindow&) = delete;

  /// The window; null once destroyed.
  GtkWindow* window() const { return window_; }
  void show();

  port::WebEngine& webEngine() override { return *engine_; }
  void setTitle(const std::optional<std::string>& title) override;
  void setProgress(double progress) override;
  void setBackButtonEnabled(bool enabled) override;
  void setForwardButtonEnabled(bool enabled) override;
  void dismiss(bool animated) override;

  /// Reports a press to the screen (the back and forward buttons only while enabled).
  enum class Button { close, back, forward };
  void pressed(Button button);

 private:
  explicit WebViewWindow(std::shared_ptr<port::WebViewScreen> screen);
  void build(GtkWindow* parent);

  std::shared_ptr<port::WebViewScreen> screen_;
  GtkWindow* window_ = nullptr;  // weak: nulled when the window is disposed
  GtkWidget* progressBar_ = nullptr;
  GtkWidget* backButton_ = nullptr;
  GtkWidget* forwardButton_ = nullptr;
  std::unique_ptr<WebKitWebEngine> engine_;
};

}  // namespace orvanta::gtk_platform
