#include "inapp/orvanta_web_view_controller.hpp"

#include <algorithm>
#include <utility>

namespace orvanta {

namespace {

constexpr port::WebEngineProperty kObservedProperties[] = {
    port::WebEngineProperty::title,
    port::WebEngineProperty::estimatedProgress,
    port::WebEngineProperty::canGoBack,
    port::WebEngineProperty::canGoForward,
};

}  // namespace

OrvantaWebViewController::OrvantaWebViewController(std::string url, Dependencies dependencies)
    : initialURL_(std::move(url)), dependencies_(std::move(dependencies)) {}

OrvantaWebViewController::~OrvantaWebViewController() = default;

void OrvantaWebViewController::viewDidLoad(std::shared_ptr<port::WebViewSurface> surface) {
  if (!surface) {
    return;
  }
  surface_ = surface;
  auto& engine = surface->webEngine();
  engine.load(initialURL_);
  for (auto property : kObservedProperties) {
    observe(engine, property);
  }
  // The surface starts in step with the engine; from here on the observations keep it so.
  for (auto property : kObservedProperties) {
    update(property);
  }
}

void OrvantaWebViewController::observe(port::WebEngine& engine, port::WebEngineProperty property) {
  std::weak_ptr<OrvantaWebViewController> weakSelf = weak_from_this();
  auto observation = engine.observe(property, [weakSelf, property] {
    if (auto self = weakSelf.lock()) {
      self->update(property);
    }
  });
  if (observation) {
    kvoDisposeBag_.push_back(std::move(observation));
  }
}

void OrvantaWebViewController::update(port::WebEngineProperty property) {
  auto surface = surface_.lock();
  if (!surface) {
    return;
  }
  auto& engine = surface->webEngine();
  switch (property) {
    case port::WebEngineProperty::title:
      surface->setTitle(engine.title());
      break;
    case port::WebEngineProperty::estimatedProgress:
      surface->setProgress(std::clamp(engine.estimatedProgress(), 0.0, 1.0));
      break;
    case port::WebEngineProperty::canGoBack:
      surface->setBackButtonEnabled(engine.canGoBack());
      break;
    case port::WebEngineProperty::canGoForward:
      surface->setForwardButtonEnabled(engine.canGoForward());
      break;
  }
}

void OrvantaWebViewController::closeButtonPressed() {
  if (!dependencies_.mainQueue) {
    return;
  }
  dependencies_.mainQueue->async([surface = surface_] {
    if (auto strong = surface.lock()) {
      strong->dismiss(true);
    }
  });
}

void OrvantaWebViewController::backToolbarButtonPressed() {
  if (auto surface = surface_.lock()) {
    auto& engine = surface->webEngine();
    if (engine.canGoBack()) {
      engine.goBack();
    }
  }
}

void OrvantaWebViewController::forwardToolbarButtonPressed() {
  if (auto surface = surface_.lock()) {
    auto& engine = surface->webEngine();
    if (engine.canGoForward()) {
      engine.goForward();
    }
  }
}

}  // namespace orvanta
