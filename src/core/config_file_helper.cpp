#include "core/config_file_helper.hpp"

#include <plist/plist.h>

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

// The top-level dictionary of the host's configuration file, parsed afresh; none when the file is
// missing, unreadable, not a property list or not a dictionary.
PlistPtr configFileDictonary(port::Bundle& bundle) {
  auto path = bundle.pathForResource("OrvantaConfig", "plist");
  if (!path) {
    return nullptr;
  }
  auto contents = readFile(*path);
  if (!contents) {
    return nullptr;
  }
  plist_t root = nullptr;
  plist_from_memory(contents->data(), static_cast<std::uint32_t>(contents->size()), &root);
  PlistPtr dictionary(root);
  if (!dictionary || plist_get_node_type(root) != PLIST_DICT) {
    return nullptr;
  }
  return dictionary;
}

}  // namespace

OrvantaConfigFileHelper::OrvantaConfigFileHelper(std::shared_ptr<port::Bundle> bundle)
    : bundle_(std::move(bundle)) {}

std::string OrvantaConfigFileHelper::stringValue(const char* key) const {
  PlistPtr dictionary = bundle_ ? configFileDictonary(*bundle_) : nullptr;
  if (!dictionary) {
    return {};
  }
  plist_t item = plist_dict_get_item(static_cast<plist_t>(dictionary.get()), key);
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

std::string OrvantaConfigFileHelper::token() const {
  return stringValue(Constants::ConfigFileKeys::token.data());
}

std::string OrvantaConfigFileHelper::secret() const {
  return stringValue(Constants::ConfigFileKeys::secret.data());
}

std::string OrvantaConfigFileHelper::appId() const {
  return stringValue(Constants::ConfigFileKeys::appId.data());
}

std::string OrvantaConfigFileHelper::eventsToken() const {
  return stringValue(Constants::ConfigFileKeys::eventsToken.data());
}

}  // namespace orvanta
