#include "linux/folder_bundle.hpp"

#include <sys/stat.h>

#include <nlohmann/json.hpp>

#include <cstdlib>
#include <string_view>
#include <utility>

#include "linux/file_utils.hpp"

namespace orvanta::linux_platform {
namespace {

constexpr std::size_t kMaxTableBytes = 4 * 1024 * 1024;

// Resource names come from the kit, but a name that could leave the folder is refused anyway.
bool isSafeComponent(std::string_view text) {
  return text.find('/') == std::string_view::npos && text.find('\0') == std::string_view::npos &&
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

/// "de_DE.UTF-8@euro" -> "de_DE"; none for "C", "POSIX" and empty text.
std::optional<std::string> localeName(std::string_view locale) {
  std::string_view name = locale.substr(0, locale.find_first_of(".@"));
  if (name.empty() || name == "C" || name == "POSIX" || !isSafeComponent(name)) {
    return std::nullopt;
  }
  return std::string(name);
}

}  // namespace

FolderBundle::FolderBundle(std::string bundleFolder, std::string kitResourcesFolder,
                           std::vector<std::string> languages)
    : bundleFolder_(std::move(bundleFolder)),
      kitResourcesFolder_(std::move(kitResourcesFolder)),
      languages_(std::move(languages)) {}

std::vector<std::string> FolderBundle::preferredLanguages() {
  std::vector<std::string> languages;
  if (const char* list = std::getenv("LANGUAGE"); list != nullptr) {
    std::string_view rest(list);
    while (!rest.empty()) {
      const std::size_t colon = rest.find(':');
      if (auto name = localeName(rest.substr(0, colon))) {
        languages.push_back(*name);
      }
      rest = colon == std::string_view::npos ? std::string_view() : rest.substr(colon + 1);
    }
  }
  for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* value = std::getenv(variable);
    if (value != nullptr && value[0] != '\0') {
      if (auto name = localeName(value)) {
        languages.push_back(*name);
      }
      break;
    }
  }
  return languages;
}

std::optional<std::string> FolderBundle::pathForResource(const std::string& name,
                                                         const std::string& type) {
  auto found = resourceFile(name, type);
  if (!found) {
    return std::nullopt;
  }
  return std::move(found->path);
}

std::optional<detail::ResourceFiles::Found> FolderBundle::resourceFile(const std::string& name,
                                                                       const std::string& type) {
  if (name.empty()) {
    return std::nullopt;
  }
  std::string path;
  path.reserve(bundleFolder_.size() + name.size() + type.size() + 2);
  path.append(bundleFolder_).append("/").append(name);
  if (!type.empty()) {
    path.append(".").append(type);
  }
  if (!isSafeComponent(std::string_view(path).substr(bundleFolder_.size() + 1))) {
    return std::nullopt;
  }
  auto identity = os::fileIdentity(path);
  if (!identity || identity->directory) {
    return std::nullopt;
  }
  return Found{std::move(path), *identity};
}

std::string FolderBundle::tablePath(const std::string& tableName) const {
  const std::string fileName = tableName + ".json";
  for (const auto& language : languages_) {
    std::vector<std::string> candidates{language};
    if (auto underscore = language.find('_'); underscore != std::string::npos) {
      candidates.push_back(language.substr(0, underscore));
    }
    for (const auto& candidate : candidates) {
      std::string path = kitResourcesFolder_ + "/" + candidate + "/" + fileName;
      struct stat info {};
      if (::stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode)) {
        return path;
      }
    }
  }
  return kitResourcesFolder_ + "/" + fileName;
}

std::string FolderBundle::localizedString(const std::string& key, const std::string& table) {
  std::string tableName = table.empty() ? "Localizable" : table;
  if (!isSafeComponent(tableName)) {
    return key;
  }
  std::lock_guard lock(mutex_);
  auto found = tables_.find(tableName);
  if (found == tables_.end()) {
    found = tables_.emplace(tableName, loadTable(tablePath(tableName))).first;
  }
  auto entry = found->second.find(key);
  return entry == found->second.end() ? key : entry->second;
}

}  // namespace orvanta::linux_platform
