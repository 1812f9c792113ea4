#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "core/os.hpp"

namespace orvanta::detail {

/// The contents of one file as last read, and what tells whether the file has changed since: the
/// file's identity (device, inode, size, modification and change times in nanoseconds) taken
/// before the read. A reader that finds the identity unchanged may skip reading the file again.
///
/// A file whose last change is too recent, at the moment it was read, for its times to tell a
/// later change apart (a rewrite of the same size within the granularity of the file system's
/// clock) is not trusted: `unchanged` gives none until a read finds it older than `settleTime`,
/// and the caller reads it again (comparing the bytes is then up to the caller). Not thread-safe:
/// the owner guards it.
class FileSnapshot {
 public:
  /// Two seconds: coarser than the time stamps of any file system the kit meets.
  static constexpr std::chrono::nanoseconds kDefaultSettleTime = std::chrono::seconds(2);

  explicit FileSnapshot(std::chrono::nanoseconds settleTime = kDefaultSettleTime)
      : settleTime_(settleTime) {}

  /// The contents kept for `path` when the file now has `identity` and is known unchanged since
  /// they were read; null otherwise.
  const std::string* unchanged(const std::string& path, const os::FileIdentity& identity) const;

  /// The contents last read (whether or not the file changed since), or null.
  const std::string* contents() const { return kept_ ? &kept_->contents : nullptr; }

  /// Keeps `contents`, read from `path` at `readAt` after its identity was taken as `identity`.
  void remember(const std::string& path, const os::FileIdentity& identity, std::string contents,
                std::chrono::system_clock::time_point readAt);
  void forget() { kept_.reset(); }

 private:
  struct Kept {
    std::string path;
    os::FileIdentity identity;
    std::string contents;
    bool settled = false;
  };
  std::chrono::nanoseconds settleTime_;
  std::optional<Kept> kept_;
};

}  // namespace orvanta::detail
