#pragma once

#include <gtk/gtk.h>

#include <memory>

#include "orvanta/port/presenter.hpp"

namespace orvanta::gtk_platform {

/// A GTK window as a screen of the kit's screen tree (see `GtkPresenter`). Holds a reference to
/// the window. Main context only.
class WindowScreen : public port::Screen {
 public:
  explicit WindowScreen(GtkWindow* window);
  ~WindowScreen() override;
  WindowScreen(const WindowScreen&) = delete;
  WindowScreen& operator=(const WindowScreen&) = delete;

  GtkWindow* window() const { return window_; }

  /// The visible modal window transient for this one, the most recent if there are several.
  std::shared_ptr<port::Screen> presentedScreen() const override;

 private:
  GtkWindow* window_;
};

/// The window a screen stands for; null for a screen that is not a GTK window, or a window that
/// is no longer shown.
GtkWindow* windowOf(const std::shared_ptr<port::Screen>& screen);

}  // namespace orvanta::gtk_platform
