#include "inapp/visible_screen.hpp"

#include <gtest/gtest.h>

#include "testing/fake_presenter.hpp"

namespace orvanta {
namespace {

using testing::FakeScreen;

TEST(VisibleScreenTest, AModalOverANavigationStackIsTheVisibleScreen) {
  auto list = FakeScreen::plain("list");
  auto detail = FakeScreen::plain("detail");
  auto root = FakeScreen::navigation("root", {list, detail});
  EXPECT_EQ(visibleScreen(root), detail);

  auto modal = FakeScreen::plain("modal");
  root->presented = modal;
  EXPECT_EQ(visibleScreen(root), modal);

  // A screen presented by the top of the stack counts as well, however deep it sits.
  root->presented = nullptr;
  auto sheet = FakeScreen::plain("sheet");
  detail->presented = sheet;
  EXPECT_EQ(visibleScreen(root), sheet);
}

TEST(VisibleScreenTest, FollowsTabsAndNestedContainersDownToAPlainScreen) {
  auto inbox = FakeScreen::plain("inbox");
  auto settings = FakeScreen::plain("settings");
  auto inboxStack = FakeScreen::navigation("inbox stack", {inbox});
  auto tabs = FakeScreen::tab("tabs", inboxStack);
  EXPECT_EQ(visibleScreen(tabs), inbox);

  tabs->selected = settings;
  EXPECT_EQ(visibleScreen(tabs), settings);

  // A modal navigation screen over the tabs: its top is what the user sees.
  auto compose = FakeScreen::plain("compose");
  tabs->presented = FakeScreen::navigation("compose stack", {compose});
  EXPECT_EQ(visibleScreen(tabs), compose);
}

TEST(VisibleScreenTest, FindsNothingInAnEmptyContainerOrWithoutAWindow) {
  EXPECT_EQ(visibleScreen(FakeScreen::navigation("empty", {})), nullptr);
  EXPECT_EQ(visibleScreen(FakeScreen::tab("no selection", nullptr)), nullptr);
  EXPECT_EQ(visibleScreen(nullptr), nullptr);

  testing::RecordingPresenter presenter;
  EXPECT_EQ(visibleScreenOfKeyWindow(presenter), nullptr);
  auto home = FakeScreen::plain("home");
  presenter.root = FakeScreen::navigation("root", {home});
  EXPECT_EQ(visibleScreenOfKeyWindow(presenter), home);
}

}  // namespace
}  // namespace orvanta
