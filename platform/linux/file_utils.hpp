#pragma once

#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace orvanta::linux_platform {

// The writing functions below answer false with `errno` set to the reason.

/// Creates `path` and its missing parents. The last component gets `mode` (applied with chmod,
/// so the umask doesn't weaken it) when it is created, or when `enforceMode` is set even if it
/// already existed. Parents are created 0700. False when the folder can't be made.
bool makeDirectories(const std::string& path, mode_t mode, bool enforceMode);

/// Replaces the file `name` in `folder` with `contents`, atomically: a temporary file in the same
/// folder (mode 0600) is written and synced, renamed over the target, and the folder is synced.
/// Readers see the old file or the new one, never a mixture.
bool replaceFileAtomically(const std::string& folder, const std::string& name,
                           std::string_view contents);

/// Like `replaceFileAtomically` but fails, leaving everything as it was, when `name` exists.
/// `exists` is set when that is the reason.
bool createFileAtomically(const std::string& folder, const std::string& name,
                          std::string_view contents, bool& exists);

/// The whole contents of a regular file of at most `maxBytes` bytes; none when it is missing,
/// not a regular file, a symbolic link, larger than the cap or unreadable.
std::optional<std::string> readRegularFile(const std::string& path, std::size_t maxBytes);

/// The text of the reason in `errno`.
std::string errnoText();

/// The folder part of a path ("." when there is none).
std::string parentFolder(const std::string& path);
/// The last component of a path.
std::string lastComponent(const std::string& path);

}  // namespace orvanta::linux_platform
