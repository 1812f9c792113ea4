#include <gtest/gtest.h>

#include <regex>

#include "orvanta/linux_platform.hpp"
#include "storage/common_data.hpp"
#include "storage/device_uuid_provider.hpp"
#include "testing/platform_test.hpp"

namespace orvanta {
namespace {

using StoresTest = testing::PlatformTest;

TEST_F(StoresTest, UserDefaultsKeepTypesApart) {
  auto defaults = context().userDefaults();
  defaults->set(std::optional<bool>(true), std::string(UserDefaultsAccess::Key::isLoggingEnabled));
  defaults->set(std::optional<std::string>("text"), "string");
  defaults->set(std::optional<int>(7), "int");

  EXPECT_EQ(defaults->value<bool>("orvanta.userDefaults.isLoggingEnabled"), true);
  EXPECT_EQ(defaults->value<std::string>("string"), "text");
  EXPECT_EQ(defaults->value<int>("int"), 7);
  EXPECT_EQ(defaults->value<double>("int"), 7.0);
  EXPECT_EQ(defaults->value<std::string>("int"), std::nullopt);
  EXPECT_EQ(defaults->value<bool>("string"), std::nullopt);

  defaults->set(std::optional<std::string>(), "string");
  EXPECT_EQ(defaults->value<std::string>("string"), std::nullopt);
}

TEST_F(StoresTest, LastOpenedPushIdIsAStringPreference) {
  EXPECT_EQ(context().commonData()->lastOpenedPushId(), std::nullopt);
  context().commonData()->setLastOpenedPushId("p-17");
  EXPECT_EQ(context().commonData()->lastOpenedPushId(), "p-17");
  EXPECT_EQ(context().userDefaults()->value<std::string>("commonData.lastOpenedPushId"), "p-17");
  context().commonData()->setLastOpenedPushId(std::nullopt);
  EXPECT_EQ(context().commonData()->lastOpenedPushId(), std::nullopt);
}

TEST_F(StoresTest, DeviceUuidIsMadeOnceAndKept) {
  std::string uuid = DeviceUuidProvider::uuid(*context().keychain());
  EXPECT_TRUE(std::regex_match(
      uuid, std::regex("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}")))
      << uuid;
  EXPECT_EQ(DeviceUuidProvider::uuid(*context().keychain()), uuid);
  EXPECT_EQ(context().keychain()->get<std::string>("uuid"), uuid);

  // A later launch over the same files finds the same identifier.
  detail::KitContext relaunched(testPlatform().relaunch());
  EXPECT_EQ(DeviceUuidProvider::uuid(*relaunched.keychain()), uuid);

  DeviceUuidProvider::setUuid(*relaunched.keychain(), "11111111-2222-4333-8444-555555555555");
  EXPECT_EQ(DeviceUuidProvider::uuid(*relaunched.keychain()),
            "11111111-2222-4333-8444-555555555555");
}

TEST_F(StoresTest, DeviceUuidThatIsNotUtf8ReadsEmptyWithoutANewOne) {
  context().keychain()->set(Bytes{0xFF, 0xFE}, "uuid");
  EXPECT_EQ(DeviceUuidProvider::uuid(*context().keychain()), "");
  EXPECT_EQ(context().keychain()->get<Bytes>("uuid"), (Bytes{0xFF, 0xFE}));

  // Text that is not UTF-8 can't be stored: the old item stays.
  DeviceUuidProvider::setUuid(*context().keychain(), "\xC0\xAF");
  EXPECT_EQ(context().keychain()->get<Bytes>("uuid"), (Bytes{0xFF, 0xFE}));
}

TEST_F(StoresTest, UnreadableKeystoreMakesANewUuidEveryTime) {
  // The key store folder is a plain file: nothing can be read or written.
  testing::writeFile(testPlatform().secureStoreDirectory(), "not a folder");
  std::string first = DeviceUuidProvider::uuid(*context().keychain());
  std::string second = DeviceUuidProvider::uuid(*context().keychain());
  EXPECT_EQ(first.size(), 36u);
  EXPECT_NE(first, second);
}

}  // namespace
}  // namespace orvanta
