#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "linux/file_secure_store.hpp"
#include "linux/json_preferences_store.hpp"
#include "testing/temporary_directory.hpp"

namespace orvanta::linux_platform {
namespace {

using port::PreferenceValue;
using port::SecureStoreStatus;

mode_t modeOf(const std::string& path) {
  struct stat info {};
  EXPECT_EQ(::stat(path.c_str(), &info), 0) << path;
  return info.st_mode & 07777;
}

TEST(FileSecureStoreTest, ItemsLiveInAPrivateFolderAndAddNeverReplaces) {
  testing::TemporaryDirectory root;
  FileSecureStore store(root.file("nested/keystore"));
  EXPECT_EQ(store.read("uuid"), std::nullopt);
  EXPECT_EQ(store.remove("uuid"), SecureStoreStatus::itemNotFound);

  ASSERT_EQ(store.add("uuid", "A-B"), SecureStoreStatus::success);
  EXPECT_EQ(store.add("uuid", "other"), SecureStoreStatus::failure);
  EXPECT_EQ(store.read("uuid"), "A-B");
  EXPECT_EQ(modeOf(root.file("nested/keystore")), 0700u);
  EXPECT_EQ(modeOf(root.file("nested/keystore/uuid.item")), 0600u);

  EXPECT_EQ(store.remove("uuid"), SecureStoreStatus::success);
  EXPECT_EQ(store.read("uuid"), std::nullopt);
  // No temporary file is left behind.
  EXPECT_TRUE(std::filesystem::is_empty(root.file("nested/keystore")));
}

TEST(FileSecureStoreTest, AnyAccountNameStaysInsideTheFolder) {
  testing::TemporaryDirectory root;
  FileSecureStore store(root.file("keystore"));
  const std::string accounts[] = {"../escape",        "a/b", ".", "..",
                                  ".tmp-XXXXXX",      "%2F", "/", std::string("nul\0byte", 8),
                                  "\xF0\x9F\x9A\x80", ""};
  for (const auto& account : accounts) {
    ASSERT_EQ(store.add(account, "v:" + account), SecureStoreStatus::success) << account;
  }
  for (const auto& account : accounts) {
    EXPECT_EQ(store.read(account), "v:" + account) << account;
  }
  std::size_t files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(root.file("keystore"))) {
    EXPECT_TRUE(entry.is_regular_file());
    ++files;
  }
  EXPECT_EQ(files, std::size(accounts));
  EXPECT_FALSE(std::filesystem::exists(root.file("escape.item")));
  EXPECT_EQ(FileSecureStore::fileNameForAccount(std::string(300, 'x')), std::nullopt);
}

TEST(FileSecureStoreTest, DamagedItemsReadAsNoValue) {
  testing::TemporaryDirectory root;
  FileSecureStore store(root.file("keystore"));
  ASSERT_EQ(store.add("key", "payload bytes"), SecureStoreStatus::success);
  std::string path = root.file("keystore/key.item");
  std::string good = testing::readFile(path);

  std::string flipped = good;
  flipped.back() ^= 0x01;
  for (const std::string& damaged :
       {flipped, good.substr(0, good.size() - 1), good.substr(0, 5), std::string(),
        std::string("plain text written by someone else")}) {
    testing::writeFile(path, damaged);
    EXPECT_EQ(store.read("key"), std::nullopt);
  }
  // A folder or a symbolic link in place of an item is not an item either.
  std::filesystem::remove(path);
  std::filesystem::create_directory(path);
  EXPECT_EQ(store.read("key"), std::nullopt);
  std::filesystem::remove(path);
  testing::writeFile(root.file("elsewhere"), FileSecureStore::encodeItem("secret"));
  std::filesystem::create_symlink(root.file("elsewhere"), path);
  EXPECT_EQ(store.read("key"), std::nullopt);
}

// Reads keep the last contents of an unchanged item, and see every change: by another store over
// the same folder (another process), or by a rewrite in place of the same size, at once.
TEST(FileSecureStoreTest, EveryReadSeesTheItemAsItIsNow) {
  testing::TemporaryDirectory root;
  FileSecureStore store(root.file("keystore"));
  FileSecureStore other(root.file("keystore"));
  ASSERT_EQ(store.add("record", "version-1"), SecureStoreStatus::success);
  for (int round = 2; round < 12; ++round) {
    EXPECT_EQ(store.read("record"), "version-" + std::to_string(round - 1));
    EXPECT_EQ(store.read("record"), "version-" + std::to_string(round - 1));
    const std::string next = "version-" + std::to_string(round);
    if (round % 2 == 0) {
      ASSERT_EQ(other.remove("record"), SecureStoreStatus::success);
      ASSERT_EQ(other.add("record", next), SecureStoreStatus::success);
    } else {
      testing::writeFile(root.file("keystore/record.item"), FileSecureStore::encodeItem(next));
    }
  }
  ASSERT_EQ(other.remove("record"), SecureStoreStatus::success);
  EXPECT_EQ(store.read("record"), std::nullopt);
}

TEST(JsonPreferencesStoreTest, ValuesSurviveARestart) {
  testing::TemporaryDirectory root;
  std::string path = root.file("config/preferences.json");
  {
    JsonPreferencesStore store(path);
    store.setObject("flag", PreferenceValue(true));
    store.setObject("count", PreferenceValue(std::int64_t{-3}));
    store.setObject("ratio", PreferenceValue(0.25));
    store.setObject("name", PreferenceValue(std::string("p-1")));
    store.setObject("gone", PreferenceValue(std::string("x")));
    store.setObject("gone", std::nullopt);
  }
  JsonPreferencesStore reopened(path);
  EXPECT_EQ(reopened.object("flag"), PreferenceValue(true));
  EXPECT_EQ(reopened.object("count"), PreferenceValue(std::int64_t{-3}));
  EXPECT_EQ(reopened.object("ratio"), PreferenceValue(0.25));
  EXPECT_EQ(reopened.object("name"), PreferenceValue(std::string("p-1")));
  EXPECT_EQ(reopened.object("gone"), std::nullopt);
}

TEST(JsonPreferencesStoreTest, DamagedFileReadsAsEmptyWarnsOnceAndIsReplaced) {
  testing::TemporaryDirectory root;
  std::string path = root.file("preferences.json");
  for (const char* damaged : {"{\"flag\": tru", "[1, 2]", "\xFF\xFE", ""}) {
    testing::writeFile(path, damaged);
    int warnings = 0;
    JsonPreferencesStore store(path, [&](OrvantaLogger::LogLevel level, std::string_view) {
      warnings += level == OrvantaLogger::LogLevel::warning ? 1 : 100;
      return true;
    });
    EXPECT_EQ(store.object("flag"), std::nullopt);
    EXPECT_EQ(store.object("other"), std::nullopt);
    EXPECT_EQ(warnings, 1) << damaged;

    store.setObject("flag", PreferenceValue(false));
    EXPECT_EQ(JsonPreferencesStore(path).object("flag"), PreferenceValue(false));
  }
}

}  // namespace
}  // namespace orvanta::linux_platform
