#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "orvanta/port/bundle.hpp"

namespace orvanta::linux_platform {

/// A bundle over two folders: the host's (resources such as "OrvantaConfig.plist") and the kit's
/// own (string tables, one JSON object of key -> text per table, "<table>.json"). String tables are
/// read once and kept. Thread-safe.
class FolderBundle : public port::Bundle {
 public:
  FolderBundle(std::string bundleFolder, std::string kitResourcesFolder);

  std::optional<std::string> pathForResource(const std::string& name,
                                             const std::string& type) override;
  std::string localizedString(const std::string& key, const std::string& table) override;

  const std::string& bundleFolder() const { return bundleFolder_; }
  const std::string& kitResourcesFolder() const { return kitResourcesFolder_; }

 private:
  std::string bundleFolder_;
  std::string kitResourcesFolder_;
  std::mutex mutex_;
  std::map<std::string, std::map<std::string, std::string>> tables_;
};

}  // namespace orvanta::linux_platform
