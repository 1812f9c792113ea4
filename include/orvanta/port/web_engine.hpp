#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "orvanta/export.hpp"

namespace orvanta::port {

/// The four things the web view screen watches on its engine.
enum class WebEngineProperty { title, estimatedProgress, canGoBack, canGoForward };

/// Keeps an observation of a web engine alive; destroying it stops the observation. May outlive
/// the engine (destroying it then does nothing). Main queue only.
class ORVANTA_API WebEngineObservation {
 public:
  virtual ~WebEngineObservation() = default;
};

/// The engine that loads and draws a web page inside the web view screen, and keeps its
/// back/forward history. Main queue only: every member is called on the main queue and every
/// change handler runs there.
class ORVANTA_API WebEngine {
 public:
  virtual ~WebEngine() = default;

  /// Starts loading `url`, replacing what is shown. Progress and the other properties report as
  /// the page loads. Main queue only.
  virtual void load(const std::string& url) = 0;

  /// The page's title; none before the page has one. Main queue only.
  virtual std::optional<std::string> title() const = 0;
  /// How much of the page has loaded, from 0 to 1. Main queue only.
  virtual double estimatedProgress() const = 0;
  /// Whether the history has a page before the current one. Main queue only.
  virtual bool canGoBack() const = 0;
  /// Whether the history has a page after the current one. Main queue only.
  virtual bool canGoForward() const = 0;

  /// Loads the previous page of the history; does nothing when there is none. Main queue only.
  virtual void goBack() = 0;
  /// Loads the next page of the history; does nothing when there is none. Main queue only.
  virtual void goForward() = 0;

  /// Calls `handler` on the main queue each time `property` may have changed (a handler reads
  /// the new value itself; a call without a change is allowed). Handlers may run inside `load`,
  /// `goBack` and `goForward`, never inside `observe`. The observation lasts until the returned
  /// object is destroyed or the engine is gone. Main queue only.
  virtual std::unique_ptr<WebEngineObservation> observe(WebEngineProperty property,
                                                        std::function<void()> handler) = 0;
};

}  // namespace orvanta::port
