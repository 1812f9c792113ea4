#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "entry/kit_context.hpp"
#include "networking/auth_data.hpp"
#include "orvanta/host_lifecycle.hpp"
#include "orvanta/platform.hpp"
#include "testing/capturing_log_sink.hpp"
#include "testing/config_plist.hpp"
#include "testing/manual_clock.hpp"
#include "testing/manual_main_queue.hpp"
#include "testing/temporary_directory.hpp"

namespace orvanta::testing {

struct TestPlatformOptions {
  /// Run main-queue work on a real thread ("orvanta-main") instead of the manual queue.
  bool threadedMainQueue = false;
  std::chrono::milliseconds backgroundTaskBudget{30'000};
  /// The language of the kit's texts; English by default, whatever the machine's locale.
  std::vector<std::string> languages;
  /// Where the preferences live; default "<root>/config/preferences.json". The empty path is a
  /// store that cannot be written (as with neither HOME nor XDG_CONFIG_HOME set).
  std::optional<std::string> preferencesFile;
};

/// A complete Linux platform rooted in a fresh temporary folder, with a manual clock, a manual main
/// queue (unless asked otherwise), the libcurl client (started on the first request), texts in
/// English whatever the machine's locale, and a log sink that keeps the lines. Files:
/// "<root>/bundle" (the host's bundle, for "OrvantaConfig.plist"), "<root>/data" (documents),
/// "<root>/data/keystore" (secure store), "<root>/config/preferences.json"; the kit's string tables
/// come from the source tree's resources folder. `install()` makes it the process's platform.
class TestPlatform {
 public:
  explicit TestPlatform(TestPlatformOptions options = {});

  void install() const;

  const std::shared_ptr<Platform>& platform() const { return platform_; }
  const std::shared_ptr<ManualClock>& clock() const { return clock_; }
  /// Null when built with `threadedMainQueue`.
  const std::shared_ptr<ManualMainQueue>& mainQueue() const { return manualQueue_; }
  const std::shared_ptr<CapturingLogSink>& logSink() const { return logSink_; }
  const std::shared_ptr<HostLifecycle>& lifecycle() const { return lifecycle_; }

  const std::string& root() const { return directory_->path(); }
  std::string bundleDirectory() const { return root() + "/bundle"; }
  std::string dataDirectory() const { return root() + "/data"; }
  std::string secureStoreDirectory() const { return root() + "/data/keystore"; }
  std::string preferencesFile() const { return root() + "/config/preferences.json"; }
  static std::string kitResourcesDirectory();

  /// A second platform over the same files (a later launch of the same application), with fresh
  /// in-memory state.
  std::shared_ptr<Platform> relaunch() const;

 private:
  std::shared_ptr<Platform> build(const std::shared_ptr<port::MainQueue>& queue) const;

  TestPlatformOptions options_;
  std::shared_ptr<TemporaryDirectory> directory_;
  std::shared_ptr<ManualClock> clock_;
  std::shared_ptr<ManualMainQueue> manualQueue_;
  std::shared_ptr<CapturingLogSink> logSink_;
  std::shared_ptr<HostLifecycle> lifecycle_;
  std::shared_ptr<Platform> platform_;
  std::shared_ptr<port::HttpClient> httpClient_;
};

/// GoogleTest fixture: each test runs on a fresh `TestPlatform`, installed in `SetUp` and replaced
/// by whatever was installed before in `TearDown`. Override `platformOptions()` to change it.
///
///   class MyTest : public orvanta::testing::PlatformTest {};
///   TEST_F(MyTest, Logs) { enableLogging(); ...; EXPECT_EQ(logLines().size(), 1u); }
class PlatformTest : public ::testing::Test {
 protected:
  virtual TestPlatformOptions platformOptions() const { return {}; }

  void SetUp() override;
  void TearDown() override;

  TestPlatform& testPlatform() { return *test_; }
  /// What the kit's components are built from, over the test platform: its own context (requests
  /// read the credentials straight from the test bundle's configuration file), independent of
  /// the kit's shared instance.
  detail::KitContext& context() const { return *context_; }
  /// The context the kit's entry point is built from over the installed platform: the stores and
  /// device authorization that `Orvanta::shared()` and the public calls use.
  static std::shared_ptr<detail::KitContext> kitContext();
  const std::shared_ptr<Platform>& platform() const { return test_->platform(); }
  ManualClock& clock() { return *test_->clock(); }
  ManualMainQueue& mainQueue() { return *test_->mainQueue(); }
  CapturingLogSink& logSink() { return *test_->logSink(); }
  std::vector<std::string> logLines() const { return test_->logSink()->lines(); }

  /// An `AuthData`'s collaborators on the test platform, registering through `service` and
  /// retrying on `queue` (the platform's main queue when none).
  AuthData::Dependencies authDataDependencies(
      std::shared_ptr<DevicesServiceProtocol> service,
      std::shared_ptr<port::MainQueue> queue = nullptr) const;

  /// Turns the persisted logging switch on.
  void enableLogging();
  /// Writes the host's configuration file into the test bundle.
  void writeConfig(const PlistEntries& entries);

 private:
  std::shared_ptr<Platform> previous_;
  std::unique_ptr<TestPlatform> test_;
  std::shared_ptr<detail::KitContext> context_;
};

/// A new device record for the installation `id` of the application "app", on a fixed handset.
OrvantaDevice makeDevice(const std::string& id, const std::string& type = "IOS");

}  // namespace orvanta::testing
