#include "linux/gtk/gtk_presenter.hpp"

#include <gtk/gtk.h>

#include <utility>

#include "linux/gtk/alert_dialog.hpp"
#include "linux/gtk/web_view_window.hpp"
#include "linux/gtk/window_screen.hpp"

namespace orvanta::gtk_platform {

namespace {

/// The focused visible toplevel, else the first visible toplevel that is transient for nothing.
GtkWindow* keyToplevel() {
  GListModel* toplevels = gtk_window_get_toplevels();
  GtkWindow* active = nullptr;
  GtkWindow* firstRoot = nullptr;
  for (guint i = 0, count = g_list_model_get_n_items(toplevels); i < count; ++i) {
    auto* window = static_cast<GtkWindow*>(g_list_model_get_item(toplevels, i));
    if (gtk_widget_get_visible(GTK_WIDGET(window))) {
      if (!active && gtk_window_is_active(window)) {
        active = window;
      }
      if (!firstRoot && !gtk_window_get_transient_for(window)) {
        firstRoot = window;
      }
    }
    g_object_unref(window);  // the list keeps it alive
  }
  return active ? active : firstRoot;
}

}  // namespace

GtkPresenter::GtkPresenter(GtkApplication* application) : application_(application) {
  if (application_) {
    g_object_ref(application_);
  }
}

GtkPresenter::~GtkPresenter() {
  if (application_) {
    g_object_unref(application_);
  }
}

std::shared_ptr<port::Screen> GtkPresenter::keyWindowRootScreen() {
  GtkWindow* window =
      application_ ? gtk_application_get_active_window(application_) : keyToplevel();
  if (!window || !gtk_widget_get_visible(GTK_WIDGET(window))) {
    return nullptr;
  }
  // Screens presented over the root are windows of their own: climb back to the root.
  while (GtkWindow* parent = gtk_window_get_transient_for(window)) {
    window = parent;
  }
  return std::make_shared<WindowScreen>(window);
}

GtkWindow* GtkPresenter::parentFor(const std::shared_ptr<port::Screen>& on) {
  if (GtkWindow* window = windowOf(on)) {
    return window;
  }
  // Not one of our windows: the top of the key window's presented screens.
  auto screen = keyWindowRootScreen();
  while (screen) {
    auto presented = screen->presentedScreen();
    if (!presented) {
      break;
    }
    screen = std::move(presented);
  }
  return windowOf(screen);
}

void GtkPresenter::presentAlert(const std::shared_ptr<port::Screen>& on, port::Alert alert, bool) {
  showAlertDialog(parentFor(on), std::move(alert));
}

void GtkPresenter::presentWebViewScreen(const std::shared_ptr<port::Screen>& on,
                                        std::shared_ptr<port::WebViewScreen> screen, bool) {
  if (!screen) {
    return;
  }
  auto surface = WebViewWindow::create(parentFor(on), screen);
  screen->viewDidLoad(surface);
  surface->show();
}

}  // namespace orvanta::gtk_platform
