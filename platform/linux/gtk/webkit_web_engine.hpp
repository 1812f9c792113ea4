#pragma once

#include <webkit/webkit.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "orvanta/port/web_engine.hpp"

namespace orvanta::gtk_platform {

/// The web engine over a WebKitGTK web view. It does not own the view (the window around it
/// does) and notices when the view goes away: from then on it reports an empty page and does
/// nothing. Change handlers run from the view's own signals (title, estimated load progress,
/// back/forward list changes and load events), on the GTK main context. Main context only.
///
/// The view shows web pages and nothing else of the machine. JavaScript stays on (pages need it),
/// but: only http and https pages are loaded, the first one included (`load` shows a page of ours
/// saying so instead), in every frame (the empty "about:blank" and "about:srcdoc" aside); a page
/// that asks for a new window gets it in the same view (http and https only); nothing is
/// downloaded (an attachment, a type WebKit cannot show, a link with "download"); file URLs get no
/// access to anything; no developer tools, no camera, microphone, location or notifications,
/// no windows opened without a click, no data: pages at the top. (WebKitGTK 6 has no plugins.)
/// Each refusal is one GLib message of the "Orvanta" domain: "The web view refused to open
/// file:///etc/passwd".
class WebKitWebEngine : public port::WebEngine {
 public:
  explicit WebKitWebEngine(WebKitWebView* view);
  ~WebKitWebEngine() override;
  WebKitWebEngine(const WebKitWebEngine&) = delete;
  WebKitWebEngine& operator=(const WebKitWebEngine&) = delete;

  void load(const std::string& url) override;
  std::optional<std::string> title() const override;
  double estimatedProgress() const override;
  bool canGoBack() const override;
  bool canGoForward() const override;
  void goBack() override;
  void goForward() override;
  std::unique_ptr<port::WebEngineObservation> observe(port::WebEngineProperty property,
                                                      std::function<void()> handler) override;

  /// The view; null once it has gone away.
  WebKitWebView* view() const;

  struct State;  ///< opaque; reached by the view's signal handlers

 private:
  class Observation;

  std::shared_ptr<State> state_;
};

}  // namespace orvanta::gtk_platform
