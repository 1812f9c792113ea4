#include "linux/gtk/web_view_window.hpp"

#include <algorithm>
#include <utility>

namespace orvanta::gtk_platform {

namespace {

constexpr const char* kSurfaceKey = "orvanta-web-view-surface";
constexpr int kToolbarButtonSpacing = 45;

// A 2-pixel bar with no border, flush with the edges of the window.
constexpr const char* kStyle =
    "progressbar.orvanta-progress > trough { min-height: 2px; border: none; border-radius: 0; }"
    "progressbar.orvanta-progress > trough > progress { min-height: 2px; border: none; "
    "border-radius: 0; margin: 0; }";

void installStyle() {
  GdkDisplay* display = gdk_display_get_default();
  if (!display || g_object_get_data(G_OBJECT(display), kSurfaceKey)) {
    return;
  }
  GtkCssProvider* provider = gtk_css_provider_new();
  gtk_css_provider_load_from_data(provider, kStyle, -1);
  gtk_style_context_add_provider_for_display(display, GTK_STYLE_PROVIDER(provider),
                                             GTK_STYLE_PROVIDER_PRIORITY_APPLICATION);
  g_object_set_data_full(G_OBJECT(display), kSurfaceKey, provider, g_object_unref);
}

struct ButtonLink {
  std::weak_ptr<WebViewWindow> surface;
  WebViewWindow::Button button;
};

void onClicked(GtkButton*, gpointer data) {
  auto* link = static_cast<ButtonLink*>(data);
  if (auto surface = link->surface.lock()) {
    surface->pressed(link->button);
  }
}

void releaseButtonLink(gpointer data, GClosure*) {
  delete static_cast<ButtonLink*>(data);
}

gboolean onCloseRequest(GtkWindow* window, gpointer) {
  auto* held = static_cast<std::shared_ptr<WebViewWindow>*>(
      g_object_get_data(G_OBJECT(window), kSurfaceKey));
  if (held) {
    auto surface = *held;
    surface->pressed(WebViewWindow::Button::close);
  }
  return TRUE;  // the screen decides when the window goes
}

void releaseSurface(gpointer data) {
  delete static_cast<std::shared_ptr<WebViewWindow>*>(data);
}

GtkWidget* button(GtkWidget* widget, const char* name, WebViewWindow::Button which,
                  const std::shared_ptr<WebViewWindow>& surface) {
  gtk_widget_set_name(widget, name);
  g_signal_connect_data(widget, "clicked", G_CALLBACK(onClicked), new ButtonLink{surface, which},
                        releaseButtonLink, GConnectFlags{});
  return widget;
}

}  // namespace

WebViewWindow::WebViewWindow(std::shared_ptr<port::WebViewScreen> screen)
    : screen_(std::move(screen)) {}

std::shared_ptr<WebViewWindow> WebViewWindow::create(GtkWindow* parent,
                                                     std::shared_ptr<port::WebViewScreen> screen) {
  std::shared_ptr<WebViewWindow> surface(new WebViewWindow(std::move(screen)));
  surface->build(parent);
  return surface;
}

void WebViewWindow::build(GtkWindow* parent) {
  installStyle();
  auto self = shared_from_this();

  window_ = GTK_WINDOW(gtk_window_new());
  gtk_widget_set_name(GTK_WIDGET(window_), kWebViewWindowName);
  gtk_window_set_modal(window_, TRUE);
  gtk_window_set_destroy_with_parent(window_, TRUE);
  if (parent) {
    gtk_window_set_transient_for(window_, parent);
  }
  gtk_window_set_default_size(window_, 900, 680);
  gtk_window_set_title(window_, "");

  // The navigation bar: the page title (the window's title) and the close button.
  GtkWidget* headerBar = gtk_header_bar_new();
  gtk_header_bar_set_show_title_buttons(GTK_HEADER_BAR(headerBar), FALSE);
  gtk_header_bar_pack_start(
      GTK_HEADER_BAR(headerBar),
      button(gtk_button_new_with_label("Close"), kWebViewCloseButtonName, Button::close, self));
  gtk_window_set_titlebar(window_, headerBar);

  GtkWidget* vbox = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
  progressBar_ = gtk_progress_bar_new();
  gtk_widget_set_name(progressBar_, kWebViewProgressBarName);
  gtk_widget_add_css_class(progressBar_, "orvanta-progress");
  gtk_widget_set_hexpand(progressBar_, TRUE);
  gtk_box_append(GTK_BOX(vbox), progressBar_);

  GtkWidget* view = webkit_web_view_new();
  gtk_widget_set_hexpand(view, TRUE);
  gtk_widget_set_vexpand(view, TRUE);
  gtk_box_append(GTK_BOX(vbox), view);
  engine_ = std::make_unique<WebKitWebEngine>(WEBKIT_WEB_VIEW(view));

  // The toolbar: back, a fixed space, forward.
  GtkWidget* toolbar = gtk_action_bar_new();
  GtkWidget* items = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, kToolbarButtonSpacing);
  backButton_ = button(gtk_button_new_from_icon_name("go-previous-symbolic"),
                       kWebViewBackButtonName, Button::back, self);
  gtk_widget_set_tooltip_text(backButton_, "Back");
  forwardButton_ = button(gtk_button_new_from_icon_name("go-next-symbolic"),
                          kWebViewForwardButtonName, Button::forward, self);
  gtk_widget_set_tooltip_text(forwardButton_, "Forward");
  gtk_box_append(GTK_BOX(items), backButton_);
  gtk_box_append(GTK_BOX(items), forwardButton_);
  gtk_action_bar_pack_start(GTK_ACTION_BAR(toolbar), items);
  gtk_box_append(GTK_BOX(vbox), toolbar);
  gtk_window_set_child(window_, vbox);

