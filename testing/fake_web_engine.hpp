#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "orvanta/port/presenter.hpp"
#include "orvanta/port/web_engine.hpp"

namespace orvanta::testing {

/// A web engine whose page the test describes: it sets the fields, then calls `changed` for each
/// property it changed, as an engine notifies its observers (at once, on the calling thread).
/// Loading and moving through the history only count; the real engine's history is tested with
/// WebKitGTK (tests/gtk/gtk_web_view_test.cpp).
class FakeWebEngine : public port::WebEngine {
 public:
  std::optional<std::string> pageTitle;
  double progress = 0;
  bool back = false;
  bool forward = false;
  std::vector<std::string> loadedURLs;
  int goBackCount = 0;
  int goForwardCount = 0;

  void load(const std::string& url) override { loadedURLs.push_back(url); }
  std::optional<std::string> title() const override { return pageTitle; }
  double estimatedProgress() const override { return progress; }
  bool canGoBack() const override { return back; }
  bool canGoForward() const override { return forward; }
  void goBack() override { ++goBackCount; }
  void goForward() override { ++goForwardCount; }
  std::unique_ptr<port::WebEngineObservation> observe(port::WebEngineProperty property,
                                                      std::function<void()> handler) override;

  /// Runs the live observers of `property`.
  void changed(port::WebEngineProperty property);
  /// Observations not yet released.
  std::size_t observerCount() const;

 private:
  using Handler = std::shared_ptr<std::function<void()>>;
  std::vector<std::pair<port::WebEngineProperty, std::weak_ptr<std::function<void()>>>> observers_;
};

/// A web view surface that records what the kit asked it to draw, over a `FakeWebEngine`. The
/// press helpers report a button press to the screen the way the platform would (back and
/// forward only while the button is enabled).
class FakeWebViewSurface : public port::WebViewSurface {
 public:
  explicit FakeWebViewSurface(std::shared_ptr<port::WebViewScreen> screen = nullptr)
      : screen_(std::move(screen)) {}

  port::WebEngine& webEngine() override { return engine_; }
  void setTitle(const std::optional<std::string>& title) override { title_ = title; }
  void setProgress(double progress) override { progress_ = progress; }
  void setBackButtonEnabled(bool enabled) override { backEnabled_ = enabled; }
  void setForwardButtonEnabled(bool enabled) override { forwardEnabled_ = enabled; }
  /// Counts and releases the screen (as a platform does once the screen is gone).
  void dismiss(bool animated) override;

  FakeWebEngine& engine() { return engine_; }
  const std::optional<std::string>& title() const { return title_; }
  double progress() const { return progress_; }
  bool backEnabled() const { return backEnabled_; }
  bool forwardEnabled() const { return forwardEnabled_; }
  std::size_t dismissCount() const { return dismissCount_; }
  bool lastDismissAnimated() const { return lastDismissAnimated_; }

  void pressClose();
  /// False (and nothing reported) while the button is disabled.
  bool pressBack();
  bool pressForward();

 private:
  FakeWebEngine engine_;
  std::shared_ptr<port::WebViewScreen> screen_;
  std::optional<std::string> title_;
  double progress_ = 0;
  // A platform button starts out enabled until told otherwise.
  bool backEnabled_ = true;
  bool forwardEnabled_ = true;
  std::size_t dismissCount_ = 0;
  bool lastDismissAnimated_ = false;
};

}  // namespace orvanta::testing
