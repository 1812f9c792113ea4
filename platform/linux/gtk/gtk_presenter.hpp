#pragma once

#include <memory>

#include "orvanta/port/presenter.hpp"

// GTK's types, declared here so that including this header needs no GTK headers.
typedef struct _GtkApplication GtkApplication;
typedef struct _GtkWindow GtkWindow;

namespace orvanta::gtk_platform {

/// Presents the kit's screens with GTK 4 and WebKitGTK.
///
/// The screen tree is the application's windows: the key window is the application's active
/// window (the most recently focused one; without an application, the focused toplevel, else the
/// first visible toplevel), its root screen is the window at the bottom of its transient-for
/// chain, and a window's presented screen is the visible modal window transient for it (the most
/// recent one). GTK windows have no navigation stacks or tabs, so every screen is plain.
///
/// Alerts are modal windows transient for the screen they are presented on (a screen that is not
/// one of the application's windows means the topmost window over the key window), with the buttons
/// in the order given: the first cancel button is what escape and closing the window press, the
/// first default button is the window's default widget (return presses it), destructive buttons are
/// styled as such. The web view screen is a modal window with a header bar holding the page title
/// and a close button, a progress bar 2 pixels high under it, the page, and a toolbar with back
/// and forward buttons. Animation requests are ignored.
///
/// Main context only (the thread that runs GTK, after GTK is initialised): build, call and destroy
/// it there.
class GtkPresenter : public port::Presenter {
 public:
  /// `application` (may be null) tells which window is the key window; a reference is held.
  explicit GtkPresenter(GtkApplication* application = nullptr);
  ~GtkPresenter() override;
  GtkPresenter(const GtkPresenter&) = delete;
  GtkPresenter& operator=(const GtkPresenter&) = delete;

  std::shared_ptr<port::Screen> keyWindowRootScreen() override;
  void presentAlert(const std::shared_ptr<port::Screen>& on, port::Alert alert,
                    bool animated) override;
  void presentWebViewScreen(const std::shared_ptr<port::Screen>& on,
                            std::shared_ptr<port::WebViewScreen> screen, bool animated) override;

 private:
  /// The window of `on`; for a screen that is not one of our windows, the topmost window of the
  /// key window's presented screens.
  GtkWindow* parentFor(const std::shared_ptr<port::Screen>& on);

  GtkApplication* application_;
};

}  // namespace orvanta::gtk_platform
