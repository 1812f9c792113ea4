// The configuration file read from several threads while it changes. Runs under ThreadSanitizer.

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "core/config_file_helper.hpp"
#include "testing/platform_test.hpp"

namespace orvanta {
namespace {

class ConfigFileConcurrencyTest : public testing::PlatformTest {};

TEST_F(ConfigFileConcurrencyTest, ReadersSeeWholeVersionsWhileTheFileChanges) {
  const std::string path = testPlatform().bundleDirectory() + "/OrvantaConfig.plist";
  const std::string versions[] = {testing::configPlistXml({{"Token", "version-a"}}),
                                  testing::configPlistXml({{"Token", "version-b"}})};
  // Each version replaces the file whole (a new inode), as a host's build or an editor does.
  const auto install = [&](int version) {
    testing::writeFile(path + ".tmp", versions[version]);
    ASSERT_EQ(std::rename((path + ".tmp").c_str(), path.c_str()), 0);
  };
  install(0);
  const auto& helper = *context().configFile();
  std::atomic<bool> done{false};
  std::atomic<int> unexpected{0};
  std::vector<std::thread> readers;
  for (int r = 0; r < 3; ++r) {
    readers.emplace_back([&] {
      while (!done.load()) {
        const std::string token = helper.token();
        if (token != "version-a" && token != "version-b") {
          ++unexpected;
        }
      }
    });
  }
  for (int i = 1; i <= 100; ++i) {
    install(i % 2);
  }
  done = true;
  for (auto& reader : readers) {
    reader.join();
  }
  EXPECT_EQ(unexpected.load(), 0);
  EXPECT_EQ(helper.token(), "version-a");
}

}  // namespace
}  // namespace orvanta
