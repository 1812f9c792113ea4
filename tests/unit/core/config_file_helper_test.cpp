#include "core/config_file_helper.hpp"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string>

#include "testing/platform_test.hpp"

namespace orvanta {
namespace {

class ConfigFileHelperTest : public testing::PlatformTest {
 protected:
  std::string configPath() { return testPlatform().bundleDirectory() + "/OrvantaConfig.plist"; }

  void expectAllEmpty() {
    EXPECT_EQ(context().configFile()->appId(), "");
    EXPECT_EQ(context().configFile()->token(), "");
    EXPECT_EQ(context().configFile()->secret(), "");
    EXPECT_EQ(context().configFile()->eventsToken(), "");
  }
};

TEST_F(ConfigFileHelperTest, ReadsXmlAndBinaryPropertyLists) {
  writeConfig(testing::credentials("app-1", " token with blanks ", "s&<cret>", "events-1"));
  EXPECT_EQ(context().configFile()->appId(), "app-1");
  EXPECT_EQ(context().configFile()->token(), " token with blanks ");
  EXPECT_EQ(context().configFile()->secret(), "s&<cret>");
  EXPECT_EQ(context().configFile()->eventsToken(), "events-1");

  testing::writeFile(configPath(), testing::configPlistBinary(testing::credentials(
                                       "app-2", "token-2", "secret-2", "événements")));
  EXPECT_EQ(context().configFile()->appId(), "app-2");
  EXPECT_EQ(context().configFile()->eventsToken(), "événements");
}

TEST_F(ConfigFileHelperTest, ChangesToTheFileAreSeenAtTheNextRead) {
  writeConfig({{"Token", "first"}});
  EXPECT_EQ(context().configFile()->token(), "first");
  writeConfig({{"Token", "second"}});
  EXPECT_EQ(context().configFile()->token(), "second");
  std::remove(configPath().c_str());
  EXPECT_EQ(context().configFile()->token(), "");
}

// The file is rewritten in place with contents of the same size, at once: same inode, same size,
// and time stamps that the file system's clock may not tell apart. The very next read sees it.
TEST_F(ConfigFileHelperTest, ASameSizeRewriteInPlaceIsSeenByTheNextRead) {
  for (int round = 0; round < 20; ++round) {
    const std::string token = "token-" + std::to_string(10 + round);
    testing::writeFile(configPath(), testing::configPlistXml({{"Token", token}}));
    EXPECT_EQ(context().configFile()->token(), token);
    EXPECT_EQ(context().configFile()->eventsToken(), "");
  }
}

void setModificationTime(const std::string& path, std::int64_t seconds, long nanoseconds) {
  const timespec times[2] = {{seconds, nanoseconds}, {seconds, nanoseconds}};
  ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
}

// A reader that trusts a file as soon as its identity is unchanged (no settling time) still sees a
// rewrite whose only trace is a modification time one nanosecond apart.
TEST_F(ConfigFileHelperTest, AnUnchangedIdentityIsReadOnceAndAnyChangeOfItIsSeen) {
  OrvantaConfigFileHelper trusting(platform()->bundle, std::chrono::nanoseconds(0));
  testing::writeFile(configPath(), testing::configPlistXml({{"Token", "alpha"}}));
  setModificationTime(configPath(), 1'000'000'000, 100);
  EXPECT_EQ(trusting.token(), "alpha");

  testing::writeFile(configPath(), testing::configPlistXml({{"Token", "omega"}}));
  setModificationTime(configPath(), 1'000'000'000, 101);
  EXPECT_EQ(trusting.token(), "omega");

  // Replaced by another file (a new inode), then gone.
  const std::string replacement = configPath() + ".new";
  testing::writeFile(replacement, testing::configPlistXml({{"Token", "gamma"}}));
  setModificationTime(replacement, 1'000'000'000, 101);
  ASSERT_EQ(std::rename(replacement.c_str(), configPath().c_str()), 0);
  EXPECT_EQ(trusting.token(), "gamma");
  std::remove(configPath().c_str());
  EXPECT_EQ(trusting.token(), "");
}

TEST_F(ConfigFileHelperTest, MissingKeysAndNonStringValuesReadAsEmpty) {
  testing::writeFile(configPath(),
                     "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict>"
                     "<key>Token</key><integer>12345</integer>"
                     "<key>Secret</key><dict><key>a</key><string>b</string></dict>"
                     "<key>AppId</key><string>app</string>"
                     "</dict></plist>");
  EXPECT_EQ(context().configFile()->token(), "");
  EXPECT_EQ(context().configFile()->secret(), "");
  EXPECT_EQ(context().configFile()->eventsToken(), "");
  EXPECT_EQ(context().configFile()->appId(), "app");
}

TEST_F(ConfigFileHelperTest, UnusableFilesReadAsEmpty) {
  expectAllEmpty();  // no file at all

  std::string valid = testing::configPlistXml(testing::credentials("a", "t", "s", "e"));
  std::string binary = testing::configPlistBinary(testing::credentials("a", "t", "s", "e"));
  const std::string unusable[] = {
      "",
      valid.substr(0, valid.size() / 2),
      binary.substr(0, binary.size() - 12),
      "bplist00\xff\xff\xff\xff garbage",
      std::string("\0\1\2\3\4\5\6\7", 8),
      "<?xml version=\"1.0\"?><plist version=\"1.0\"><array><string>Token</string></array></plist>",
      "<?xml version=\"1.0\"?><plist version=\"1.0\"><string>just text</string></plist>",
      "{\"Token\": \"json is not a property list\"}",
  };
  for (const auto& contents : unusable) {
    SCOPED_TRACE(contents);
    testing::writeFile(configPath(), contents);
    expectAllEmpty();
  }
  // A folder in the file's place is no configuration either.
  ASSERT_EQ(std::remove(configPath().c_str()), 0);
  ASSERT_EQ(::mkdir(configPath().c_str(), 0700), 0);
  expectAllEmpty();
}

}  // namespace
}  // namespace orvanta
