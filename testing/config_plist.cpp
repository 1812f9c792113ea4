#include "testing/config_plist.hpp"

#include <plist/plist.h>

#include "testing/temporary_directory.hpp"

namespace orvanta::testing {
namespace {

std::string write(const PlistEntries& entries, bool binary) {
  plist_t dictionary = plist_new_dict();
  for (const auto& [key, value] : entries) {
    plist_dict_set_item(dictionary, key.c_str(), plist_new_string(value.c_str()));
  }
  char* bytes = nullptr;
  uint32_t length = 0;
  binary ? plist_to_bin(dictionary, &bytes, &length) : plist_to_xml(dictionary, &bytes, &length);
  std::string written = bytes ? std::string(bytes, length) : std::string();
  binary ? plist_to_bin_free(bytes) : plist_to_xml_free(bytes);
  plist_free(dictionary);
  return written;
}

}  // namespace

std::string configPlistXml(const PlistEntries& entries) {
  return write(entries, false);
}

std::string configPlistBinary(const PlistEntries& entries) {
  return write(entries, true);
}

void writeConfigPlist(const std::string& bundleDirectory, const PlistEntries& entries) {
  writeFile(bundleDirectory + "/OrvantaConfig.plist", configPlistXml(entries));
}

PlistEntries credentials(const std::string& appId, const std::string& token,
                         const std::string& secret, const std::string& eventsToken) {
  return {{"AppId", appId}, {"Token", token}, {"Secret", secret}, {"EventsToken", eventsToken}};
}

}  // namespace orvanta::testing
