#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "core/file_snapshot.hpp"

#include "orvanta/port/secure_store.hpp"

namespace orvanta::linux_platform {

/// The secure store over a folder: one file per item, folder mode 0700, files 0600.
///
/// The file name is the account name with every byte outside [A-Za-z0-9._-] (and a leading dot)
/// written as "%XX", so any account string is a safe single file name; accounts whose encoded name
/// would pass 240 bytes are refused. An item file holds a small header (magic, length, CRC-32)
/// before the bytes, so a damaged file reads as no value instead of as wrong bytes. Writes are
/// atomic and durable (temporary file, fsync, link/rename, fsync of the folder), so a reader never
/// sees part of an item, even from another process. Thread-safe.
///
/// A write or delete that fails logs one error line with the item's path and the reason; a damaged
/// item logs one warning line naming it when it is read.
///
/// Every read sees the item as it is now. What is kept is the work: the last contents read of each
/// item, reused while the file's identity is unchanged (`detail::FileSnapshot`), so that reading
/// an unchanged item costs one `stat`.
class FileSecureStore : public port::SecureStore {
 public:
  explicit FileSecureStore(std::string folder);

  std::optional<std::string> read(const std::string& account) override;
  port::SecureStoreStatus add(const std::string& account, const std::string& bytes) override;
  port::SecureStoreStatus remove(const std::string& account) override;

  /// The file name that holds `account`; none when the account can't be stored.
  static std::optional<std::string> fileNameForAccount(const std::string& account);
  /// The file contents for an item holding `bytes`.
  static std::string encodeItem(const std::string& bytes);
  /// The bytes of an item file; none when it is damaged.
  static std::optional<std::string> decodeItem(const std::string& contents);

  const std::string& folder() const { return folder_; }

 private:
  struct Item {
    detail::FileSnapshot file;
    std::optional<std::string> bytes;  ///< decoded from `file`'s contents
  };

  std::string folder_;
  std::mutex mutex_;
  std::map<std::string, Item, std::less<>> items_;  ///< guarded by mutex_
};

}  // namespace orvanta::linux_platform
