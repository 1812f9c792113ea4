#include "core/config_file_helper.hpp"

#include <plist/plist.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include "core/constants.hpp"

namespace orvanta {
namespace {

// A configuration file holds four short strings; anything much larger is not one.
constexpr std::streamoff kMaxConfigFileBytes = 1 << 20;

struct PlistDeleter {
  void operator()(void* node) const { plist_free(static_cast<plist_t>(node)); }
};
using PlistPtr = std::unique_ptr<void, PlistDeleter>;

std::optional<std::string> readFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    return std::nullopt;
  }
  file.seekg(0, std::ios::end);
  std::streamoff size = file.tellg();
  if (size <= 0 || size > kMaxConfigFileBytes) {
    return std::nullopt;
  }
  file.seekg(0, std::ios::beg);
  std::string contents(static_cast<std::size_t>(size), '\0');
  if (!file.read(contents.data(), size)) {
    return std::nullopt;
  }
  return contents;
}

// The top-level dictionary of a configuration file's contents; none when they are not a property
// list or not a dictionary.
PlistPtr configFileDictonary(const std::string& contents) {
  plist_t root = nullptr;
  plist_from_memory(contents.data(), static_cast<std::uint32_t>(contents.size()), &root);
  PlistPtr dictionary(root);
  if (!dictionary || plist_get_node_type(root) != PLIST_DICT) {
    return nullptr;
  }
  return dictionary;
}

std::string stringEntry(const PlistPtr& dictionary, std::string_view key) {
  if (!dictionary) {
    return {};
  }
  plist_t item =
      plist_dict_get_item(static_cast<plist_t>(dictionary.get()), std::string(key).c_str());
  if (item == nullptr || plist_get_node_type(item) != PLIST_STRING) {
    return {};
  }
  std::uint64_t length = 0;
  const char* text = plist_get_string_ptr(item, &length);
  if (text == nullptr) {
    return {};
  }
  return std::string(text, static_cast<std::size_t>(length));
}

}  // namespace

OrvantaConfigFileHelper::OrvantaConfigFileHelper(std::shared_ptr<port::Bundle> bundle,
                                                 std::chrono::nanoseconds settleTime)
    : bundle_(std::move(bundle)),
      files_(dynamic_cast<detail::ResourceFiles*>(bundle_.get())),
      file_(settleTime) {}

std::string OrvantaConfigFileHelper::stringValue(Key key) const {
  if (!bundle_) {
    return {};
  }
  std::optional<detail::ResourceFiles::Found> found;
  if (files_ != nullptr) {
    found = files_->resourceFile("OrvantaConfig", "plist");
  } else if (auto path = bundle_->pathForResource("OrvantaConfig", "plist")) {
    if (auto identity = os::fileIdentity(*path)) {
      found = detail::ResourceFiles::Found{std::move(*path), *identity};
    }
  }
  if (!found) {
    return {};
  }
  const auto& [path, identity] = *found;
  std::lock_guard lock(mutex_);
  if (file_.unchanged(path, identity) != nullptr) {
    return values_[key];
  }
  // Taken before the read: a change after it gets a later time stamp.
  const auto readAt = std::chrono::system_clock::now();
  auto contents = readFile(path);
  if (!contents) {
    file_.forget();
    return {};
  }
  if (file_.contents() == nullptr || *file_.contents() != *contents) {
    PlistPtr dictionary = configFileDictonary(*contents);
    values_[kToken] = stringEntry(dictionary, Constants::ConfigFileKeys::token);
    values_[kSecret] = stringEntry(dictionary, Constants::ConfigFileKeys::secret);
    values_[kAppId] = stringEntry(dictionary, Constants::ConfigFileKeys::appId);
    values_[kEventsToken] = stringEntry(dictionary, Constants::ConfigFileKeys::eventsToken);
  }
  file_.remember(path, identity, std::move(*contents), readAt);
  return values_[key];
}

std::string OrvantaConfigFileHelper::token() const {
  return stringValue(kToken);
}

std::string OrvantaConfigFileHelper::secret() const {
  return stringValue(kSecret);
}

std::string OrvantaConfigFileHelper::appId() const {
  return stringValue(kAppId);
}

std::string OrvantaConfigFileHelper::eventsToken() const {
  return stringValue(kEventsToken);
}

}  // namespace orvanta
