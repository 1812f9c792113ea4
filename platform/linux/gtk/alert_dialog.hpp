#pragma once

#include <gtk/gtk.h>

#include "orvanta/port/presenter.hpp"

namespace orvanta::gtk_platform {

/// Names given to the alert's widgets, so that tests and accessibility tools can find them.
inline constexpr const char* kAlertWindowName = "orvanta-alert";
inline constexpr const char* kAlertButtonName = "orvanta-alert-button";

/// Shows `alert` as a modal message window transient for `parent` (may be null), laid out like
/// GTK's message dialogs: the title in bold, the message under it, then the buttons side by side
/// in the order given. A button press (or escape / closing the window, which press the first
/// cancel button) closes the window, then runs the button's handler on the main context; an
/// alert without a cancel button can only be closed by one of its buttons. The window owns the
/// alert and is owned by GTK until it closes. Main context only.
GtkWindow* showAlertDialog(GtkWindow* parent, port::Alert alert);

}  // namespace orvanta::gtk_platform
