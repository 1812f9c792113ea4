#include <gtest/gtest.h>
#include <gtk/gtk.h>

#include <memory>
#include <string>
#include <vector>

#include "gtk_test_support.hpp"
#include "inapp/visible_screen.hpp"
#include "linux/gtk/alert_dialog.hpp"
#include "linux/gtk/gtk_presenter.hpp"
#include "linux/gtk/window_screen.hpp"

namespace orvanta::gtk_platform {
namespace {

using gtk_testing::iterateUntil;

std::vector<std::string> buttonLabels(GtkWindow* alert) {
  std::vector<std::string> labels;
  for (auto* button : gtk_testing::findAllByName(GTK_WIDGET(alert), kAlertButtonName)) {
    labels.emplace_back(gtk_button_get_label(GTK_BUTTON(button)));
  }
  return labels;
}

GtkWidget* buttonLabelled(GtkWindow* alert, const std::string& label) {
  for (auto* button : gtk_testing::findAllByName(GTK_WIDGET(alert), kAlertButtonName)) {
    if (label == gtk_button_get_label(GTK_BUTTON(button))) {
      return button;
    }
  }
  return nullptr;
}

class GtkAlertTest : public ::testing::Test {
 protected:
  void SetUp() override {
    host_ = GTK_WINDOW(gtk_window_new());
    gtk_window_set_title(host_, "Host application");
    gtk_window_set_default_size(host_, 640, 480);
    gtk_window_set_child(host_, gtk_label_new("The host application's own window"));
    gtk_window_present(host_);
    ASSERT_TRUE(iterateUntil([&] { return gtk_widget_get_mapped(GTK_WIDGET(host_)); }));
  }
  void TearDown() override { gtk_testing::destroyAllWindows(); }

  /// The alert window shown over the host, once mapped.
  GtkWindow* shownAlert() {
    GtkWindow* alert = nullptr;
    iterateUntil([&] {
      alert = gtk_testing::visibleToplevelNamed(kAlertWindowName);
      return alert && gtk_widget_get_mapped(GTK_WIDGET(alert));
    });
    return alert;
  }

