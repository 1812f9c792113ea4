#include "testing/fake_web_engine.hpp"

namespace orvanta::testing {
namespace {

// Holds the handler; the engine only watches it, so releasing the observation ends it.
struct Observation : port::WebEngineObservation {
  explicit Observation(std::shared_ptr<std::function<void()>> h) : handler(std::move(h)) {}
  std::shared_ptr<std::function<void()>> handler;
};

}  // namespace

std::unique_ptr<port::WebEngineObservation> FakeWebEngine::observe(port::WebEngineProperty property,
                                                                   std::function<void()> handler) {
  auto shared = std::make_shared<std::function<void()>>(std::move(handler));
  observers_.emplace_back(property, shared);
  return std::make_unique<Observation>(std::move(shared));
}

void FakeWebEngine::changed(port::WebEngineProperty property) {
  // Copied first: handlers may add or drop observations while they run.
  std::vector<Handler> handlers;
  for (const auto& [observed, handler] : observers_) {
    if (auto live = handler.lock(); live && observed == property) {
      handlers.push_back(std::move(live));
    }
  }
  for (const auto& handler : handlers) {
    (*handler)();
  }
}

std::size_t FakeWebEngine::observerCount() const {
  std::size_t count = 0;
  for (const auto& [property, handler] : observers_) {
    count += handler.expired() ? 0 : 1;
  }
  return count;
}

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
