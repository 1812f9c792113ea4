#include <gtest/gtest.h>
#include <gtk/gtk.h>
#include <webkit/webkit.h>

#include <memory>
#include <string>

#include "gtk_test_support.hpp"
#include "inapp/orvanta_web_view_controller.hpp"
#include "inapp/visible_screen.hpp"
#include "linux/gtk/gtk_main_queue.hpp"
#include "linux/gtk/gtk_presenter.hpp"
#include "linux/gtk/web_view_window.hpp"
#include "linux/gtk/window_screen.hpp"
#include "testing/loopback_http_server.hpp"

namespace orvanta::gtk_platform {
namespace {

using gtk_testing::iterateUntil;

constexpr std::uint32_t kOfferBanner = 0x1c71d8;    // the banner of the first page
constexpr std::uint32_t kDetailsBanner = 0x26a269;  // the banner of the page its link opens

std::string page(const std::string& title, const std::string& colour, const std::string& heading,
                 const std::string& body) {
  const std::string banner =
      "margin:12px 12px 0;border-radius:8px;padding:48px 32px;font-size:32px;color:#ffffff;"
      "background:" +
      colour;
  return "<!DOCTYPE html><html><head><meta charset=\"utf-8\"><title>" + title +
         "</title></head><body style=\"margin:0;font-family:sans-serif;color:#241f31\">"
         "<div style=\"" +
         banner + "\">" + heading + "</div><div style=\"padding:24px 32px;font-size:18px\">" +
         body + "</div></body></html>";
}

testing::LoopbackResponse answer(const testing::LoopbackRequest& request) {
  testing::LoopbackResponse response;
  response.headers = {{"Content-Type", "text/html; charset=utf-8"}};
  if (request.path == "/offer") {
    response.body = page("Spring offer", "#1c71d8", "Spring sale: 20% off",
                         "<p>Everything in the shop is 20% off until Sunday.</p>"
                         "<p><a id=\"details\" href=\"/details\">See the details</a></p>");
  } else if (request.path == "/details") {
    response.body = page("Offer details", "#26a269", "The small print",
                         "<p>The offer ends on Sunday at midnight.</p>");
  } else {
    response.status = 404;
  }
  return response;
}

class GtkWebViewTest : public ::testing::Test {
 protected:
  void SetUp() override {
    host_ = GTK_WINDOW(gtk_window_new());
    gtk_window_set_title(host_, "Host application");
    gtk_window_set_default_size(host_, 640, 480);
    gtk_window_present(host_);
    ASSERT_TRUE(iterateUntil([&] { return gtk_widget_get_mapped(GTK_WIDGET(host_)); }));
  }
  void TearDown() override { gtk_testing::destroyAllWindows(); }

