#include "testing/fake_presenter.hpp"

#include <utility>

namespace orvanta::testing {

void RecordingPresenter::presentAlert(const std::shared_ptr<port::Screen>& on, port::Alert alert,
                                      bool animated) {
  alerts_.push_back(PresentedAlert{on, std::move(alert), animated, true});
}

void RecordingPresenter::presentWebViewScreen(const std::shared_ptr<port::Screen>& on,
                                              std::shared_ptr<port::WebViewScreen> screen,
                                              bool animated) {
  auto surface = std::make_shared<FakeWebViewSurface>(screen);
  webViews_.push_back(PresentedWebView{on, screen, surface, animated});
  if (screen) {
    screen->viewDidLoad(surface);
  }
}

std::vector<std::string> RecordingPresenter::buttonTitles(std::size_t alertIndex) const {
  std::vector<std::string> titles;
  if (alertIndex < alerts_.size()) {
    for (const auto& button : alerts_[alertIndex].alert.buttons) {
      titles.push_back(button.title);
    }
  }
  return titles;
}

bool RecordingPresenter::press(std::size_t alertIndex, std::size_t buttonIndex) {
  if (alertIndex >= alerts_.size() || !alerts_[alertIndex].open ||
      buttonIndex >= alerts_[alertIndex].alert.buttons.size()) {
    return false;
  }
  alerts_[alertIndex].open = false;
  // Copied: the handler may present another alert, which grows `alerts_`.
  auto handler = alerts_[alertIndex].alert.buttons[buttonIndex].handler;
  if (handler) {
    handler();
  }
  return true;
}

}  // namespace orvanta::testing
