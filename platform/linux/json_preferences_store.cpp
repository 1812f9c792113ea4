#include "linux/json_preferences_store.hpp"

#include <nlohmann/json.hpp>

#include <utility>

#include "linux/file_utils.hpp"

namespace orvanta::linux_platform {
namespace {

constexpr std::size_t kMaxPreferencesBytes = 16 * 1024 * 1024;

std::optional<port::PreferenceValue> fromJson(const nlohmann::json& value) {
  switch (value.type()) {
    case nlohmann::json::value_t::boolean:
      return port::PreferenceValue(value.get<bool>());
    case nlohmann::json::value_t::number_integer:
      return port::PreferenceValue(value.get<std::int64_t>());
    case nlohmann::json::value_t::number_unsigned: {
      auto unsignedValue = value.get<std::uint64_t>();
      if (unsignedValue <= static_cast<std::uint64_t>(INT64_MAX)) {
        return port::PreferenceValue(static_cast<std::int64_t>(unsignedValue));
      }
      return port::PreferenceValue(static_cast<double>(unsignedValue));
    }
    case nlohmann::json::value_t::number_float:
      return port::PreferenceValue(value.get<double>());
    case nlohmann::json::value_t::string:
      return port::PreferenceValue(value.get<std::string>());
    default:
      return std::nullopt;
  }
}

}  // namespace

JsonPreferencesStore::JsonPreferencesStore(std::string path, Warning warn)
    : path_(std::move(path)), warn_(std::move(warn)) {}

std::optional<std::string> JsonPreferencesStore::loadLocked() {
  if (loaded_) {
    return std::nullopt;
  }
  loaded_ = true;
  auto contents = readRegularFile(path_, kMaxPreferencesBytes);
  if (!contents) {
    return std::nullopt;  // no file yet: empty preferences
  }
  nlohmann::json document = nlohmann::json::parse(*contents, nullptr, false);
  if (document.is_discarded() || !document.is_object()) {
    return "The preferences file " + path_ + " is damaged; starting with empty preferences.";
  }
  for (const auto& [key, value] : document.items()) {
    if (auto converted = fromJson(value)) {
      values_.emplace(key, std::move(*converted));
    }
  }
  return std::nullopt;
}

bool JsonPreferencesStore::saveLocked() {
  nlohmann::json document = nlohmann::json::object();
  for (const auto& entry : values_) {
    const std::string& key = entry.first;
    std::visit([&document, &key](const auto& held) { document[key] = held; }, entry.second);
  }
  std::string folder = parentFolder(path_);
  if (!makeDirectories(folder, 0700, false)) {
    return false;
  }
  // Invalid UTF-8 in a key or value is written replaced rather than failing the whole file.
  std::string text = document.dump(2, ' ', false, nlohmann::json::error_handler_t::replace);
  text.push_back('\n');
  return replaceFileAtomically(folder, lastComponent(path_), text);
}

std::optional<port::PreferenceValue> JsonPreferencesStore::object(const std::string& key) {
  std::optional<std::string> warning;
  std::optional<port::PreferenceValue> result;
  {
    std::lock_guard lock(mutex_);
    warning = loadLocked();
    auto found = values_.find(key);
    if (found != values_.end()) {
      result = found->second;
    }
  }
  if (warning && warn_) {
    warn_(*warning);
  }
  return result;
}

void JsonPreferencesStore::setObject(const std::string& key,
                                     const std::optional<port::PreferenceValue>& value) {
  std::optional<std::string> warning;
  {
    std::lock_guard lock(mutex_);
    warning = loadLocked();
    if (value) {
      values_[key] = *value;
    } else {
      values_.erase(key);
    }
    if (!saveLocked() && !warning) {
      warning = "Could not write the preferences file " + path_ + ".";
    }
  }
  if (warning && warn_) {
    warn_(*warning);
  }
}

}  // namespace orvanta::linux_platform
