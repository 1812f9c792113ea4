// What an application's launch pays for the kit on its own thread: `Orvanta::configure`, which
// builds the whole kit at the first touch, starts no thread and opens no bus connection, database
// or network transfer; those wait for the calls that need them. Checked through the ports, in a
// process of its own, since only the first touch builds the kit.

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "analytics/event_database.hpp"
#include "entry/platform_installation.hpp"
#include "orvanta/orvanta.hpp"
#include "testing/fake_push_platform.hpp"
#include "testing/platform_test.hpp"

namespace orvanta {
namespace {

/// Counts the transfers it is asked for and never answers them: nothing leaves the machine.
class CountingHttpClient final : public port::HttpClient {
 public:
  std::shared_ptr<port::HttpTask> dataTask(port::HttpRequest, port::DataTaskCompletion) override {
    ++transfers;
    return nullptr;
  }
  std::shared_ptr<port::HttpTask> downloadTask(port::HttpRequest,
                                               port::DownloadTaskCompletion) override {
    ++transfers;
    return nullptr;
  }
  std::atomic<int> transfers{0};
};

/// The platform's file locations, counting the lookups of the documents directory: the event
/// database is opened there, and only there.
class CountingFileLocations final : public port::FileLocations {
 public:
  explicit CountingFileLocations(std::shared_ptr<port::FileLocations> inner)
      : inner_(std::move(inner)) {}
  port::DirectoryLookup documentsDirectory() override {
    ++lookups;
    return inner_->documentsDirectory();
  }
  std::string temporaryDirectory() override { return inner_->temporaryDirectory(); }
  std::atomic<int> lookups{0};

 private:
  std::shared_ptr<port::FileLocations> inner_;
};

std::ptrdiff_t threadCount() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/task"),
                       std::filesystem::directory_iterator());
}

class StartUpTest : public testing::PlatformTest {
 protected:
  /// Runs in the test's own process: the first touch of the kit, then its first event. Says what
  /// went wrong on the standard error and ends the process, with status 0 when nothing did.
  [[noreturn]] void configureThenTrack() {
    std::vector<std::string> problems;
    const auto expect = [&](bool holds, const std::string& problem) {
      if (!holds) {
        problems.push_back(problem);
      }
    };
    auto recorded = std::make_shared<Platform>(*platform());
    auto http = std::make_shared<CountingHttpClient>();
    auto files = std::make_shared<CountingFileLocations>(platform()->fileLocations);
    auto centre = std::make_shared<testing::RecordingNotificationCenter>(platform()->mainQueue);
    auto application = std::make_shared<testing::RecordingApplication>();
    recorded->httpClient = http;
    recorded->fileLocations = files;
    recorded->notificationCenter = centre;
    recorded->application = application;
    expect(installPlatform(recorded), "the kit was in use before the test");
    writeConfig(testing::credentials("app-1", "token-1", "secret-1", "events-1"));
    auto configuration = OrvantaConfiguration::defaultConfiguration();
    configuration->setIsLoggingEnabled(true);

    const auto threadsBefore = threadCount();
    Orvanta::configure(configuration);

    expect(threadCount() == threadsBefore,
           "configure started " + std::to_string(threadCount() - threadsBefore) + " threads");
    expect(http->transfers == 0, "configure asked for a network transfer");
    expect(files->lookups == 0, "configure opened the event database");
    expect(centre->authorizationRequests().empty() && centre->installedCategories().empty() &&
               centre->added().empty(),
           "configure used the notification centre (its bus)");
    expect(centre->delegate() != nullptr, "the kit's push hook is not the centre's delegate");
    expect(application->registrations() == 0 && application->opened().empty(),
           "configure used the application's push transport (its bus)");
    // Still read at configure: the configuration file, for the configuration line.
    const auto lines = logLines();
    expect(lines.size() == 1 && lines[0].find("Configuration with token: token-1, secret: "
                                              "secret-1, appId: app-1 and eventsToken: "
                                              "events-1") != std::string::npos,
           "the configuration line is missing");

    // The first event opens the database, once, and is stored in it.
    auto device = kitContext()->authData()->device();
    device.deviceToken = "c0ffee";
    kitContext()->authData()->setDevice(device);
    Orvanta::analytics().trackEvent("opened", {{"screen", "home"}});
    Orvanta::analytics().trackEvent("closed", {});
    expect(files->lookups == 1, "the event database was looked for " +
                                    std::to_string(files->lookups.load()) + " times, not once");
    Database<OrvantaEvent> stored(testPlatform().dataDirectory() + "/" + kEventDatabaseFileName);
    expect(stored.allRows().size() == 2, "the events were not stored");

    for (const auto& problem : problems) {
      std::fprintf(stderr, "%s\n", problem.c_str());
    }
    std::fflush(stderr);
    std::_Exit(problems.empty() ? 0 : 1);
  }
};

TEST_F(StartUpTest, ConfigureLeavesForLaterWhatCanWait) {
  // A process of its own (the test program run again for this test alone): only the first touch
  // builds the kit.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(configureThenTrack(), ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace orvanta
