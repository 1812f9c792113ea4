#include "linux/gtk/alert_dialog.hpp"

#include <cstddef>
#include <memory>
#include <optional>
#include <utility>

namespace orvanta::gtk_platform {

namespace {

// The state of one shown alert; the window holds it, signal handlers reach it weakly.
class AlertDialog {
 public:
  explicit AlertDialog(port::Alert alert) : alert_(std::move(alert)) {
    for (std::size_t i = 0; i < alert_.buttons.size(); ++i) {
      if (alert_.buttons[i].style == port::AlertActionStyle::cancel && !cancelIndex_) {
        cancelIndex_ = i;
      }
    }
  }

  const port::Alert& alert() const { return alert_; }
  std::optional<std::size_t> cancelIndex() const { return cancelIndex_; }

  void attach(GtkWindow* window) {
    window_ = window;
    g_object_add_weak_pointer(G_OBJECT(window), reinterpret_cast<gpointer*>(&window_));
  }

  ~AlertDialog() {
    if (window_) {
      g_object_remove_weak_pointer(G_OBJECT(window_), reinterpret_cast<gpointer*>(&window_));
    }
  }

  /// Closes the alert, then runs the handler of button `index`. Only the first press counts.
  void press(std::size_t index) {
    if (answered_ || index >= alert_.buttons.size()) {
      return;
    }
    answered_ = true;
    auto handler = alert_.buttons[index].handler;
    if (window_) {
      gtk_window_destroy(window_);
    }
    if (handler) {
      try {
        handler();
      } catch (...) {
        // Never unwind through GTK's signal emission.
      }
    }
  }

  /// Escape or a request to close the window: the cancel button's press, when there is one.
  void dismiss() {
    if (cancelIndex_) {
      press(*cancelIndex_);
    }
  }

