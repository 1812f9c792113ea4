#include "testing/fake_web_engine.hpp"

#include <algorithm>
#include <utility>

namespace orvanta::testing {

struct FakeWebEngine::Observers {
  std::uint64_t nextId = 0;
  std::map<std::uint64_t, std::pair<port::WebEngineProperty, std::function<void()>>> handlers;
};

class FakeWebEngine::Observation : public port::WebEngineObservation {
 public:
  Observation(std::weak_ptr<Observers> observers, std::uint64_t id)
      : observers_(std::move(observers)), id_(id) {}
  ~Observation() override {
    if (auto observers = observers_.lock()) {
      observers->handlers.erase(id_);
    }
  }

 private:
  std::weak_ptr<Observers> observers_;
  std::uint64_t id_;
};

FakeWebEngine::FakeWebEngine() : observers_(std::make_shared<Observers>()) {}

FakeWebEngine::~FakeWebEngine() = default;

void FakeWebEngine::load(const std::string& url) {
  loadedURLs_.push_back(url);
  if (!history_.empty()) {
    history_.resize(current_ + 1);
  }
  history_.push_back(url);
  moveTo(history_.size() - 1);
}

bool FakeWebEngine::canGoBack() const {
  return !history_.empty() && current_ > 0;
}

bool FakeWebEngine::canGoForward() const {
  return !history_.empty() && current_ + 1 < history_.size();
}

void FakeWebEngine::goBack() {
  ++goBackCount_;
  if (canGoBack()) {
    moveTo(current_ - 1);
  }
}

void FakeWebEngine::goForward() {
  ++goForwardCount_;
  if (canGoForward()) {
    moveTo(current_ + 1);
  }
}

void FakeWebEngine::moveTo(std::size_t index) {
  const bool couldGoBack = canGoBack();
  const bool couldGoForward = canGoForward();
  current_ = index;
  progress_ = 0;
  notify(port::WebEngineProperty::estimatedProgress);
  title_.reset();
  notify(port::WebEngineProperty::title);
  if (canGoBack() != couldGoBack) {
    notify(port::WebEngineProperty::canGoBack);
  }
  if (canGoForward() != couldGoForward) {
    notify(port::WebEngineProperty::canGoForward);
  }
}

std::unique_ptr<port::WebEngineObservation> FakeWebEngine::observe(port::WebEngineProperty property,
                                                                   std::function<void()> handler) {
  const auto id = observers_->nextId++;
  observers_->handlers.emplace(id, std::make_pair(property, std::move(handler)));
  return std::make_unique<Observation>(observers_, id);
}

void FakeWebEngine::setProgress(double progress) {
  progress_ = progress;
  notify(port::WebEngineProperty::estimatedProgress);
}

void FakeWebEngine::finishLoading(std::optional<std::string> title) {
  setProgress(1.0);
  setTitle(std::move(title));
}

void FakeWebEngine::setTitle(std::optional<std::string> title) {
  title_ = std::move(title);
  notify(port::WebEngineProperty::title);
}

std::optional<std::string> FakeWebEngine::currentURL() const {
  if (history_.empty()) {
    return std::nullopt;
  }
  return history_[current_];
}

std::size_t FakeWebEngine::observerCount(port::WebEngineProperty property) const {
  return static_cast<std::size_t>(
      std::count_if(observers_->handlers.begin(), observers_->handlers.end(),
                    [&](const auto& entry) { return entry.second.first == property; }));
}

void FakeWebEngine::notify(port::WebEngineProperty property) {
  // Handlers may add or drop observations while they run.
  std::vector<std::function<void()>> handlers;
  for (const auto& [id, entry] : observers_->handlers) {
    if (entry.first == property) {
      handlers.push_back(entry.second);
    }
  }
  for (const auto& handler : handlers) {
    handler();
  }
}

FakeWebViewSurface::FakeWebViewSurface(std::shared_ptr<port::WebViewScreen> screen)
    : screen_(std::move(screen)) {}

void FakeWebViewSurface::dismiss(bool animated) {
  ++dismissCount_;
  lastDismissAnimated_ = animated;
  screen_.reset();
}

void FakeWebViewSurface::pressClose() {
  if (auto screen = screen_) {
    screen->closeButtonPressed();
  }
}

bool FakeWebViewSurface::pressBack() {
  auto screen = screen_;
  if (!screen || !backEnabled_) {
    return false;
  }
  screen->backToolbarButtonPressed();
  return true;
}

bool FakeWebViewSurface::pressForward() {
  auto screen = screen_;
  if (!screen || !forwardEnabled_) {
    return false;
  }
  screen->forwardToolbarButtonPressed();
  return true;
}

}  // namespace orvanta::testing