  g_signal_connect(window_, "close-request", G_CALLBACK(onCloseRequest), nullptr);
  g_object_add_weak_pointer(G_OBJECT(window_), reinterpret_cast<gpointer*>(&window_));
  g_object_set_data_full(G_OBJECT(window_), kSurfaceKey, new std::shared_ptr<WebViewWindow>(self),
                         releaseSurface);
}

WebViewWindow::~WebViewWindow() {
  if (window_) {
    g_object_remove_weak_pointer(G_OBJECT(window_), reinterpret_cast<gpointer*>(&window_));
  }
}

void WebViewWindow::show() {
  if (window_) {
    gtk_window_present(window_);
  }
}

void WebViewWindow::setTitle(const std::optional<std::string>& title) {
  if (window_) {
    gtk_window_set_title(window_, title.value_or("").c_str());
  }
}

void WebViewWindow::setProgress(double progress) {
  if (window_) {
    gtk_progress_bar_set_fraction(GTK_PROGRESS_BAR(progressBar_), std::clamp(progress, 0.0, 1.0));
  }
}

void WebViewWindow::setBackButtonEnabled(bool enabled) {
  if (window_) {
    gtk_widget_set_sensitive(backButton_, enabled);
  }
}

void WebViewWindow::setForwardButtonEnabled(bool enabled) {
  if (window_) {
    gtk_widget_set_sensitive(forwardButton_, enabled);
  }
}

void WebViewWindow::dismiss(bool) {
  auto self = shared_from_this();  // destroying the window may release the last other owner
  if (window_) {
    gtk_window_destroy(window_);
  }
}

void WebViewWindow::pressed(Button which) {
  auto screen = screen_;
  if (!screen || !window_) {
    return;
  }
  try {
    switch (which) {
      case Button::close:
        screen->closeButtonPressed();
        break;
      case Button::back:
        if (gtk_widget_get_sensitive(backButton_)) {
          screen->backToolbarButtonPressed();
        }
        break;
      case Button::forward:
        if (gtk_widget_get_sensitive(forwardButton_)) {
          screen->forwardToolbarButtonPressed();
        }
        break;
    }
  } catch (...) {
    // Never unwind through GTK's signal emission.
  }
}

}  // namespace orvanta::gtk_platform