  GtkWindow* host_ = nullptr;
  std::shared_ptr<GtkMainQueue> mainQueue_ = std::make_shared<GtkMainQueue>();
  GtkPresenter presenter_;
  testing::LoopbackHttpServer server_{answer};
};

TEST_F(GtkWebViewTest, FollowsThePageAndItsHistoryAndClosesFromTheMainQueue) {
  auto controller = std::make_shared<OrvantaWebViewController>(
      server_.url("/offer"), OrvantaWebViewController::Dependencies{mainQueue_});
  std::weak_ptr<OrvantaWebViewController> weakController = controller;
  presenter_.presentWebViewScreen(visibleScreenOfKeyWindow(presenter_), std::move(controller),
                                  true);

  GtkWindow* window = gtk_testing::visibleToplevelNamed(kWebViewWindowName);
  ASSERT_NE(window, nullptr);
  EXPECT_EQ(gtk_window_get_transient_for(window), host_);
  EXPECT_TRUE(gtk_window_get_modal(window));
  EXPECT_EQ(windowOf(visibleScreenOfKeyWindow(presenter_)), window);
  GtkWidget* back = gtk_testing::findByName(GTK_WIDGET(window), kWebViewBackButtonName);
  GtkWidget* forward = gtk_testing::findByName(GTK_WIDGET(window), kWebViewForwardButtonName);
  GtkWidget* close = gtk_testing::findByName(GTK_WIDGET(window), kWebViewCloseButtonName);
  GtkWidget* progress = gtk_testing::findByName(GTK_WIDGET(window), kWebViewProgressBarName);
  GtkWidget* view = gtk_testing::findByType(GTK_WIDGET(window), WEBKIT_TYPE_WEB_VIEW);
  ASSERT_TRUE(back && forward && close && progress && view);

  auto title = [&] { return std::string(gtk_window_get_title(window)); };
  auto loaded = [&] {
    return gtk_progress_bar_get_fraction(GTK_PROGRESS_BAR(progress)) == 1.0 &&
           !webkit_web_view_is_loading(WEBKIT_WEB_VIEW(view));
  };

  // The first page: its title is the window's, the bar is full, there is no history yet.
  ASSERT_TRUE(iterateUntil([&] { return title() == "Spring offer" && loaded(); })) << title();
  EXPECT_FALSE(gtk_widget_get_sensitive(back));
  EXPECT_FALSE(gtk_widget_get_sensitive(forward));

  // The page is really drawn: wait until the banner's colour fills a good part of the window.
  gtk_testing::Picture picture;
  auto bannerShown = [&](const gtk_testing::Picture& shot, std::uint32_t colour) {
    return shot.countNear(colour, 0, 0, shot.width(), shot.height()) > shot.width() * 30;
  };
  ASSERT_TRUE(iterateUntil([&] {
    picture = gtk_testing::takePicture(window);
    return !picture.empty() && bannerShown(picture, kOfferBanner);
  })) << "the page never showed up in the window";
  EXPECT_TRUE(picture.savePng(gtk_testing::artifactPath("web_view.png")));

  // Following the link: the title follows and back becomes possible.
  gtk_testing::runJavaScript(view, "document.getElementById('details').click();");
  ASSERT_TRUE(iterateUntil([&] { return title() == "Offer details" && loaded(); })) << title();
  ASSERT_TRUE(iterateUntil([&] { return gtk_widget_get_sensitive(back); }));
  EXPECT_FALSE(gtk_widget_get_sensitive(forward));
  ASSERT_TRUE(iterateUntil([&] {
    picture = gtk_testing::takePicture(window);
    return bannerShown(picture, kDetailsBanner);
  })) << "the linked page never showed up in the window";
  EXPECT_TRUE(picture.savePng(gtk_testing::artifactPath("web_view_details.png")));

  // Going back with the toolbar button: back is off again, forward on.
  ASSERT_TRUE(gtk_testing::press(back));
  ASSERT_TRUE(iterateUntil([&] {
    return title() == "Spring offer" && !gtk_widget_get_sensitive(back) &&
           gtk_widget_get_sensitive(forward);
  })) << title();

  // And forward again.
  ASSERT_TRUE(gtk_testing::press(forward));
  ASSERT_TRUE(iterateUntil([&] {
    return title() == "Offer details" && gtk_widget_get_sensitive(back) &&
           !gtk_widget_get_sensitive(forward);
  })) << title();
  EXPECT_EQ(server_.requestCount() >= 2, true);

  // Close: the window goes once the main queue runs the dismissal, and the screen with it.
  ASSERT_TRUE(gtk_testing::press(close));
  EXPECT_EQ(gtk_testing::visibleToplevelNamed(kWebViewWindowName), window)
      << "the dismissal waits for the main queue";
  ASSERT_TRUE(iterateUntil(
      [&] { return gtk_testing::visibleToplevelNamed(kWebViewWindowName) == nullptr; }));
  ASSERT_TRUE(iterateUntil([&] { return weakController.expired(); }));
  EXPECT_EQ(windowOf(visibleScreenOfKeyWindow(presenter_)), host_);
}

}  // namespace
}  // namespace orvanta::gtk_platform
