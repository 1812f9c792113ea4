#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// The few things the portable core asks of the operating system, each behind one function so
/// that the rest of the core stays free of system headers.
namespace orvanta::os {

/// Names the calling thread, as debuggers and `top -H` show it (Linux keeps the first 15 bytes).
/// Does nothing where the system has no thread names.
void setCurrentThreadName(std::string_view name);

/// Fills `size` bytes at `buffer` from the system's cryptographic random source. False when the
/// source cannot be read (then the buffer's content is unspecified).
bool fillRandomBytes(void* buffer, std::size_t size);

/// What tells one state of a file from another without reading it: which file (device and
/// inode), its size, and when its contents (mtime) and its inode (ctime) last changed, in
/// nanoseconds since 1970. Any write changes at least the change time, unless it happens within
/// the granularity of the file system's clock, which `FileIdentity` cannot see.
struct FileIdentity {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  std::int64_t size = 0;
  std::int64_t modifiedNanoseconds = 0;
  std::int64_t changedNanoseconds = 0;
  bool directory = false;
  friend bool operator==(const FileIdentity&, const FileIdentity&) = default;
};

/// The identity of the file at `path` (following symbolic links); none when it can't be read.
std::optional<FileIdentity> fileIdentity(const std::string& path);

/// Makes the file at `path` readable and writable by its owner only: created empty with mode 0600
/// when it is missing and `create` is set; an existing file loses every group and other
/// permission. False when it could not be created or changed (a missing file not to be created
/// counts as done).
bool makeOwnerOnlyFile(const std::string& path, bool create);

/// Creates the folder `path` and its missing parents, each with mode 0700 (the umask may only
/// narrow it); folders that exist are left as they are. False when `path` is not a folder
/// afterwards.
bool makeOwnerOnlyDirectories(const std::string& path);

}  // namespace orvanta::os
