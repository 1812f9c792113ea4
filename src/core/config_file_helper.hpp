#pragma once

#include <array>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>

#include "core/file_snapshot.hpp"
#include "core/resource_files.hpp"
#include "orvanta/port/bundle.hpp"

namespace orvanta {

/// The host's four credentials, as they are at the moment of each call: a change of their source
/// is seen by the very next call. Any thread.
class CredentialsSource {
 public:
  virtual ~CredentialsSource() = default;
  virtual std::string token() const = 0;
  virtual std::string secret() const = 0;
  virtual std::string appId() const = 0;
  virtual std::string eventsToken() const = 0;
};

/// Reads the credentials from the resource "OrvantaConfig" of type "plist" in the host's bundle.
/// A missing or unreadable file, a missing key or a value that is not a string all give the empty
/// string. Any thread.
///
/// Every call looks the file up in the bundle and reads it as it is now; no credential outlives a
/// change of the file. What is kept is only the work: the file's last contents and the four
/// values parsed from them, reused while the file's identity (device, inode, size, modification
/// and change times in nanoseconds) is unchanged. A file whose last change is too recent for its
/// times to tell a later change apart (within `settleTime` of the moment it was read) is read
/// again and compared byte for byte on each call until it has settled, so that a rewrite of the
/// same size within the clock's granularity is seen as well.
class OrvantaConfigFileHelper final : public CredentialsSource {
 public:
  /// `settleTime`: see `detail::FileSnapshot`.
  explicit OrvantaConfigFileHelper(
      std::shared_ptr<port::Bundle> bundle,
      std::chrono::nanoseconds settleTime = detail::FileSnapshot::kDefaultSettleTime);

  std::string token() const override;
  std::string secret() const override;
  std::string appId() const override;
  std::string eventsToken() const override;

 private:
  enum Key { kToken, kSecret, kAppId, kEventsToken, kKeyCount };
  std::string stringValue(Key key) const;

  std::shared_ptr<port::Bundle> bundle_;
  detail::ResourceFiles* files_ = nullptr;  ///< the bundle, when it can look a file up in one step
  mutable std::mutex mutex_;
  mutable detail::FileSnapshot file_;                  ///< guarded by mutex_
  mutable std::array<std::string, kKeyCount> values_;  ///< parsed from file_, guarded by mutex_
};

}  // namespace orvanta
