#include "storage/keychain_access.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <memory>

#include "testing/platform_test.hpp"

namespace orvanta {
namespace {

using KeychainAccessTest = testing::PlatformTest;

TEST_F(KeychainAccessTest, ValuesRoundTripAndWritesReplace) {
  auto keychain = context().keychain();
  EXPECT_EQ(keychain->get<std::string>("uuid"), std::nullopt);

  keychain->set(bytesFromString("first"), "uuid");
  keychain->set(bytesFromString("second"), "uuid");
  EXPECT_EQ(keychain->get<std::string>("uuid"), "second");

  Bytes binary = {0x00, 0xFF, 0x10, 0x00};
  keychain->set(binary, "blob");
  EXPECT_EQ(keychain->get<Bytes>("blob"), binary);

  keychain->set(DataConversion<bool>::data(true), "flag");
  keychain->set(DataConversion<std::int64_t>::data(-5), "number");
  EXPECT_EQ(keychain->get<bool>("flag"), true);
  EXPECT_EQ(keychain->get<std::int64_t>("number"), -5);
  EXPECT_EQ(keychain->get<bool>("number"), std::nullopt);  // eight bytes are not a Boolean
}

TEST_F(KeychainAccessTest, NoValueDeletesAndDeletingNothingSucceeds) {
  auto keychain = context().keychain();
  keychain->set(bytesFromString("value"), "key");
  keychain->set(std::nullopt, "key");
  EXPECT_EQ(keychain->get<Bytes>("key"), std::nullopt);
  EXPECT_NO_THROW(keychain->remove("key"));
  EXPECT_NO_THROW(keychain->set(std::nullopt, "never-written"));
}

TEST_F(KeychainAccessTest, BytesThatAreNotUtf8ReadAsAnEmptyString) {
  auto keychain = context().keychain();
  keychain->set(Bytes{'a', 0xC3, 0x28}, "uuid");
  EXPECT_EQ(keychain->get<std::string>("uuid"), "");
  EXPECT_EQ(keychain->get<Bytes>("uuid"), (Bytes{'a', 0xC3, 0x28}));
}

// A store whose every change fails with the given statuses.
class FailingStore : public port::SecureStore {
 public:
  FailingStore(port::SecureStoreStatus addStatus, port::SecureStoreStatus removeStatus)
      : addStatus_(addStatus), removeStatus_(removeStatus) {}
  std::optional<std::string> read(const std::string&) override { return std::nullopt; }
  port::SecureStoreStatus add(const std::string&, const std::string&) override {
    ++adds;
    return addStatus_;
  }
  port::SecureStoreStatus remove(const std::string&) override { return removeStatus_; }
  int adds = 0;

 private:
  port::SecureStoreStatus addStatus_;
  port::SecureStoreStatus removeStatus_;
};

TEST(KeychainAccessErrors, FailuresThrowTheKeychainErrors) {
  using Status = port::SecureStoreStatus;
  auto cannotDelete = std::make_shared<FailingStore>(Status::success, Status::failure);
  KeychainAccess deleting(cannotDelete);
  try {
    deleting.set(bytesFromString("v"), "key");
    FAIL() << "expected a throw";
  } catch (const Error& error) {
    EXPECT_EQ(error.domain(), Error::Domain::keychain);
    EXPECT_EQ(error.code(), 2);
    EXPECT_EQ(error.localizedDescription(),
              "Could not delete data in the Keychain for the given key.");
  }
  EXPECT_EQ(cannotDelete->adds, 0);  // nothing is added after a failed delete

  KeychainAccess writing(std::make_shared<FailingStore>(Status::failure, Status::itemNotFound));
  try {
    writing.set(bytesFromString("v"), "key");
    FAIL() << "expected a throw";
  } catch (const Error& error) {
    EXPECT_EQ(error, KeychainAccess::makeError(KeychainAccess::Error::couldNotWriteData));
    EXPECT_EQ(error.code(), 1);
    EXPECT_EQ(error.message(), "Could not write data to the Keychain.");
  }

  EXPECT_EQ(KeychainAccess::errorFromRawValue("Could not clear all the Keychain's data."),
            KeychainAccess::Error::couldNotClearKeychain);
  EXPECT_EQ(
      KeychainAccess::errorFromRawValue("Could not encode given value to be stored as `Data`."),
      KeychainAccess::Error::dataEncodingError);
  EXPECT_EQ(KeychainAccess::errorFromRawValue("Could not write data"), std::nullopt);
}

TEST(DataConvertibleTest, TextThatIsNotUtf8HasNoBytes) {
  EXPECT_EQ(DataConversion<std::string>::data("\xFF"), std::nullopt);
}

}  // namespace
}  // namespace orvanta
