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

JsonPreferencesStore::JsonPreferencesStore(std::string path, Report report)
    : path_(std::move(path)), report_(std::move(report)) {}

void JsonPreferencesStore::loadLocked() {
  if (loaded_) {
    return;
  }
  loaded_ = true;
  auto contents = readRegularFile(path_, kMaxPreferencesBytes);
  if (!contents) {
    return;  // no file yet: empty preferences
  }
  nlohmann::json document = nlohmann::json::parse(*contents, nullptr, false);
  if (document.is_discarded() || !document.is_object()) {
    damage_ = "The preferences file " + path_ +
              " is damaged; starting with empty preferences (logging off until switched on).";
    return;
  }
  for (const auto& [key, value] : document.items()) {
    if (auto converted = fromJson(value)) {
      values_.emplace(key, std::move(*converted));
    }
  }
}

std::optional<std::string> JsonPreferencesStore::saveLocked() {
  if (path_.empty()) {
    return "there is no file for them (neither XDG_CONFIG_HOME nor HOME is set)";
  }
  nlohmann::json document = nlohmann::json::object();
  for (const auto& entry : values_) {
    const std::string& key = entry.first;
    std::visit([&document, &key](const auto& held) { document[key] = held; }, entry.second);
  }
  std::string folder = parentFolder(path_);
  // Invalid UTF-8 in a key or value is written replaced rather than failing the whole file.
  std::string text = document.dump(2, ' ', false, nlohmann::json::error_handler_t::replace);
  text.push_back('\n');
  if (!makeDirectories(folder, 0700, false) ||
      !replaceFileAtomically(folder, lastComponent(path_), text)) {
    return errnoText();
  }
  return std::nullopt;
}

void JsonPreferencesStore::reportPending() {
  if (!report_) {
    return;
  }
  for (auto* pending : {&damage_, &writeFailure_}) {
    std::optional<std::string> line;
    {
      std::lock_guard lock(mutex_);
      line = std::exchange(*pending, std::nullopt);
    }
    if (!line) {
      continue;
    }
    const auto level =
        pending == &damage_ ? OrvantaLogger::LogLevel::warning : OrvantaLogger::LogLevel::error;
    if (!report_(level, *line)) {
      std::lock_guard lock(mutex_);
      if (!*pending) {
        *pending = std::move(line);  // said at a later use, once logging is on
      }
    }
  }
}

std::optional<port::PreferenceValue> JsonPreferencesStore::object(const std::string& key) {
  std::optional<port::PreferenceValue> result;
  {
    std::lock_guard lock(mutex_);
    loadLocked();
    auto found = values_.find(key);
    if (found != values_.end()) {
      result = found->second;
    }
  }
  reportPending();
  return result;
}

void JsonPreferencesStore::setObject(const std::string& key,
                                     const std::optional<port::PreferenceValue>& value) {
  {
    std::lock_guard lock(mutex_);
    loadLocked();
    if (value) {
      values_[key] = *value;
    } else {
      values_.erase(key);
    }
    if (auto failure = saveLocked()) {
      if (!writeFailureSaid_) {
        writeFailureSaid_ = true;
        writeFailure_ = "Could not write the preferences file " + path_ + ": " + *failure +
                        "; changes are kept in memory and written with the next one.";
      }
    } else {
      writeFailureSaid_ = false;
      writeFailure_.reset();
    }
  }
  reportPending();
}

}  // namespace orvanta::linux_platform
