#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "core/logger.hpp"
#include "orvanta/port/preferences_store.hpp"

namespace orvanta::linux_platform {

/// The preferences store as one JSON object in one file, kept in memory after the first read and
/// rewritten atomically on every change. A file that is not a JSON object is taken as empty (and
/// replaced at the next write), with one warning naming it. A write that fails keeps the change in
/// memory (the next write writes it too), with one error line naming the file and the reason when
/// writing starts to fail. Values of other JSON types are ignored. Thread-safe; `report` is called
/// without the store's lock held.
class JsonPreferencesStore : public port::PreferencesStore {
 public:
  /// Says a line of the store's (a warning or an error); true when it was printed. A line that
  /// was not (logging was off) is said again at a later use of the store.
  using Report = std::function<bool(OrvantaLogger::LogLevel level, std::string_view message)>;

  explicit JsonPreferencesStore(std::string path, Report report = {});

  std::optional<port::PreferenceValue> object(const std::string& key) override;
  void setObject(const std::string& key,
                 const std::optional<port::PreferenceValue>& value) override;

 private:
  /// Loads the file on first use. Lock held.
  void loadLocked();
  /// Writes the file; the reason when it can't. Lock held.
  std::optional<std::string> saveLocked();
  /// Says the lines waiting to be said. Lock not held.
  void reportPending();

  std::string path_;
  Report report_;
  std::mutex mutex_;
  bool loaded_ = false;
  std::map<std::string, port::PreferenceValue> values_;
  /// Lines not said yet: the damage found at loading, a write that failed.
  std::optional<std::string> damage_;
  std::optional<std::string> writeFailure_;
  /// A failed write has been said, and writing has not worked since.
  bool writeFailureSaid_ = false;
};

}  // namespace orvanta::linux_platform
