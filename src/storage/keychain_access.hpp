#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <string>
#include <string_view>

#include "orvanta/error.hpp"
#include "orvanta/port/secure_store.hpp"
#include "storage/data_convertible.hpp"

namespace orvanta {

/// The kit's view of the platform's secure store: items identified by account name alone.
///
/// Reads never fail: any problem reads as no value. Writes and deletes throw an `orvanta::Error` of
/// the `keychain` domain (code = the ordinal of the `KeychainAccess::Error` case, message = its
/// text); callers catch it, it never reaches the host. Every member may be called from any thread.
///
/// A write replaces an item by deleting it and adding the new one; reads wait while a write or a
/// delete is under way, so no reader ever sees an item missing because it is being replaced.
///
/// A write made with `setKeepingOnFailure` that fails (a full or read-only disk) still throws, and
/// its value is kept in memory: reads of that key answer it, and the next write (of any key) tries
/// to store it again first, so a push token saved while the disk was full is not replaced by the
/// old one.
class KeychainAccess {
 public:
  /// Failures of the secure store, in declared order (the ordinal is the error code).
  enum class Error {
    dataEncodingError,
    couldNotWriteData,
    couldNotDeleteData,
    couldNotClearKeychain,  ///< declared for completeness; nothing raises it
  };

  /// The case's text, e.g. "Could not write data to the Keychain.".
  static std::string_view rawValue(Error error);
  /// The case whose text is `text`; none for any other text.
  static std::optional<Error> errorFromRawValue(std::string_view text);
  /// The error as the kit's error value (domain `keychain`).
  static orvanta::Error makeError(Error error);

  explicit KeychainAccess(std::shared_ptr<port::SecureStore> store);

  /// The item under `key` converted to T; none when missing, unreadable or not convertible.
  template <DataConvertible T>
  std::optional<T> get(const std::string& key) {
    std::shared_lock lock(lock_);
    auto unsaved = unsaved_.find(key);
    auto bytes = unsaved != unsaved_.end() ? unsaved->second : store_->read(key);
    if (!bytes) {
      return std::nullopt;
    }
    return DataConversion<T>::fromData(bytesFromString(*bytes));
  }

  /// Replaces the item under `key` (delete, then add); no value only deletes it. Values kept in
  /// memory by an earlier failure are written first. Throws `couldNotDeleteData` or
  /// `couldNotWriteData`.
  void set(const std::optional<Bytes>& data, const std::string& key);
  /// `set`, and when it fails the value is kept in memory (see above) before the error is thrown.
  void setKeepingOnFailure(const std::optional<Bytes>& data, const std::string& key);

  /// Deletes the item under `key`; a missing item is not an error. Throws `couldNotDeleteData`.
  void remove(const std::string& key);

  const std::shared_ptr<port::SecureStore>& secureStore() const { return store_; }

 private:
  void write(const std::optional<Bytes>& data, const std::string& key, bool keep);
  void removeLocked(const std::string& key);
  /// Stores `value` under `key` (none: deletes it); on failure keeps it in `unsaved_` when `keep`
  /// is set, and throws.
  void writeLocked(const std::string& key, const std::optional<std::string>& value, bool keep);
  /// Tries again every write that failed, but the one of `key`.
  void writeUnsavedLocked(const std::string& key);

  /// Shared by readers, exclusive for the whole of a write or a delete.
  std::shared_mutex lock_;
  std::shared_ptr<port::SecureStore> store_;
  /// Values whose write failed, by key (none: a deletion); guarded by `lock_`.
  std::map<std::string, std::optional<std::string>, std::less<>> unsaved_;
};

}  // namespace orvanta
