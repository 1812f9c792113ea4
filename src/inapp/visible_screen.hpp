#pragma once

#include <memory>

#include "orvanta/port/presenter.hpp"

namespace orvanta {

/// The screen the user sees when `from` is on display: the screen presented over it first, then
/// the top of a navigation stack (none when the stack is empty), then a tab screen's selected
/// screen, each followed down as far as it goes; otherwise `from` itself. Null for a null `from`.
/// Main queue only.
std::shared_ptr<port::Screen> visibleScreen(std::shared_ptr<port::Screen> from);

/// The visible screen of the application's key window (see `visibleScreen`); null when there is
/// no key window. Main queue only.
std::shared_ptr<port::Screen> visibleScreenOfKeyWindow(port::Presenter& presenter);

}  // namespace orvanta
