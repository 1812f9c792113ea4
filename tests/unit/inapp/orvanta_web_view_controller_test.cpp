#include "inapp/orvanta_web_view_controller.hpp"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>

#include "testing/fake_web_engine.hpp"
#include "testing/manual_main_queue.hpp"

namespace orvanta {
namespace {

using port::WebEngineProperty;
using testing::FakeWebViewSurface;

class OrvantaWebViewControllerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    controller_ = std::make_shared<OrvantaWebViewController>(
        "https://example.test/first", OrvantaWebViewController::Dependencies{mainQueue_});
    surface_ = std::make_shared<FakeWebViewSurface>(controller_);
    controller_->viewDidLoad(surface_);
  }

  testing::FakeWebEngine& engine() { return surface_->engine(); }

  std::shared_ptr<testing::ManualMainQueue> mainQueue_ =
      std::make_shared<testing::ManualMainQueue>();
  std::shared_ptr<OrvantaWebViewController> controller_;
  std::shared_ptr<FakeWebViewSurface> surface_;
};

TEST_F(OrvantaWebViewControllerTest, LoadsItsURLAndTheSurfaceFollowsThePage) {
  EXPECT_EQ(engine().loadedURLs, std::vector<std::string>{"https://example.test/first"});
  // The surface's buttons start enabled; nothing in the history yet, so both are switched off.
  EXPECT_FALSE(surface_->backEnabled());
  EXPECT_FALSE(surface_->forwardEnabled());
  EXPECT_EQ(surface_->title(), std::nullopt);
  EXPECT_EQ(engine().observerCount(), 4u);

  engine().progress = 0.25;
  engine().changed(WebEngineProperty::estimatedProgress);
  EXPECT_EQ(surface_->progress(), 0.25);
  engine().progress = 1.7;  // an engine overshooting still draws a full bar, no more
  engine().changed(WebEngineProperty::estimatedProgress);
  EXPECT_EQ(surface_->progress(), 1.0);
  engine().pageTitle = "First page";
  engine().changed(WebEngineProperty::title);
  EXPECT_EQ(surface_->title(), "First page");
  engine().back = true;
  engine().changed(WebEngineProperty::canGoBack);
  EXPECT_TRUE(surface_->backEnabled());
  EXPECT_FALSE(surface_->forwardEnabled());
}

TEST_F(OrvantaWebViewControllerTest, BackAndForwardMoveOnlyWhileTheHistoryAllows) {
  engine().back = true;
  engine().changed(WebEngineProperty::canGoBack);
  ASSERT_TRUE(surface_->pressBack());
  EXPECT_EQ(engine().goBackCount, 1);
  engine().forward = true;
  engine().changed(WebEngineProperty::canGoForward);
  ASSERT_TRUE(surface_->pressForward());
  EXPECT_EQ(engine().goForwardCount, 1);

  // A press that arrives when the history no longer allows it moves nothing.
  engine().back = false;
  engine().forward = false;
  controller_->backToolbarButtonPressed();
  controller_->forwardToolbarButtonPressed();
  EXPECT_EQ(engine().goBackCount, 1);
  EXPECT_EQ(engine().goForwardCount, 1);
}

TEST_F(OrvantaWebViewControllerTest, CloseDismissesAnimatedFromTheMainQueueAndReleasesTheScreen) {
  surface_->pressClose();
  EXPECT_EQ(surface_->dismissCount(), 0u) << "the dismissal waits for the main queue";
  mainQueue_->runUntilIdle();
  EXPECT_EQ(surface_->dismissCount(), 1u);
  EXPECT_TRUE(surface_->lastDismissAnimated());

  // The surface let the screen go: with the last owner gone, the engine is watched no more.
  std::weak_ptr<OrvantaWebViewController> weakController = controller_;
  controller_.reset();
  EXPECT_TRUE(weakController.expired());
  EXPECT_EQ(engine().observerCount(), 0u);
  engine().changed(WebEngineProperty::title);  // nothing listening, nothing breaks
}

TEST_F(OrvantaWebViewControllerTest, AClosePressedAfterTheSurfaceIsGoneDoesNothing) {
  controller_->closeButtonPressed();
  surface_.reset();
  EXPECT_EQ(mainQueue_->runUntilIdle(), 1u);
  controller_->backToolbarButtonPressed();  // no surface, no engine: nothing to do
}

}  // namespace
}  // namespace orvanta
