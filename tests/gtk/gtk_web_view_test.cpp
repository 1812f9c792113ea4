#include <gtest/gtest.h>
#include <gtk/gtk.h>
#include <webkit/webkit.h>

#include <algorithm>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

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
constexpr std::uint32_t kEscapeBanner = 0xc01c28;   // the banner of the page that tries to escape

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
  } else if (request.path == "/escape") {
    response.body = page("Escape attempts", "#c01c28", "This page tries to leave the web",
                         "<p><a id=\"download\" href=\"/file.bin\" download>Download</a> "
                         "<a id=\"window\" href=\"/details\" target=\"_blank\">A new "
                         "window</a> <a id=\"file-window\" href=\"file:///etc/passwd\" "
                         "target=\"_blank\">A window on a file</a></p>");
  } else if (request.path == "/file.bin" || request.path == "/attachment") {
    response.headers = {{"Content-Type", "text/plain"}};
    if (request.path == "/attachment") {
      response.headers.emplace_back("Content-Disposition", "attachment; filename=\"a.txt\"");
    }
    response.body = "secret";
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
  void TearDown() override {
    gtk_testing::destroyAllWindows();
    if (messageHandler_ != 0) {
      g_log_remove_handler("Orvanta", messageHandler_);
    }
  }

  // Collects the adapter's messages from here on.
  void collectMessages() {
    messageHandler_ = g_log_set_handler(
        "Orvanta", static_cast<GLogLevelFlags>(G_LOG_LEVEL_MASK),
        [](const gchar*, GLogLevelFlags, const gchar* message, gpointer data) {
          static_cast<std::vector<std::string>*>(data)->push_back(message);
        },
        &messages_);
  }
  bool said(const std::string& message) {
    return iterateUntil(
        [&] { return std::find(messages_.begin(), messages_.end(), message) != messages_.end(); });
  }

  // Presents the web view screen for `url`: its window and its WebKit view.
  std::pair<GtkWindow*, WebKitWebView*> present(const std::string& url) {
    presenter_.presentWebViewScreen(visibleScreenOfKeyWindow(presenter_),
                                    std::make_shared<OrvantaWebViewController>(
                                        url, OrvantaWebViewController::Dependencies{mainQueue_}),
                                    true);
    GtkWindow* window = gtk_testing::visibleToplevelNamed(kWebViewWindowName);
    GtkWidget* view =
        window ? gtk_testing::findByType(GTK_WIDGET(window), WEBKIT_TYPE_WEB_VIEW) : nullptr;
    return {window, view ? WEBKIT_WEB_VIEW(view) : nullptr};
  }

  GtkWindow* host_ = nullptr;
  std::shared_ptr<GtkMainQueue> mainQueue_ = std::make_shared<GtkMainQueue>();
  GtkPresenter presenter_;
  testing::LoopbackHttpServer server_{answer};
  std::vector<std::string> messages_;
  guint messageHandler_ = 0;
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

// --- A page in the web view -------------------------------------------------------------------
// A push's WEBVIEW action names any URL, and the page it shows runs JavaScript: neither may reach
// the user's files, other programs or the disk.

TEST_F(GtkWebViewTest, APushedAddressThatIsNoWebPageIsNotLoaded) {
  collectMessages();
  for (const char* url : {"file:///etc/passwd", "javascript:alert(document.cookie)",
                          "data:text/html,<h1>forged</h1>", "x-orvanta-test:item"}) {
    SCOPED_TRACE(url);
    auto [window, view] = present(url);
    ASSERT_TRUE(window && view);
    EXPECT_TRUE(said(std::string("The web view refused to open ") + url));
    ASSERT_TRUE(
        iterateUntil([&] { return std::string(gtk_window_get_title(window)) == "Not shown"; }));
    EXPECT_EQ(std::string(webkit_web_view_get_uri(view)), "about:blank");
    // The page that says so is drawn: its dark text shows up.
    gtk_testing::Picture picture;
    ASSERT_TRUE(iterateUntil([&] {
      picture = gtk_testing::takePicture(window);
      return !picture.empty() &&
             picture.countNear(0x241f31, 0, 0, picture.width(), picture.height()) > 200;
    }));
    EXPECT_TRUE(picture.savePng(gtk_testing::artifactPath("web_view_refused.png")));
    gtk_window_destroy(window);
    ASSERT_TRUE(iterateUntil(
        [&] { return gtk_testing::visibleToplevelNamed(kWebViewWindowName) == nullptr; }));
  }
}

TEST_F(GtkWebViewTest, APageCannotLeaveTheWebNorOpenWindowsNorDownload) {
  collectMessages();
  auto [window, view] = present(server_.url("/escape"));
  ASSERT_TRUE(window && view);
  const std::string escape = server_.url("/escape");
  auto at = [&view = view] { return std::string(webkit_web_view_get_uri(view)); };
  ASSERT_TRUE(iterateUntil([&] {
    return std::string(gtk_window_get_title(window)) == "Escape attempts" &&
           !webkit_web_view_is_loading(view);
  }));

  // Pages need JavaScript; nothing else of the machine is theirs.
  WebKitSettings* settings = webkit_web_view_get_settings(view);
  EXPECT_TRUE(webkit_settings_get_enable_javascript(settings));
  EXPECT_FALSE(webkit_settings_get_allow_file_access_from_file_urls(settings));
  EXPECT_FALSE(webkit_settings_get_allow_universal_access_from_file_urls(settings));
  EXPECT_FALSE(webkit_settings_get_enable_developer_extras(settings));
  EXPECT_FALSE(webkit_settings_get_javascript_can_open_windows_automatically(settings));

  // Each attempt is followed by a navigation the view refuses, run after it in the page: once
  // that refusal is seen, the attempt was dealt with. A web page's ways to a file or a data: page
  // are mostly barred by WebKit itself before the view is asked (then nothing is said), and so is
  // a window no click opened; when WebKit does ask (a slow run can change its order), the view
  // refuses and says so. Every other way is refused by the view.
  struct Escape {
    const char* script;
    std::string refusal;  // what the view says
    bool webKitMayRefuseFirst = false;
  };
  const std::vector<Escape> escapes = {
      {"location.href = 'file:///etc/passwd';", "to open file:///etc/passwd", true},
      {"const f = document.createElement('iframe'); f.src = 'file:///etc/hostname';"
       "document.body.appendChild(f);",
       "to open file:///etc/hostname", true},
      {"document.getElementById('file-window').click();", "to open file:///etc/passwd", true},
      {"location.href = 'x-orvanta-test:item';", "to open x-orvanta-test:item"},
      {"location.href = 'smb://evil.example/share';", "to open smb://evil.example/share"},
      {"location.href = 'data:text/html,<h1>forged</h1>';",
       "to open data:text/html,<h1>forged</h1>", true},
      {"window.open('ssh://evil.example/');", "to open ssh://evil.example/", true},
      {"location.href = '/attachment';", "to download " + server_.url("/attachment")},
      {"document.getElementById('download').click();", "to download " + server_.url("/file.bin")},
  };
  std::set<std::string> mayBeSaid;
  for (std::size_t i = 0; i < escapes.size(); ++i) {
    const auto& each = escapes[i];
    SCOPED_TRACE(each.script);
    const std::string sentinel =
        "The web view refused to open x-orvanta-test:after-" + std::to_string(i);
    mayBeSaid.insert({sentinel, "The web view refused " + each.refusal});
    gtk_testing::runJavaScript(GTK_WIDGET(view), each.script);
    if (!each.webKitMayRefuseFirst) {
      EXPECT_TRUE(said("The web view refused " + each.refusal));
    }
    gtk_testing::runJavaScript(GTK_WIDGET(view),
                               "location.href = 'x-orvanta-test:after-" + std::to_string(i) + "';");
    EXPECT_TRUE(said(sentinel));
    EXPECT_EQ(at(), escape);
  }
  // Nothing else was said: no attempt got through to be opened, shown or downloaded.
  for (const auto& message : messages_) {
    EXPECT_EQ(mayBeSaid.count(message), 1u) << message;
  }
  // The page is still there, drawn in its window.
  gtk_testing::Picture picture;
  EXPECT_TRUE(iterateUntil([&] {
    picture = gtk_testing::takePicture(window);
    return !picture.empty() && picture.countNear(kEscapeBanner, 0, 0, picture.width(),
                                                 picture.height()) > picture.width() * 30;
  }));
  EXPECT_TRUE(picture.savePng(gtk_testing::artifactPath("web_view_escapes.png")));

  // A page's new window is the same view.
  gtk_testing::runJavaScript(GTK_WIDGET(view), "document.getElementById('window').click();");
  ASSERT_TRUE(
      iterateUntil([&] { return std::string(gtk_window_get_title(window)) == "Offer details"; }));
  EXPECT_EQ(at(), server_.url("/details"));
  EXPECT_EQ(gtk_testing::visibleToplevels().size(), 2u) << "the host and the web view only";
}

}  // namespace
}  // namespace orvanta::gtk_platform
