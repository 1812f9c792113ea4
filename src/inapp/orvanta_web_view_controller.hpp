#pragma once

#include <memory>
#include <string>
#include <vector>

#include "orvanta/port/main_queue.hpp"
#include "orvanta/port/presenter.hpp"
#include "orvanta/port/web_engine.hpp"

namespace orvanta {

/// The in-app browser screen that shows the target of a web view action. It decides everything
/// the screen does; the platform's surface only draws:
/// - the page at the URL it was built with is loaded when the surface is ready;
/// - the screen's title follows the page title and the progress bar the estimated progress;
/// - the back button is enabled exactly when the page can go back, the forward button exactly
///   when it can go forward, and a press goes back / forward only when that is possible;
/// - the close button dismisses the screen, animated, from the main queue.
///
/// Create it with `std::make_shared` (its bindings hold it weakly) and hand it to
/// `port::Presenter::presentWebViewScreen`. Main queue only; the engine's change handlers and the
/// dismissal run there too.
class OrvantaWebViewController : public port::WebViewScreen,
                                 public std::enable_shared_from_this<OrvantaWebViewController> {
 public:
  struct Dependencies {
    std::shared_ptr<port::MainQueue> mainQueue;
  };

  OrvantaWebViewController(std::string url, Dependencies dependencies);
  ~OrvantaWebViewController() override;
  OrvantaWebViewController(const OrvantaWebViewController&) = delete;
  OrvantaWebViewController& operator=(const OrvantaWebViewController&) = delete;

  /// The page the screen opens with.
  const std::string& initialURL() const { return initialURL_; }

  void viewDidLoad(std::shared_ptr<port::WebViewSurface> surface) override;
  void closeButtonPressed() override;
  void backToolbarButtonPressed() override;
  void forwardToolbarButtonPressed() override;

 private:
  void observe(port::WebEngine& engine, port::WebEngineProperty property);
  /// Copies one engine property onto the surface.
  void update(port::WebEngineProperty property);

  std::string initialURL_;
  Dependencies dependencies_;
  std::weak_ptr<port::WebViewSurface> surface_;
  /// Keeps the four engine observations alive as long as the screen.
  std::vector<std::unique_ptr<port::WebEngineObservation>> kvoDisposeBag_;
};

}  // namespace orvanta
