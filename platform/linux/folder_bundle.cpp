#include "linux/folder_bundle.hpp"

#include <sys/stat.h>

#include <nlohmann/json.hpp>

#include <utility>

#include "linux/file_utils.hpp"

namespace orvanta::linux_platform {
namespace {

constexpr std::size_t kMaxTableBytes = 4 * 1024 * 1024;

// Resource names come from the kit, but a name that could leave the folder is refused anyway.
bool isSafeComponent(const std::string& text) {
  return text.find('/') == std::string::npos && text.find('\0') == std::string::npos &&
         text != "." && text != "..";
}

std::map<std::string, std::string> loadTable(const std::string& path) {
  std::map<std::string, std::string> entries;
  auto contents = readRegularFile(path, kMaxTableBytes);
  if (!contents) {
    return entries;
  }
  nlohmann::json document = nlohmann::json::parse(*contents, nullptr, false);
  if (document.is_discarded() || !document.is_object()) {
    return entries;
  }
  for (const auto& [key, value] : document.items()) {
    if (value.is_string()) {
      entries.emplace(key, value.get<std::string>());
    }
  }
  return entries;
}

}  // namespace

FolderBundle::FolderBundle(std::string bundleFolder, std::string kitResourcesFolder)
    : bundleFolder_(std::move(bundleFolder)), kitResourcesFolder_(std::move(kitResourcesFolder)) {}

std::optional<std::string> FolderBundle::pathForResource(const std::string& name,
                                                         const std::string& type) {
  std::string fileName = type.empty() ? name : name + "." + type;
  if (name.empty() || !isSafeComponent(fileName)) {
    return std::nullopt;
  }
  std::string path = bundleFolder_ + "/" + fileName;
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0 || S_ISDIR(info.st_mode)) {
    return std::nullopt;
  }
  return path;
}

std::string FolderBundle::localizedString(const std::string& key, const std::string& table) {
  std::string tableName = table.empty() ? "Localizable" : table;
  if (!isSafeComponent(tableName)) {
    return key;
  }
  std::lock_guard lock(mutex_);
  auto found = tables_.find(tableName);
  if (found == tables_.end()) {
    found = tables_.emplace(tableName, loadTable(kitResourcesFolder_ + "/" + tableName + ".json"))
                .first;
  }
  auto entry = found->second.find(key);
  return entry == found->second.end() ? key : entry->second;
}

}  // namespace orvanta::linux_platform
