// What the Linux key-value stores say, and keep, when their files can't be written or come back
// damaged.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>

#include "core/logging_switch.hpp"
#include "linux/file_secure_store.hpp"
#include "linux/json_preferences_store.hpp"
#include "linux/linux_platform_internal.hpp"
#include "storage/keychain_access.hpp"
#include "testing/mock_devices_service.hpp"
#include "testing/platform_test.hpp"
#include "testing/storage_faults.hpp"

namespace orvanta {
namespace {

constexpr const char* kDeviceRecord = "authorizationData.deviceModel";

class StoreFailuresTest : public testing::PlatformTest {
 protected:
  void SetUp() override {
    PlatformTest::SetUp();
    enableLogging();
  }
  std::size_t lines(const std::string& text) { return logSink().linesContaining(text).size(); }
};

// A push token saved while the disk refuses it is read back from memory, not the old one from
// the disk, and stored with the next write; the store says why it failed, naming the file. A
// damaged item and a record that does not decode are each said once.
TEST_F(StoreFailuresTest, TheSecureStoreKeepsATokenItCouldNotWriteAndSaysWhatFailed) {
  auto faulty = std::make_shared<testing::FaultySecureStore>(platform()->secureStore);
  auto dependencies = authDataDependencies(std::make_shared<MockDevicesService>());
  auto keychain = std::make_shared<KeychainAccess>(faulty);
  dependencies.keychain = keychain;
  auto authData = AuthData::make(std::move(dependencies));
  authData->storeDeviceTokenAndRegister("old-token");
  faulty->failing = true;
  authData->storeDeviceTokenAndRegister("new-token");
  EXPECT_EQ(authData->device().deviceToken, "new-token");
  // A plain write keeps nothing in memory: a device id that can't be stored is made anew.
  EXPECT_THROW(keychain->set(bytesFromString("id"), "other"), Error);
  EXPECT_EQ(keychain->get<std::string>("other"), std::nullopt);
  faulty->failing = false;
  keychain->set(bytesFromString("id"), "other");
  auto stored = OrvantaDevice::decode(*platform()->secureStore->read(kDeviceRecord));
  ASSERT_TRUE(stored.isSuccess());
  EXPECT_EQ(stored.value().deviceToken, "new-token");

  // The file store names the item and the reason.
  const std::string blocked = testPlatform().root() + "/blocked";
  testing::writeFile(blocked, "a file where the folder should be");
  linux_platform::FileSecureStore store(blocked);
  EXPECT_EQ(store.add("record", "bytes"), port::SecureStoreStatus::failure);
  EXPECT_EQ(
      lines("Could not write the secure store item " + blocked + "/record.item: Not a directory"),
      1u);

  testing::writeFile(testPlatform().secureStoreDirectory() + "/uuid.item", "garbled");
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(platform()->secureStore->read("uuid"), std::nullopt);
  }
  EXPECT_EQ(lines("The secure store item " + testPlatform().secureStoreDirectory() +
                  "/uuid.item is damaged: it reads as missing until it is written again"),
            1u);

  ASSERT_EQ(platform()->secureStore->remove(kDeviceRecord), port::SecureStoreStatus::success);
  ASSERT_EQ(platform()->secureStore->add(kDeviceRecord, "{\"deviceToken\":"),
            port::SecureStoreStatus::success);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(authData->device().deviceToken, std::nullopt);
  }
  EXPECT_EQ(lines("The stored device record does not decode ("), 1u);
}

// A change that can't be written stays in memory and is written with the next one; the failure is
// said once per run of failures, with the file and the reason. A damaged file is said once, when
// logging is on to say it.
TEST_F(StoreFailuresTest, PreferencesKeepWhatTheyCouldNotWriteAndSayWhatFailed) {
  const std::string folder = testPlatform().root() + "/config";
  auto& preferences = *platform()->preferences;
  auto block = [&] {
    std::filesystem::remove_all(folder);
    testing::writeFile(folder, "a file where the folder should be");
  };
  auto unblock = [&] {
    std::filesystem::remove(folder);
    std::filesystem::create_directories(folder);
  };
  block();
  preferences.setObject("first", port::PreferenceValue(std::int64_t{1}));
  preferences.setObject("second", port::PreferenceValue(std::int64_t{2}));
  const std::string failure = "Could not write the preferences file " + folder +
                              "/preferences.json: Not a directory; changes are kept in memory and "
                              "written with the next one.";
  EXPECT_EQ(lines(failure), 1u);
  EXPECT_EQ(preferences.object("first"), port::PreferenceValue(std::int64_t{1}));

  unblock();
  preferences.setObject("third", port::PreferenceValue(std::int64_t{3}));
  linux_platform::JsonPreferencesStore reread(folder + "/preferences.json");
  EXPECT_EQ(reread.object("first"), port::PreferenceValue(std::int64_t{1}));
  EXPECT_EQ(reread.object("third"), port::PreferenceValue(std::int64_t{3}));
  block();
  preferences.setObject("fourth", port::PreferenceValue(std::int64_t{4}));
  EXPECT_EQ(lines(failure), 2u);  // a new run of failures
  unblock();

  const std::string damagedPath = testPlatform().root() + "/damaged.json";
  testing::writeFile(damagedPath, "{\"orvanta.userDefaults.isLoggingEnabled\": tru");
  linux_platform::JsonPreferencesStore damaged(damagedPath, linux_platform::reportsToLogger());
  detail::setLoggingEnabled(preferences, false);
  EXPECT_EQ(damaged.object("any"), std::nullopt);
  detail::setLoggingEnabled(preferences, true);
  EXPECT_EQ(damaged.object("any"), std::nullopt);
  EXPECT_EQ(damaged.object("any"), std::nullopt);
  EXPECT_EQ(lines("The preferences file " + damagedPath +
                  " is damaged; starting with empty preferences (logging off until switched on)."),
            1u);
}

}  // namespace
}  // namespace orvanta
