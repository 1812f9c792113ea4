#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "orvanta/port/preferences_store.hpp"

namespace orvanta::linux_platform {

/// The preferences store as one JSON object in one file, kept in memory after the first read and
/// rewritten atomically on every change. A file that is not a JSON object is taken as empty (and
/// replaced at the next write); `warn` hears about it once. Values of other JSON types are
/// ignored. Thread-safe; `warn` is called without the store's lock held.
class JsonPreferencesStore : public port::PreferencesStore {
 public:
  using Warning = std::function<void(std::string_view message)>;

  explicit JsonPreferencesStore(std::string path, Warning warn = {});

  std::optional<port::PreferenceValue> object(const std::string& key) override;
  void setObject(const std::string& key,
                 const std::optional<port::PreferenceValue>& value) override;

 private:
  /// Loads the file on first use; returns a warning to report, if any. Lock held.
  std::optional<std::string> loadLocked();
  bool saveLocked();

  std::string path_;
  Warning warn_;
  std::mutex mutex_;
  bool loaded_ = false;
  std::map<std::string, port::PreferenceValue> values_;
};

}  // namespace orvanta::linux_platform
