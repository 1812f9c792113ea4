#include "testing/config_plist.hpp"

#include <plist/plist.h>

#include "testing/temporary_directory.hpp"

namespace orvanta::testing {
namespace {

std::string escapeXml(const std::string& text) {
  std::string escaped;
  for (char c : text) {
    switch (c) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      default:
        escaped.push_back(c);
    }
  }
  return escaped;
}

}  // namespace

std::string configPlistXml(const PlistEntries& entries) {
  std::string xml =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
      "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
      "<plist version=\"1.0\">\n<dict>\n";
  for (const auto& [key, value] : entries) {
    xml += "\t<key>" + escapeXml(key) + "</key>\n\t<string>" + escapeXml(value) + "</string>\n";
  }
  xml += "</dict>\n</plist>\n";
  return xml;
}

std::string configPlistBinary(const PlistEntries& entries) {
  plist_t dictionary = plist_new_dict();
  for (const auto& [key, value] : entries) {
    plist_dict_set_item(dictionary, key.c_str(), plist_new_string(value.c_str()));
  }
  char* bytes = nullptr;
  uint32_t length = 0;
  plist_to_bin(dictionary, &bytes, &length);
  std::string binary = bytes ? std::string(bytes, length) : std::string();
  plist_to_bin_free(bytes);
  plist_free(dictionary);
  return binary;
}

void writeConfigPlist(const std::string& bundleDirectory, const PlistEntries& entries) {
  writeFile(bundleDirectory + "/OrvantaConfig.plist", configPlistXml(entries));
}

PlistEntries credentials(const std::string& appId, const std::string& token,
                         const std::string& secret, const std::string& eventsToken) {
  return {{"AppId", appId}, {"Token", token}, {"Secret", secret}, {"EventsToken", eventsToken}};
}

}  // namespace orvanta::testing
