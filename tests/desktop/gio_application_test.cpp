#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "linux/gio/gio_application.hpp"
#include "testing/child_process.hpp"
#include "testing/platform_test.hpp"
#include "testing/temporary_directory.hpp"

namespace orvanta {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr const char* kHandledScheme = "x-orvanta-test";

// The whole program sees a desktop of its own: XDG folders in a temporary folder, with one
// application that handles "x-orvanta-test:" URLs by writing them into a named pipe. Set up before
// any test, so that GIO reads these folders and never the machine's.
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
    testing::writeFile(dir.file("data/applications/orvanta-test-handler.desktop"),
                       "[Desktop Entry]\n"
                       "Type=Application\n"
                       "Name=Orvanta test handler\n"
                       "Exec=" +
                           handler +
                           " %u\n"
                           "MimeType=x-scheme-handler/" +
                           std::string(kHandledScheme) +
                           ";\n"
                           "NoDisplay=true\n");
    testing::writeFile(dir.file("config/mimeapps.list"),
                       "[Default Applications]\n"
                       "x-scheme-handler/" +
                           std::string(kHandledScheme) + "=orvanta-test-handler.desktop\n");
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

// The next line the handler writes into the pipe; empty on time-out.
std::string readOpenedUrl() {
  const int fd = ::open(PrivateDesktop::pipePath().c_str(), O_RDONLY | O_NONBLOCK);
  const auto line =
      testing::readLine(fd, std::chrono::steady_clock::now() + std::chrono::seconds(20));
  ::close(fd);
  return line.value_or("");
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

class GioApplicationTest : public testing::PlatformTest {};

TEST_F(GioApplicationTest, OnlySchemesWithAHandlerCanBeOpened) {
  auto application = linux_platform::makeGioApplication(platform()->mainQueue);
  EXPECT_TRUE(application->canOpenURL("x-orvanta-test://item/1"));
  EXPECT_FALSE(application->canOpenURL("x-orvanta-nobody://item/1"));
  // The private desktop has no browser: the answer never depends on the machine.
  EXPECT_FALSE(application->canOpenURL("https://example.com/"));
  EXPECT_FALSE(application->canOpenURL("no scheme at all"));
}

TEST_F(GioApplicationTest, OpenHandsTheUrlToItsHandlerAndLogsAFailure) {
  enableLogging();
  auto application = linux_platform::makeGioApplication(platform()->mainQueue);
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

}  // namespace
}  // namespace orvanta
