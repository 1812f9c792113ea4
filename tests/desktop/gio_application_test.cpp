#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "inapp/orvanta_in_app_interaction_impl.hpp"
#include "linux/gio/gio_application.hpp"
#include "models/orvanta_notification_payload.hpp"
#include "testing/child_process.hpp"
#include "testing/platform_test.hpp"
#include "testing/temporary_directory.hpp"

namespace orvanta {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

// The schemes the private desktop has a handler for: the web, local and network file systems,
// mail, telephone, script and data, and two applications' own.
constexpr const char* kHandledSchemes[] = {"http", "https",          "file",         "ssh",
                                           "smb",  "mailto",         "tel",          "javascript",
                                           "data", "x-orvanta-test", "x-orvanta-app"};

// The whole program sees a desktop of its own: XDG folders in a temporary folder, with one
// application that handles the URLs of every scheme above by writing them into a named pipe, and
// the desktop entry of the application "io.orvanta.Test", which handles "x-orvanta-app:". Set up
// before any test, so that GIO reads these folders and never the machine's.
class PrivateDesktop : public ::testing::Environment {
 public:
  static std::string pipePath() { return folder()->file("opened.fifo"); }

  void SetUp() override {
    folder() = std::make_unique<testing::TemporaryDirectory>();
    const auto& dir = *folder();
    ::setenv("XDG_DATA_HOME", dir.file("data").c_str(), 1);
    ::setenv("XDG_DATA_DIRS", dir.file("system-data").c_str(), 1);
    ::setenv("XDG_CONFIG_HOME", dir.file("config").c_str(), 1);
    ::setenv("XDG_CONFIG_DIRS", dir.file("system-config").c_str(), 1);

    const std::string handler = dir.file("handler.sh");
    testing::writeFile(handler, "#!/bin/sh\nprintf '%s\\n' \"$1\" > '" + pipePath() + "'\n");
    ::chmod(handler.c_str(), 0700);
    ::mkfifo(pipePath().c_str(), 0600);
    std::string types;
    std::string defaults = "[Default Applications]\n";
    for (const char* scheme : kHandledSchemes) {
      types += std::string("x-scheme-handler/") + scheme + ";";
      defaults += std::string("x-scheme-handler/") + scheme + "=orvanta-test-handler.desktop\n";
    }
    testing::writeFile(dir.file("data/applications/orvanta-test-handler.desktop"),
                       "[Desktop Entry]\nType=Application\nName=Orvanta test handler\nExec=" +
                           handler + " %u\nMimeType=" + types + "\nNoDisplay=true\n");
    testing::writeFile(dir.file("config/mimeapps.list"), defaults);
    testing::writeFile(dir.file("system-data/applications/io.orvanta.Test.desktop"),
                       "[Desktop Entry]\nType=Application\nName=Orvanta test\nExec=true %u\n"
                       "MimeType=text/plain;X-Scheme-Handler/x-orvanta-app;\n");
  }

  void TearDown() override { folder().reset(); }

 private:
  static std::unique_ptr<testing::TemporaryDirectory>& folder() {
    static std::unique_ptr<testing::TemporaryDirectory> instance;
    return instance;
  }
};

[[maybe_unused]] const auto* const kPrivateDesktop =
    ::testing::AddGlobalTestEnvironment(new PrivateDesktop());

// The next line the handler writes into the pipe; empty on time-out. The pipe stays open for
// reading and writing for the whole program: a handler never waits for a reader, and a reader
// never sees the end of a writer that came and went between two reads (lines are kept).
std::string readOpenedUrl() {
  static const int fd = ::open(PrivateDesktop::pipePath().c_str(), O_RDWR | O_NONBLOCK);
  static std::string pending;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (pending.find('\n') == std::string::npos) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    pollfd entry{fd, POLLIN, 0};
    if (left.count() <= 0) {
      return {};
    }
    if (::poll(&entry, 1, static_cast<int>(left.count())) < 0 && errno != EINTR) {
      return {};
    }
    char buffer[512];
    const ssize_t count = ::read(fd, buffer, sizeof buffer);
    if (count > 0) {
      pending.append(buffer, static_cast<std::size_t>(count));
    }
  }
  const auto end = pending.find('\n');
  std::string line = pending.substr(0, end);
  pending.erase(0, end + 1);
  return line;
}

class RecordingApplicationDelegate : public port::ApplicationDelegate {
 public:
  explicit RecordingApplicationDelegate(std::shared_ptr<int> calls = std::make_shared<int>(0))
      : calls_(std::move(calls)) {}
  void didRegisterForRemoteNotifications(const std::vector<std::uint8_t>& deviceToken) override {
    ++*calls_;
    tokens.push_back(deviceToken);
  }
  void didFailToRegisterForRemoteNotifications(const Error& error) override {
    ++*calls_;
    errors.push_back(error.localizedDescription());
  }

