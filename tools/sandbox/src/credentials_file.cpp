#include <plist/plist.h>

#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>

#include "orvanta_sandbox/sandbox.hpp"

namespace orvanta::sandbox {
namespace {

struct PlistFree {
  void operator()(plist_t node) const { plist_free(node); }
};
using PlistPtr = std::unique_ptr<void, PlistFree>;

// The string under `key`, or "" when it is missing or not a string.
std::string stringEntry(plist_t dictionary, const char* key) {
  plist_t node = plist_dict_get_item(dictionary, key);
  if (node == nullptr || plist_get_node_type(node) != PLIST_STRING) {
    return {};
  }
  std::uint64_t length = 0;
  const char* value = plist_get_string_ptr(node, &length);
  return value != nullptr ? std::string(value, length) : std::string();
}

}  // namespace

Credentials loadCredentials(const std::string& plistPath) {
  std::ifstream file(plistPath, std::ios::binary);
  if (!file) {
    throw std::runtime_error("can't read " + plistPath);
  }
  const std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  plist_t root = nullptr;
  if (!bytes.empty()) {
    plist_from_memory(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &root);
  }
  PlistPtr owner(root);
  if (root == nullptr || plist_get_node_type(root) != PLIST_DICT) {
    throw std::runtime_error(plistPath + " is not a property list dictionary");
  }
  Credentials credentials;
  credentials.appId = stringEntry(root, "AppId");
  credentials.token = stringEntry(root, "Token");
  credentials.secret = stringEntry(root, "Secret");
  credentials.eventsToken = stringEntry(root, "EventsToken");
  return credentials;
}

}  // namespace orvanta::sandbox