 private:
  port::Alert alert_;
  std::optional<std::size_t> cancelIndex_;
  GtkWindow* window_ = nullptr;  // weak: nulled when the window goes away
  bool answered_ = false;
};

struct ButtonLink {
  std::weak_ptr<AlertDialog> dialog;
  std::size_t index;
};

void onButtonClicked(GtkButton*, gpointer data) {
  auto* link = static_cast<ButtonLink*>(data);
  if (auto dialog = link->dialog.lock()) {
    dialog->press(link->index);
  }
}

void releaseButtonLink(gpointer data, GClosure*) {
  delete static_cast<ButtonLink*>(data);
}

gboolean onCloseRequest(GtkWindow* window, gpointer) {
  auto* held = static_cast<std::shared_ptr<AlertDialog>*>(
      g_object_get_data(G_OBJECT(window), kAlertWindowName));
  if (held) {
    // Keeps the alert alive while the press destroys the window.
    auto dialog = *held;
    dialog->dismiss();
  }
  return TRUE;  // the window is destroyed by the press, or stays when there is no cancel button
}

gboolean onEscape(GtkWidget* widget, GVariant*, gpointer) {
  gtk_window_close(GTK_WINDOW(widget));
  return TRUE;
}

void releaseDialog(gpointer data) {
  delete static_cast<std::shared_ptr<AlertDialog>*>(data);
}

GtkWidget* wrappingLabel(const std::string& text) {
  GtkWidget* label = gtk_label_new(text.c_str());
  gtk_label_set_wrap(GTK_LABEL(label), TRUE);
  gtk_label_set_max_width_chars(GTK_LABEL(label), 60);
  gtk_label_set_justify(GTK_LABEL(label), GTK_JUSTIFY_CENTER);
  gtk_widget_set_halign(label, GTK_ALIGN_CENTER);
  gtk_widget_set_valign(label, GTK_ALIGN_START);
  return label;
}

}  // namespace

GtkWindow* showAlertDialog(GtkWindow* parent, port::Alert alert) {
  auto dialog = std::make_shared<AlertDialog>(std::move(alert));
  const auto& content = dialog->alert();

  auto* window = GTK_WINDOW(gtk_window_new());
  gtk_widget_set_name(GTK_WIDGET(window), kAlertWindowName);
  gtk_widget_add_css_class(GTK_WIDGET(window), "dialog");
  gtk_widget_add_css_class(GTK_WIDGET(window), "message");
  gtk_window_set_modal(window, TRUE);
  gtk_window_set_resizable(window, FALSE);
  gtk_window_set_destroy_with_parent(window, TRUE);
  if (parent) {
    gtk_window_set_transient_for(window, parent);
  }
  gtk_window_set_title(window, content.title.value_or("").c_str());

  // A bare title bar, as message dialogs have: no title (it is shown below), no window buttons.
  GtkWidget* headerBar = gtk_header_bar_new();
  gtk_header_bar_set_show_title_buttons(GTK_HEADER_BAR(headerBar), FALSE);
  gtk_header_bar_set_title_widget(GTK_HEADER_BAR(headerBar), gtk_label_new(nullptr));
  gtk_window_set_titlebar(window, headerBar);

  GtkWidget* vbox = gtk_box_new(GTK_ORIENTATION_VERTICAL, 20);
  gtk_widget_add_css_class(vbox, "dialog-vbox");
  GtkWidget* messageArea = gtk_box_new(GTK_ORIENTATION_VERTICAL, 10);
  gtk_widget_set_margin_start(messageArea, 30);
  gtk_widget_set_margin_end(messageArea, 30);
  gtk_widget_set_hexpand(messageArea, TRUE);
  if (content.title) {
    GtkWidget* title = wrappingLabel(*content.title);
    gtk_widget_add_css_class(title, "title");
    gtk_box_append(GTK_BOX(messageArea), title);
  }
  if (content.message) {
    GtkWidget* message = wrappingLabel(*content.message);
    gtk_widget_set_margin_bottom(message, 2);
    gtk_box_append(GTK_BOX(messageArea), message);
  }
  gtk_box_append(GTK_BOX(vbox), messageArea);

  GtkWidget* actionBox = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 0);
  gtk_widget_add_css_class(actionBox, "dialog-action-box");
  GtkWidget* actionArea = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 0);
  gtk_widget_add_css_class(actionArea, "dialog-action-area");
  gtk_widget_set_hexpand(actionArea, TRUE);
  gtk_widget_set_halign(actionArea, GTK_ALIGN_FILL);
  gtk_box_set_homogeneous(GTK_BOX(actionArea), TRUE);
  GtkWidget* defaultButton = nullptr;
  for (std::size_t i = 0; i < content.buttons.size(); ++i) {
    const auto& button = content.buttons[i];
    GtkWidget* widget = gtk_button_new_with_label(button.title.c_str());
    gtk_widget_set_name(widget, kAlertButtonName);
    gtk_widget_set_hexpand(widget, TRUE);
    switch (button.style) {
      case port::AlertActionStyle::defaultStyle:
        if (!defaultButton) {
          defaultButton = widget;
        }
        break;
      case port::AlertActionStyle::destructive:
        gtk_widget_add_css_class(widget, "destructive-action");
        break;
      case port::AlertActionStyle::cancel:
        break;
    }
    g_signal_connect_data(widget, "clicked", G_CALLBACK(onButtonClicked), new ButtonLink{dialog, i},
                          releaseButtonLink, GConnectFlags{});
    gtk_box_append(GTK_BOX(actionArea), widget);
  }
  gtk_box_append(GTK_BOX(actionBox), actionArea);
  gtk_box_append(GTK_BOX(vbox), actionBox);
  gtk_window_set_child(window, vbox);

  if (defaultButton) {
    gtk_window_set_default_widget(window, defaultButton);
    gtk_window_set_focus(window, defaultButton);
  }

  // Escape asks the window to close; closing presses the cancel button, if any.
  GtkEventController* shortcuts = gtk_shortcut_controller_new();
  gtk_shortcut_controller_add_shortcut(
      GTK_SHORTCUT_CONTROLLER(shortcuts),
      gtk_shortcut_new(gtk_keyval_trigger_new(GDK_KEY_Escape, GdkModifierType{}),
                       gtk_callback_action_new(onEscape, nullptr, nullptr)));
  gtk_widget_add_controller(GTK_WIDGET(window), shortcuts);
  g_signal_connect(window, "close-request", G_CALLBACK(onCloseRequest), nullptr);

  dialog->attach(window);
  g_object_set_data_full(G_OBJECT(window), kAlertWindowName,
                         new std::shared_ptr<AlertDialog>(dialog), releaseDialog);
  gtk_window_present(window);
  return window;
}

}  // namespace orvanta::gtk_platform
