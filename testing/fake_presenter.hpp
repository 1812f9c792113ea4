#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "orvanta/port/presenter.hpp"
#include "testing/fake_web_engine.hpp"

namespace orvanta::testing {

/// A screen of a made-up screen tree; a test sets what it presents and contains.
class FakeScreen : public port::Screen {
 public:
  explicit FakeScreen(std::string name, Kind kind = Kind::plain)
      : name_(std::move(name)), kind_(kind) {}

  static std::shared_ptr<FakeScreen> plain(std::string name) {
    return std::make_shared<FakeScreen>(std::move(name));
  }
  static std::shared_ptr<FakeScreen> navigation(std::string name,
                                                std::vector<std::shared_ptr<port::Screen>> stack) {
    auto screen = std::make_shared<FakeScreen>(std::move(name), Kind::navigation);
    screen->stack = std::move(stack);
    return screen;
  }
  static std::shared_ptr<FakeScreen> tab(std::string name, std::shared_ptr<port::Screen> selected) {
    auto screen = std::make_shared<FakeScreen>(std::move(name), Kind::tab);
    screen->selected = std::move(selected);
    return screen;
  }

  const std::string& name() const { return name_; }

  Kind kind() const override { return kind_; }
  std::shared_ptr<port::Screen> presentedScreen() const override { return presented; }
  std::vector<std::shared_ptr<port::Screen>> navigationStack() const override { return stack; }
  std::shared_ptr<port::Screen> selectedScreen() const override { return selected; }

  std::shared_ptr<port::Screen> presented;
  std::vector<std::shared_ptr<port::Screen>> stack;
  std::shared_ptr<port::Screen> selected;

 private:
  std::string name_;
  Kind kind_;
};

/// A presenter that shows nothing and records what it was asked to show. Alerts can be answered
/// with `press`, which, like a platform, closes the alert first and then runs the button's
/// handler. A web view screen gets a `FakeWebViewSurface` (so its `viewDidLoad` runs) that the
/// test can drive.
class RecordingPresenter : public port::Presenter {
 public:
  struct PresentedAlert {
    std::shared_ptr<port::Screen> on;
    port::Alert alert;
    bool animated = false;
    bool open = true;
  };
  struct PresentedWebView {
    std::shared_ptr<port::Screen> on;
    std::shared_ptr<port::WebViewScreen> screen;
    std::shared_ptr<FakeWebViewSurface> surface;
    bool animated = false;
  };

  /// The key window's root screen; null means there is no key window.
  std::shared_ptr<port::Screen> root;

  std::shared_ptr<port::Screen> keyWindowRootScreen() override { return root; }
  void presentAlert(const std::shared_ptr<port::Screen>& on, port::Alert alert,
                    bool animated) override;
  void presentWebViewScreen(const std::shared_ptr<port::Screen>& on,
                            std::shared_ptr<port::WebViewScreen> screen, bool animated) override;

  const std::vector<PresentedAlert>& alerts() const { return alerts_; }
  const std::vector<PresentedWebView>& webViews() const { return webViews_; }

  /// Button titles of alert `alertIndex`, in order.
  std::vector<std::string> buttonTitles(std::size_t alertIndex = 0) const;
  /// Presses button `buttonIndex` of alert `alertIndex`: the alert closes, then the handler runs.
  /// False (nothing run) when there is no such button or the alert is already closed.
  bool press(std::size_t alertIndex, std::size_t buttonIndex);

 private:
  std::vector<PresentedAlert> alerts_;
  std::vector<PresentedWebView> webViews_;
};

}  // namespace orvanta::testing
