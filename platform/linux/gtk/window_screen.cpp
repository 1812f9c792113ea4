#include "linux/gtk/window_screen.hpp"

namespace orvanta::gtk_platform {

WindowScreen::WindowScreen(GtkWindow* window) : window_(window) {
  g_object_ref(window_);
}

WindowScreen::~WindowScreen() {
  g_object_unref(window_);
}

std::shared_ptr<port::Screen> WindowScreen::presentedScreen() const {
  GListModel* toplevels = gtk_window_get_toplevels();
  GtkWindow* presented = nullptr;
  // The list holds windows in the order they were created: the last match is the most recent.
  for (guint i = 0, count = g_list_model_get_n_items(toplevels); i < count; ++i) {
    auto* window = static_cast<GtkWindow*>(g_list_model_get_item(toplevels, i));
    if (gtk_window_get_transient_for(window) == window_ && gtk_window_get_modal(window) &&
        gtk_widget_get_visible(GTK_WIDGET(window))) {
      presented = window;
    }
    g_object_unref(window);
  }
  return presented ? std::make_shared<WindowScreen>(presented) : nullptr;
}

GtkWindow* windowOf(const std::shared_ptr<port::Screen>& screen) {
  auto* windowScreen = dynamic_cast<WindowScreen*>(screen.get());
  if (!windowScreen || !gtk_widget_get_visible(GTK_WIDGET(windowScreen->window()))) {
    return nullptr;
  }
  return windowScreen->window();
}

}  // namespace orvanta::gtk_platform
