#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "orvanta/port/presenter.hpp"
#include "orvanta/port/web_engine.hpp"

namespace orvanta::testing {

/// A web engine with a history and no network. `load` adds a page after the current one (dropping
/// the pages ahead of it) and starts it at progress 0 with no title; the test moves it along with
/// `setProgress` and `finishLoading`. Every change notifies the observers of the property that
/// changed, at once, on the calling thread. Counts what it was asked to do.
class FakeWebEngine : public port::WebEngine {
 public:
  FakeWebEngine();
  ~FakeWebEngine() override;

  void load(const std::string& url) override;
  std::optional<std::string> title() const override { return title_; }
  double estimatedProgress() const override { return progress_; }
  bool canGoBack() const override;
  bool canGoForward() const override;
  void goBack() override;
  void goForward() override;
  std::unique_ptr<port::WebEngineObservation> observe(port::WebEngineProperty property,
                                                      std::function<void()> handler) override;

  /// The page loading reports progress.
  void setProgress(double progress);
  /// The page finished loading with this title (progress 1).
  void finishLoading(std::optional<std::string> title);
  /// The page changed its title by itself.
  void setTitle(std::optional<std::string> title);

  /// URLs passed to `load`, in order.
  const std::vector<std::string>& loadedURLs() const { return loadedURLs_; }
  /// The URL of the current history entry; none before the first load.
  std::optional<std::string> currentURL() const;
  std::size_t goBackCount() const { return goBackCount_; }
  std::size_t goForwardCount() const { return goForwardCount_; }
  /// Live observations of `property`.
  std::size_t observerCount(port::WebEngineProperty property) const;

 private:
  struct Observers;
  class Observation;

  void notify(port::WebEngineProperty property);
  /// Applies a history move and notifies whatever it changed.
  void moveTo(std::size_t index);

  std::shared_ptr<Observers> observers_;
  std::vector<std::string> history_;
  std::size_t current_ = 0;
  std::optional<std::string> title_;
  double progress_ = 0;
  std::vector<std::string> loadedURLs_;
  std::size_t goBackCount_ = 0;
  std::size_t goForwardCount_ = 0;
};

/// A web view surface that records what the kit asked it to draw, over a `FakeWebEngine`. A press
/// helper reports a button press to the screen the way the platform would (the back and forward
/// presses only while the button is enabled).
class FakeWebViewSurface : public port::WebViewSurface {
 public:
  explicit FakeWebViewSurface(std::shared_ptr<port::WebViewScreen> screen = nullptr);

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
