#pragma once

#include <string>
#include <utility>
#include <vector>

namespace orvanta::testing {

using PlistEntries = std::vector<std::pair<std::string, std::string>>;

/// An XML property list whose top-level dictionary holds `entries` as strings, in order.
std::string configPlistXml(const PlistEntries& entries);
/// The same dictionary as a binary property list.
std::string configPlistBinary(const PlistEntries& entries);

/// Writes "<bundleDirectory>/OrvantaConfig.plist" (XML) with `entries`.
void writeConfigPlist(const std::string& bundleDirectory, const PlistEntries& entries);

/// The four credentials, in the file's usual order.
PlistEntries credentials(const std::string& appId, const std::string& token,
                         const std::string& secret, const std::string& eventsToken);

}  // namespace orvanta::testing
