#include "networking/auth_data.hpp"

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "models/json.hpp"
#include "storage/data_convertible.hpp"
#include "testing/mock_devices_service.hpp"
#include "testing/platform_test.hpp"

namespace orvanta {
namespace {

constexpr auto kMinute = std::chrono::milliseconds(60'000);
const std::string kDeviceKey = "authorizationData.deviceModel";

/// A secure store that counts the writes of each key, over the platform's own.
class CountingSecureStore : public port::SecureStore {
 public:
  explicit CountingSecureStore(std::shared_ptr<port::SecureStore> inner)
      : inner_(std::move(inner)) {}
  std::optional<std::string> read(const std::string& key) override { return inner_->read(key); }
  port::SecureStoreStatus add(const std::string& key, const std::string& bytes) override {
    {
      std::lock_guard lock(mutex_);
      ++writes_[key];
    }
    return inner_->add(key, bytes);
  }
  port::SecureStoreStatus remove(const std::string& key) override { return inner_->remove(key); }
  int writes(const std::string& key) {
    std::lock_guard lock(mutex_);
    return writes_[key];
  }

 private:
  std::shared_ptr<port::SecureStore> inner_;
  std::mutex mutex_;
  std::map<std::string, int> writes_;
};

/// A devices service whose answers the test gives later, one registration at a time.
class DeferredDevicesService : public DevicesServiceProtocol {
 public:
  void registerDevice(const OrvantaDevice& device, CompletionHandler<Void> handler) override {
    devices.push_back(device);
    handlers.push_back(std::move(handler));
  }
  void lastPush(const std::string&, CompletionHandler<OrvantaNotificationPayload>) override {}

  std::vector<OrvantaDevice> devices;
  std::vector<CompletionHandler<Void>> handlers;
};

class AuthDataTest : public testing::PlatformTest {
 protected:
  void SetUp() override {
    PlatformTest::SetUp();
    store_ = std::make_shared<CountingSecureStore>(platform()->secureStore);
    enableLogging();
  }

  std::shared_ptr<AuthData> authData(std::shared_ptr<DevicesServiceProtocol> service) {
    auto dependencies = authDataDependencies(std::move(service));
    dependencies.keychain = std::make_shared<KeychainAccess>(store_);
    return AuthData::make(std::move(dependencies));
  }
  void store(const std::string& key, const std::string& text) {
    store_->remove(key);
    store_->add(key, text);
  }

  std::shared_ptr<CountingSecureStore> store_;
  std::shared_ptr<MockDevicesService> service_ = std::make_shared<MockDevicesService>();
};

TEST_F(AuthDataTest, WithNothingStoredAFreshRecordKeepsOneInstallationIdentifier) {
  auto auth = authData(service_);
  auto first = auth->device();
  auto second = auth->device();
  EXPECT_FALSE(first.deviceUUID.empty());
  EXPECT_EQ(first.deviceUUID, second.deviceUUID);
  EXPECT_EQ(second.type, "IOS");
  EXPECT_FALSE(second.deviceToken);
  EXPECT_EQ(store_->read("uuid"), first.deviceUUID);
  EXPECT_EQ(store_->writes("uuid"), 1);
  EXPECT_EQ(store_->writes(kDeviceKey), 0);  // a fresh record is not stored by reading it

  store(kDeviceKey, "{not a device");
  EXPECT_EQ(auth->device().deviceUUID, first.deviceUUID);
}

TEST_F(AuthDataTest, LowerCaseTypeIsMigratedAndWrittenBackOnce) {
  OrvantaDevice old = testing::makeDevice("uuid-old", "ios");
  old.deviceToken = "t0";
  store(kDeviceKey, *jsonText(old));
  const int before = store_->writes(kDeviceKey);

  auto auth = authData(service_);
  auto migrated = auth->device();
  EXPECT_EQ(migrated.type, "IOS");
  EXPECT_EQ(migrated.deviceUUID, "uuid-old");
  EXPECT_EQ(migrated.deviceToken, "t0");
  EXPECT_EQ(auth->device(), migrated);
  EXPECT_EQ(store_->writes(kDeviceKey), before + 1);
  auto stored = OrvantaDevice::decode(*store_->read(kDeviceKey));
  ASSERT_TRUE(stored.isSuccess());
  EXPECT_EQ(stored.value().type, "IOS");

  // Case matters: only "ios" is migrated.
  OrvantaDevice other = testing::makeDevice("uuid-2", "Ios");
  store(kDeviceKey, *jsonText(other));
  EXPECT_EQ(auth->device().type, "Ios");
}

TEST_F(AuthDataTest, AnOlderRequestInFlightIsNotCancelledAndItsFailureIsRetried) {
  auto service = std::make_shared<DeferredDevicesService>();
  auto auth = authData(service);
  auth->storeDeviceTokenAndRegister("first");
  auth->storeDeviceTokenAndRegister("second");
  ASSERT_EQ(service->devices.size(), 2u);  // the first request is still in flight, not cancelled
  // The older request fails after the newer one started: it is handled as usual and schedules a
  // retry of the older record.
  service->handlers[0].onError(Error::statusCode(500));
  EXPECT_TRUE(auth->hasPendingRetry());
  EXPECT_EQ(logSink().linesContaining(Error::statusCode(500).localizedDescription()).size(), 1u);
  mainQueue().advance(kMinute);
  ASSERT_EQ(service->devices.size(), 3u);
  EXPECT_EQ(service->devices[2].deviceToken, "first");
  EXPECT_FALSE(auth->hasPendingRetry());

  // A later failure of the newer one replaces any pending retry with its own; a new token cancels
  // that retry, and its own record goes out.
  service->handlers[2].onError(Error::statusCode(500));
  service->handlers[1].onError(Error::statusCode(500));
  EXPECT_EQ(mainQueue().pendingCount(), 1u);
  auth->storeDeviceTokenAndRegister("third");
  EXPECT_FALSE(auth->hasPendingRetry());
  mainQueue().advance(2 * kMinute);
  ASSERT_EQ(service->devices.size(), 4u);
  EXPECT_EQ(service->devices[3].deviceToken, "third");
  EXPECT_EQ(service->devices[3].oldDeviceToken, "second");
}

TEST_F(AuthDataTest, APushTokenThatIsNotUtf8IsRepairedStoredAndRegistered) {
  auto auth = authData(service_);
  auth->storeDeviceTokenAndRegister("c0ffee\xFF");
  EXPECT_EQ(auth->device().deviceToken, "c0ffee\xEF\xBF\xBD");
  ASSERT_EQ(service_->registeredDevices().size(), 1u);
  EXPECT_EQ(service_->registeredDevices()[0].deviceToken, "c0ffee\xEF\xBF\xBD");

  // A record that cannot be written (built past the entrances) is not stored, and says so once.
  OrvantaDevice unwritable = auth->device();
  unwritable.user.email = "\xC3";
  auth->setDevice(unwritable);
  EXPECT_EQ(logSink().linesContaining("Parameter encoding failed").size(), 1u);
  EXPECT_EQ(auth->device().user.email, std::nullopt);
}

TEST_F(AuthDataTest, ARetryFindingItsOwnerGoneDoesNothing) {
  service_->scriptRegistrations({Error::statusCode(500)});
  auto auth = authData(service_);
  auth->registerDevice(testing::makeDevice("u"), "ok");
  EXPECT_EQ(mainQueue().pendingCount(), 1u);
  auth.reset();  // cancels the pending retry
  EXPECT_EQ(mainQueue().advance(kMinute), 0u);
  EXPECT_EQ(service_->registeredDevices().size(), 1u);
}

}  // namespace
}  // namespace orvanta