  GtkWindow* host_ = nullptr;
  GtkPresenter presenter_;
  std::vector<std::string> pressed_;
};

TEST_F(GtkAlertTest, ShowsTheButtonsInOrderAndAPressRunsThatButtonsHandlerAfterClosing) {
  auto target = visibleScreenOfKeyWindow(presenter_);
  ASSERT_EQ(windowOf(target), host_);

  bool closedBeforeHandler = false;
  port::Alert alert{
      "Your offer is waiting",
      "Spring sale: 20% off everything in the app until Sunday.",
      {{"Cancel", port::AlertActionStyle::cancel, [&] { pressed_.push_back("Cancel"); }},
       {"Show offer", port::AlertActionStyle::defaultStyle,
        [&] {
          pressed_.push_back("Show offer");
          // The alert is gone by now: the host is the visible screen again.
          closedBeforeHandler = windowOf(visibleScreenOfKeyWindow(presenter_)) == host_;
        }},
       {"Unsubscribe", port::AlertActionStyle::destructive,
        [&] { pressed_.push_back("Unsubscribe"); }}}};
  presenter_.presentAlert(target, alert, true);

  GtkWindow* shown = shownAlert();
  ASSERT_NE(shown, nullptr);
  EXPECT_EQ(gtk_window_get_transient_for(shown), host_);
  EXPECT_TRUE(gtk_window_get_modal(shown));
  EXPECT_EQ(buttonLabels(shown), (std::vector<std::string>{"Cancel", "Show offer", "Unsubscribe"}));
  EXPECT_EQ(gtk_window_get_default_widget(shown), buttonLabelled(shown, "Show offer"));
  EXPECT_TRUE(gtk_widget_has_css_class(buttonLabelled(shown, "Unsubscribe"), "destructive-action"));
  // The alert is a screen presented over the host: the visible-screen walk finds it.
  EXPECT_EQ(windowOf(visibleScreenOfKeyWindow(presenter_)), shown);

  // The picture shows the title and the three buttons; it is kept for a person to look at.
  gtk_testing::Picture picture;
  ASSERT_TRUE(iterateUntil([&] {
    picture = gtk_testing::takePicture(shown);
    return !picture.empty();
  }));
  EXPECT_TRUE(picture.savePng(gtk_testing::artifactPath("alert.png")));

  ASSERT_TRUE(gtk_testing::press(buttonLabelled(shown, "Show offer")));
  EXPECT_EQ(pressed_, std::vector<std::string>{"Show offer"});
  EXPECT_TRUE(closedBeforeHandler);
  EXPECT_EQ(gtk_testing::visibleToplevelNamed(kAlertWindowName), nullptr);
}

TEST_F(GtkAlertTest, EscapeOrClosingTheWindowPressesTheCancelButtonOnly) {
  port::Alert alert{
      "Reminder",
      std::nullopt,
      {{"OK", port::AlertActionStyle::defaultStyle, [&] { pressed_.push_back("OK"); }},
       {"Not now", port::AlertActionStyle::cancel, [&] { pressed_.push_back("Not now"); }}}};
  presenter_.presentAlert(visibleScreenOfKeyWindow(presenter_), alert, true);
  GtkWindow* shown = shownAlert();
  ASSERT_NE(shown, nullptr);
  gtk_window_close(shown);  // what escape and the window manager do
  EXPECT_EQ(pressed_, std::vector<std::string>{"Not now"});
  EXPECT_EQ(gtk_testing::visibleToplevelNamed(kAlertWindowName), nullptr);

  // Without a cancel button an alert can only be answered by a button.
  port::Alert noCancel{
      "Update ready",
      "Restart to finish.",
      {{"Restart", port::AlertActionStyle::defaultStyle, [&] { pressed_.push_back("Restart"); }}}};
  presenter_.presentAlert(visibleScreenOfKeyWindow(presenter_), noCancel, true);
  shown = shownAlert();
  ASSERT_NE(shown, nullptr);
  gtk_window_close(shown);
  EXPECT_EQ(gtk_testing::visibleToplevelNamed(kAlertWindowName), shown);
  GtkWidget* restart = buttonLabelled(shown, "Restart");
  ASSERT_NE(restart, nullptr);
  // A double click: the first click answers and closes the alert, the second does nothing.
  g_object_ref(restart);
  g_signal_emit_by_name(restart, "clicked");
  g_signal_emit_by_name(restart, "clicked");
  g_object_unref(restart);
  EXPECT_EQ(pressed_, (std::vector<std::string>{"Not now", "Restart"}));
}

TEST_F(GtkAlertTest, TheApplicationsActiveWindowIsTheKeyWindow) {
  GtkApplication* application =
      gtk_application_new("org.orvanta.GtkAlertTest", G_APPLICATION_NON_UNIQUE);
  GError* error = nullptr;
  ASSERT_TRUE(g_application_register(G_APPLICATION(application), nullptr, &error))
      << (error ? error->message : "");
  GtkWindow* appWindow = GTK_WINDOW(gtk_application_window_new(application));
  gtk_window_present(appWindow);
  ASSERT_TRUE(iterateUntil([&] { return gtk_widget_get_mapped(GTK_WIDGET(appWindow)); }));
  {
    GtkPresenter presenter(application);
    EXPECT_EQ(windowOf(presenter.keyWindowRootScreen()), appWindow);
    presenter.presentAlert(
        nullptr,
        port::Alert{"Hello", std::nullopt, {{"OK", port::AlertActionStyle::defaultStyle, {}}}},
        true);
    GtkWindow* shown = shownAlert();
    ASSERT_NE(shown, nullptr);
    EXPECT_EQ(gtk_window_get_transient_for(shown), appWindow)
        << "an alert for no particular screen goes over the key window";
    // Focus moving to the alert does not change the root of the key window.
    EXPECT_EQ(windowOf(presenter.keyWindowRootScreen()), appWindow);
  }
  gtk_window_destroy(appWindow);
  g_object_unref(application);
}

}  // namespace
}  // namespace orvanta::gtk_platform