  std::vector<std::vector<std::uint8_t>> tokens;
  std::vector<std::string> errors;

 private:
  std::shared_ptr<int> calls_;
};

class FixedTokenTransport : public linux_platform::RemoteNotificationTransport {
 public:
  void registerForRemoteNotifications(std::function<void(std::vector<std::uint8_t>)> registered,
                                      std::function<void(Error)>) override {
    registered({0x00, 0xab, 0x0f});
  }
  void unregisterForRemoteNotifications() override { ++unregistered; }
  int unregistered = 0;
};

class GioApplicationTest : public testing::PlatformTest {
 protected:
  // The application object of an application whose own links are `schemes`.
  std::shared_ptr<port::Application> application(std::vector<std::string> schemes) {
    return linux_platform::makeGioApplication(platform()->mainQueue, nullptr, nullptr,
                                              {.deepLinkSchemes = std::move(schemes)});
  }
};

TEST_F(GioApplicationTest, OnlySchemesWithAHandlerCanBeOpened) {
  auto application = this->application({"x-orvanta-test", "x-orvanta-nobody"});
  EXPECT_TRUE(application->canOpenURL("x-orvanta-test://item/1"));
  EXPECT_FALSE(application->canOpenURL("x-orvanta-nobody://item/1"));
  EXPECT_FALSE(application->canOpenURL("no scheme at all"));
}

