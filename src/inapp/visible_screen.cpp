#include "inapp/visible_screen.hpp"

#include <utility>

namespace orvanta {

std::shared_ptr<port::Screen> visibleScreen(std::shared_ptr<port::Screen> from) {
  auto screen = std::move(from);
  while (screen) {
    if (auto presented = screen->presentedScreen()) {
      screen = std::move(presented);
      continue;
    }
    switch (screen->kind()) {
      case port::Screen::Kind::navigation: {
        auto stack = screen->navigationStack();
        screen = stack.empty() ? nullptr : std::move(stack.back());
        continue;
      }
      case port::Screen::Kind::tab:
        screen = screen->selectedScreen();
        continue;
      case port::Screen::Kind::plain:
        break;
    }
    return screen;
  }
  return nullptr;
}

std::shared_ptr<port::Screen> visibleScreenOfKeyWindow(port::Presenter& presenter) {
  return visibleScreen(presenter.keyWindowRootScreen());
}

}  // namespace orvanta
