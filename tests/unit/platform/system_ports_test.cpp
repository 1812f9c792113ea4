#include <gtest/gtest.h>

#include "linux/folder_bundle.hpp"
#include "linux/system_ports.hpp"
#include "testing/platform_test.hpp"

namespace orvanta::linux_platform {
namespace {

TEST(FolderBundleTest, FindsResourcesAndLocalizedStrings) {
  testing::TemporaryDirectory root;
  testing::writeFile(root.file("bundle/OrvantaConfig.plist"), "x");
  FolderBundle bundle(root.file("bundle"), testing::TestPlatform::kitResourcesDirectory());

  EXPECT_EQ(bundle.pathForResource("OrvantaConfig", "plist"),
            root.file("bundle/OrvantaConfig.plist"));
  EXPECT_EQ(bundle.pathForResource("OrvantaConfig", "json"), std::nullopt);
  EXPECT_EQ(bundle.pathForResource("../bundle/OrvantaConfig", "plist"), std::nullopt);

  EXPECT_EQ(bundle.localizedString("loc_ok", "Localizable"), "OK");
  EXPECT_EQ(bundle.localizedString("loc_unknown", "Localizable"), "loc_unknown");
  EXPECT_EQ(bundle.localizedString("loc_ok", "Missing"), "loc_ok");
}

TEST(LinuxDeviceInfoTest, ReadsOsReleaseAndLocale) {
  const char* osRelease =
      "PRETTY_NAME=\"Debian GNU/Linux 12 (bookworm)\"\n"
      "NAME=\"Debian GNU/Linux\"\n"
      "VERSION_ID=\"12\"\n"
      "ID=debian\n";
  EXPECT_EQ(LinuxDeviceInfo::osReleaseValue(osRelease, "NAME"), "Debian GNU/Linux");
  EXPECT_EQ(LinuxDeviceInfo::osReleaseValue(osRelease, "VERSION_ID"), "12");
  EXPECT_EQ(LinuxDeviceInfo::osReleaseValue(osRelease, "ID"), "debian");
  EXPECT_EQ(LinuxDeviceInfo::osReleaseValue(osRelease, "VERSION"), std::nullopt);

  testing::TemporaryDirectory root;
  testing::writeFile(root.file("os-release"), "NAME='Tiny OS'\nVERSION_ID=3.1\n");
  LinuxDeviceInfo info(root.file("os-release"));
  EXPECT_EQ(info.systemName(), "Tiny OS");
  EXPECT_EQ(info.systemVersion(), "3.1");
  EXPECT_FALSE(info.machine().empty());
  EXPECT_EQ(info.vendorId(), std::nullopt);

  // Without the file: uname's names.
  LinuxDeviceInfo fallback(root.file("missing"));
  EXPECT_EQ(fallback.systemName(), "Linux");
  EXPECT_FALSE(fallback.systemVersion().empty());

  EXPECT_EQ(LinuxDeviceInfo::languageFromLocale("en_US.UTF-8"), "en");
  EXPECT_EQ(LinuxDeviceInfo::languageFromLocale("de"), "de");
  EXPECT_EQ(LinuxDeviceInfo::languageFromLocale("sr@latin"), "sr");
  EXPECT_EQ(LinuxDeviceInfo::languageFromLocale("C"), std::nullopt);
  EXPECT_EQ(LinuxDeviceInfo::languageFromLocale("C.UTF-8"), std::nullopt);
  EXPECT_EQ(LinuxDeviceInfo::languageFromLocale("POSIX"), std::nullopt);
}

}  // namespace
}  // namespace orvanta::linux_platform
