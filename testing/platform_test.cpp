#include "testing/platform_test.hpp"

#include <utility>

#include "core/logging_switch.hpp"
#include "entry/platform_installation.hpp"
#include "linux/curl_http_client.hpp"
#include "linux/file_secure_store.hpp"
#include "linux/folder_bundle.hpp"
#include "linux/headless_ports.hpp"
#include "linux/json_preferences_store.hpp"
#include "linux/linux_platform_internal.hpp"
#include "linux/system_ports.hpp"
#include "linux/thread_main_queue.hpp"

namespace orvanta::testing {
namespace {

// Every test program that links the fixture also runs, outside any fixture, on a platform in a
// temporary folder: no test writes to the user's home.
class SandboxEnvironment : public ::testing::Environment {
 public:
  void SetUp() override {
    platform_ = std::make_unique<TestPlatform>();
    platform_->install();
  }
  void TearDown() override {
    detail::reinstallPlatform(nullptr);
    platform_.reset();
  }

 private:
  std::unique_ptr<TestPlatform> platform_;
};

[[maybe_unused]] const auto* const kSandboxEnvironment =
    ::testing::AddGlobalTestEnvironment(new SandboxEnvironment());

}  // namespace

TestPlatform::TestPlatform(TestPlatformOptions options)
    : options_(std::move(options)),
      directory_(std::make_shared<TemporaryDirectory>()),
      clock_(std::make_shared<ManualClock>()),
      logSink_(std::make_shared<CapturingLogSink>()) {
  std::shared_ptr<port::MainQueue> queue;
  if (options_.threadedMainQueue) {
    queue = std::make_shared<linux_platform::ThreadMainQueue>();
  } else {
    manualQueue_ = std::make_shared<ManualMainQueue>(clock_);
    queue = manualQueue_;
  }
  httpClient_ = linux_platform::makeCurlHttpClient();
  platform_ = build(queue);
  lifecycle_ = std::static_pointer_cast<HostLifecycle>(platform_->lifecycle);
}

std::string TestPlatform::kitResourcesDirectory() {
  return std::string(ORVANTA_SOURCE_DIR) + "/resources";
}

std::shared_ptr<Platform> TestPlatform::build(const std::shared_ptr<port::MainQueue>& queue) const {
  using namespace linux_platform;
  auto platform = std::make_shared<Platform>();
  platform->clock = clock_;
  platform->logSink = logSink_;
  platform->mainQueue = queue;
  platform->secureStore = std::make_shared<FileSecureStore>(secureStoreDirectory());
  platform->preferences = std::make_shared<JsonPreferencesStore>(
      options_.preferencesFile.value_or(preferencesFile()), reportsToLogger());
  platform->bundle = std::make_shared<FolderBundle>(bundleDirectory(), kitResourcesDirectory(),
                                                    options_.languages);
  platform->fileLocations = std::make_shared<XdgFileLocations>(dataDirectory());
  platform->lifecycle = std::make_shared<HostLifecycle>(queue, options_.backgroundTaskBudget);
  platform->deviceInfo = std::make_shared<LinuxDeviceInfo>();
  platform->httpClient = httpClient_;
  platform->notificationCenter =
      std::make_shared<HeadlessNotificationCenter>(queue, "no notification centre in this test");
  platform->application =
      std::make_shared<HeadlessApplication>(queue, "no push transport in this test");
  platform->presenter = std::make_shared<HeadlessPresenter>();
  return platform;
}

void TestPlatform::install() const {
  // Each test stands for a fresh process, whatever the one before it used.
  detail::reinstallPlatform(platform_);
}

std::shared_ptr<Platform> TestPlatform::relaunch() const {
  return build(platform_->mainQueue);
}

void PlatformTest::SetUp() {
  previous_ = detail::installedPlatformOrNull();
  test_ = std::make_unique<TestPlatform>(platformOptions());
  test_->install();
  context_ = std::make_shared<detail::KitContext>(test_->platform());
}

void PlatformTest::TearDown() {
  context_.reset();
  detail::reinstallPlatform(previous_);
  previous_.reset();
  test_.reset();
}

std::shared_ptr<detail::KitContext> PlatformTest::kitContext() {
  return detail::processContext();
}

AuthData::Dependencies PlatformTest::authDataDependencies(
    std::shared_ptr<DevicesServiceProtocol> service, std::shared_ptr<port::MainQueue> queue) const {
  return {
      .devicesService = std::move(service),
      .mainQueue = queue ? std::move(queue) : platform()->mainQueue,
      .keychain = context().keychain(),
      .configFile = context().configFile(),
      .deviceInfo = platform()->deviceInfo,
  };
}

void PlatformTest::enableLogging() {
  detail::setLoggingEnabled(*platform()->preferences, true);
}

void PlatformTest::writeConfig(const PlistEntries& entries) {
  writeConfigPlist(test_->bundleDirectory(), entries);
}

OrvantaDevice makeDevice(const std::string& id, const std::string& type) {
  return OrvantaDevice(id, type, "app", {"x86_64", "12", "Debian GNU/Linux", std::nullopt, "en"});
}

}  // namespace orvanta::testing
