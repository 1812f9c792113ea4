#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "core/resource_files.hpp"
#include "orvanta/port/bundle.hpp"

namespace orvanta::linux_platform {

/// A bundle over two folders: the host's (resources such as "OrvantaConfig.plist") and the kit's
/// own (string tables, one JSON object of key -> text per table). A table is read from the folder
/// of the first preferred language that has it ("<kit>/de/Localizable.json"; "pt_BR" also tries
/// "pt"), else from the kit folder itself, which holds English. A key the chosen table lacks shows
/// as the key. Tables are read once and kept. Thread-safe.
class FolderBundle : public port::Bundle, public detail::ResourceFiles {
 public:
  /// `languages`: the user's languages, most wanted first ("de", "pt_BR").
  FolderBundle(std::string bundleFolder, std::string kitResourcesFolder,
               std::vector<std::string> languages = {});

  /// The user's languages from the environment: LANGUAGE (a colon-separated list), then the first
  /// of LC_ALL, LC_MESSAGES and LANG; encodings and modifiers are dropped, "C" and "POSIX" skipped.
  static std::vector<std::string> preferredLanguages();

  std::optional<std::string> pathForResource(const std::string& name,
                                             const std::string& type) override;
  std::optional<Found> resourceFile(const std::string& name, const std::string& type) override;
  std::string localizedString(const std::string& key, const std::string& table) override;

  const std::string& bundleFolder() const { return bundleFolder_; }
  const std::string& kitResourcesFolder() const { return kitResourcesFolder_; }

 private:
  /// The file of `tableName` for the preferred languages.
  std::string tablePath(const std::string& tableName) const;

  std::string bundleFolder_;
  std::string kitResourcesFolder_;
  std::vector<std::string> languages_;
  std::mutex mutex_;
  std::map<std::string, std::map<std::string, std::string>> tables_;
};

}  // namespace orvanta::linux_platform