TEST_F(GioApplicationTest, OpenHandsTheUrlToItsHandlerAndLogsAFailure) {
  enableLogging();
  auto application = this->application({"x-orvanta-test", "x-orvanta-nobody"});
  const std::string url = "x-orvanta-test://item/42?x=1";
  application->open("x-orvanta-nobody://item/7");
  application->open(url);

  EXPECT_EQ(readOpenedUrl(), url);
  ASSERT_TRUE(logSink().waitForLines(1, std::chrono::milliseconds(20'000)));
  const auto lines = logSink().lines();
  ASSERT_EQ(lines.size(), 1u) << ::testing::PrintToString(lines);
  EXPECT_THAT(lines[0], HasSubstr("Could not open x-orvanta-nobody://item/7"));
}

TEST_F(GioApplicationTest, RegistrationOutcomesReachTheDelegateOnTheMainQueue) {
  auto calls = std::make_shared<int>(0);
  auto delegate = std::make_shared<RecordingApplicationDelegate>(calls);

  // No transport on this desktop yet: registration fails, after the call, on the main queue.
  auto application = linux_platform::makeGioApplication(platform()->mainQueue);
  application->setDelegate(delegate);
  application->registerForRemoteNotifications();
  EXPECT_EQ(*calls, 0);
  mainQueue().runUntilIdle();
  EXPECT_THAT(delegate->errors, ElementsAre("No push transport is available on this desktop yet"));
  application->unregisterForRemoteNotifications();

  // A transport plugged in: its token arrives the same way.
  auto transport = std::make_shared<FixedTokenTransport>();
  auto withTransport = linux_platform::makeGioApplication(platform()->mainQueue, transport);
  withTransport->setDelegate(delegate);
  withTransport->registerForRemoteNotifications();
  withTransport->unregisterForRemoteNotifications();
  EXPECT_EQ(transport->unregistered, 1);
  EXPECT_THAT(delegate->tokens, IsEmpty());
  mainQueue().runUntilIdle();
  EXPECT_THAT(delegate->tokens, ElementsAre(std::vector<std::uint8_t>{0x00, 0xab, 0x0f}));

  // A delegate the host released hears nothing.
  withTransport->registerForRemoteNotifications();
  delegate.reset();
  mainQueue().runUntilIdle();
  EXPECT_EQ(*calls, 2);
}

// --- A pushed URL ------------------------------------------------------------------------------
// A push names the URL its actions open, and whoever can send a push chooses it: a "BROWSER"
// action opens web pages only, a "DEEPLINK" one the application's own links, mail and telephone.

TEST_F(GioApplicationTest, APushedUrlOpensOnlyAsWhatItsActionSays) {
  using port::UrlTarget;
  // The application lists "file" too: local and script schemes never open all the same.
  auto application = this->application({"x-orvanta-test", "FILE"});
  struct Case {
    const char* url;
    bool browser;
    bool deepLink;
  };
  const std::vector<Case> cases = {
      {"https://shop.example/sale?x=1", true, false}, {"http://shop.example/", true, false},
      {"HTTPS://SHOP.EXAMPLE/", true, false},         {"https:///no-host", false, false},
      {"x-orvanta-test://item/1", false, true},       {"X-Orvanta-Test:item", false, true},
      {"mailto:shop@example.com", false, true},       {"tel:+4930123456", false, true},
      {"x-orvanta-app://item/1", false, false},  // another application's
      {"file:///etc/passwd", false, false},           {"javascript:alert(1)", false, false},
      {"data:text/html,<h1>x</h1>", false, false},    {"ssh://evil.example/", false, false},
      {"smb://evil.example/share", false, false},     {"no scheme at all", false, false},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.url);
    EXPECT_EQ(application->canOpenURLAs(each.url, UrlTarget::browser), each.browser);
    EXPECT_EQ(application->canOpenURLAs(each.url, UrlTarget::deepLink), each.deepLink);
    EXPECT_EQ(application->canOpenURL(each.url), each.browser || each.deepLink);
  }
}

TEST_F(GioApplicationTest, TheApplicationsOwnSchemesComeFromItsDesktopEntryByDefault) {
  using port::UrlTarget;
  auto withEntry = linux_platform::makeGioApplication(platform()->mainQueue, nullptr, nullptr,
                                                      {.desktopEntry = "io.orvanta.Test"});
  EXPECT_TRUE(withEntry->canOpenURLAs("x-orvanta-app://item/1", UrlTarget::deepLink));
  EXPECT_FALSE(withEntry->canOpenURLAs("x-orvanta-test://item/1", UrlTarget::deepLink));
  EXPECT_TRUE(withEntry->canOpenURLAs("mailto:shop@example.com", UrlTarget::deepLink));
  for (const char* entry : {"", "io.orvanta.Absent", "../applications/io.orvanta.Test"}) {
    SCOPED_TRACE(entry);
    auto without = linux_platform::makeGioApplication(platform()->mainQueue, nullptr, nullptr,
                                                      {.desktopEntry = entry});
    EXPECT_FALSE(without->canOpenURLAs("x-orvanta-app://item/1", UrlTarget::deepLink));
    EXPECT_TRUE(without->canOpenURLAs("tel:+4930123456", UrlTarget::deepLink));
  }
  // A list of the host's own replaces the entry's.
  auto listed = linux_platform::makeGioApplication(
      platform()->mainQueue, nullptr, nullptr,
      {.deepLinkSchemes = std::vector<std::string>{}, .desktopEntry = "io.orvanta.Test"});
  EXPECT_FALSE(listed->canOpenURLAs("x-orvanta-app://item/1", UrlTarget::deepLink));
}

TEST_F(GioApplicationTest, ARefusedActionLogsTheRequiredLineAndOpensNothing) {
  enableLogging();
  auto inApp = std::make_shared<OrvantaInAppInteraction::Impl>(
      OrvantaInAppInteraction::Impl::Dependencies{.presenter = nullptr,
                                                  .application = application({"x-orvanta-test"}),
                                                  .mainQueue = platform()->mainQueue,
                                                  .bundle = nullptr,
                                                  .statusReporter = nullptr,
                                                  .authData = nullptr});
  auto action = [](const char* type, const char* url) {
    return *OrvantaNotificationPayload::fromUserInfo(
                {{"data",
                  ValueMap{{"id", "p"}, {"action", ValueMap{{"type", type}, {"url", url}}}}}})
                ->action;
  };
  const std::vector<std::pair<const char*, const char*>> refused = {
      {"BROWSER", "file:///etc/passwd"},        {"BROWSER", "javascript:alert(1)"},
      {"BROWSER", "mailto:shop@example.com"},   {"DEEPLINK", "ssh://evil.example/"},
      {"DEEPLINK", "smb://evil.example/share"}, {"DEEPLINK", "https://shop.example/"},
  };
  for (const auto& [type, url] : refused) {
    inApp->handleAction(action(type, url));
  }
  const auto lines = logSink().lines();
  ASSERT_EQ(lines.size(), refused.size()) << ::testing::PrintToString(lines);
  for (std::size_t i = 0; i < refused.size(); ++i) {
    EXPECT_THAT(lines[i],
                HasSubstr(std::string("Unable to openURL: ") + refused[i].second + " for type: " +
                          (std::string(refused[i].first) == "BROWSER" ? "browser" : "deeplink")));
  }
  // What may open opens, and it is the first thing the handler ever saw from this test.
  inApp->handleAction(action("DEEPLINK", "x-orvanta-test://item/9"));
  EXPECT_EQ(readOpenedUrl(), "x-orvanta-test://item/9");
  inApp->handleAction(action("BROWSER", "https://shop.example/sale"));
  EXPECT_EQ(readOpenedUrl(), "https://shop.example/sale");
  EXPECT_EQ(logSink().lines().size(), refused.size());
}

}  // namespace
}  // namespace orvanta
