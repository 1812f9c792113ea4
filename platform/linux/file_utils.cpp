#include "linux/file_utils.hpp"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <system_error>
#include <vector>

namespace orvanta::linux_platform {
namespace {

class FileDescriptor {
 public:
  explicit FileDescriptor(int fd) : fd_(fd) {}
  ~FileDescriptor() {
    if (fd_ >= 0) {
      ::close(fd_);
    }
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  int get() const { return fd_; }
  bool valid() const { return fd_ >= 0; }
  /// Closes now and reports whether the close succeeded.
  bool close() {
    int fd = fd_;
    fd_ = -1;
    return fd < 0 || ::close(fd) == 0;
  }

 private:
  int fd_;
};

/// Keeps `errno` as it is through cleanup work.
class ErrnoKeeper {
 public:
  ErrnoKeeper() : saved_(errno) {}
  ~ErrnoKeeper() { errno = saved_; }
  ErrnoKeeper(const ErrnoKeeper&) = delete;
  ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;

 private:
  int saved_;
};

bool writeAll(int fd, std::string_view contents) {
  const char* data = contents.data();
  std::size_t left = contents.size();
  while (left > 0) {
    ssize_t written = ::write(fd, data, left);
    if (written < 0) {
      if (errno == EINTR) {
        continue;
      }
      return false;
    }
    data += written;
    left -= static_cast<std::size_t>(written);
  }
  return true;
}

void syncFolder(const std::string& folder) {
  FileDescriptor fd(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (fd.valid()) {
    ::fsync(fd.get());
  }
}

// A synced temporary file in `folder` holding `contents`; its path, or none.
std::optional<std::string> writeTemporary(const std::string& folder, std::string_view contents) {
  std::string pattern = folder + "/.tmp-XXXXXX";
  std::vector<char> path(pattern.begin(), pattern.end());
  path.push_back('\0');
  FileDescriptor fd(::mkostemp(path.data(), O_CLOEXEC));  // mode 0600
  if (!fd.valid()) {
    return std::nullopt;
  }
  std::string tempPath(path.data());
  if (!writeAll(fd.get(), contents) || ::fsync(fd.get()) != 0 || !fd.close()) {
    ErrnoKeeper keep;
    fd.close();
    ::unlink(tempPath.c_str());
    return std::nullopt;
  }
  return tempPath;
}

}  // namespace

bool makeDirectories(const std::string& path, mode_t mode, bool enforceMode) {
  if (path.empty()) {
    errno = ENOENT;
    return false;
  }
  struct stat info {};
  if (::stat(path.c_str(), &info) == 0) {
    if (!S_ISDIR(info.st_mode)) {
      errno = ENOTDIR;
      return false;
    }
    if (enforceMode && (info.st_mode & 07777) != mode) {
      return ::chmod(path.c_str(), mode) == 0;
    }
    return true;
  }
  std::string parent = parentFolder(path);
  if (parent != path && parent != "." && parent != "/") {
    if (!makeDirectories(parent, 0700, false)) {
      return false;
    }
  }
  if (::mkdir(path.c_str(), mode) != 0 && errno != EEXIST) {
    return false;
  }
  return ::chmod(path.c_str(), mode) == 0;
}

bool replaceFileAtomically(const std::string& folder, const std::string& name,
                           std::string_view contents) {
  auto temporary = writeTemporary(folder, contents);
  if (!temporary) {
    return false;
  }
  std::string target = folder + "/" + name;
  if (::rename(temporary->c_str(), target.c_str()) != 0) {
    ErrnoKeeper keep;
    ::unlink(temporary->c_str());
    return false;
  }
  syncFolder(folder);
  return true;
}

bool createFileAtomically(const std::string& folder, const std::string& name,
                          std::string_view contents, bool& exists) {
  exists = false;
  auto temporary = writeTemporary(folder, contents);
  if (!temporary) {
    return false;
  }
  std::string target = folder + "/" + name;
  // A hard link never replaces an existing name, so "add only if absent" holds even between
  // processes; the temporary name is dropped afterwards.
  int linked = ::link(temporary->c_str(), target.c_str());
  int linkError = errno;
  ::unlink(temporary->c_str());
  if (linked != 0) {
    exists = linkError == EEXIST;
    errno = linkError;
    return false;
  }
  syncFolder(folder);
  return true;
}

std::optional<std::string> readRegularFile(const std::string& path, std::size_t maxBytes) {
  FileDescriptor fd(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
  if (!fd.valid()) {
    return std::nullopt;
  }
  struct stat info {};
  if (::fstat(fd.get(), &info) != 0 || !S_ISREG(info.st_mode) || info.st_size < 0 ||
      static_cast<std::size_t>(info.st_size) > maxBytes) {
    return std::nullopt;
  }
  std::string contents;
  contents.resize(static_cast<std::size_t>(info.st_size));
  std::size_t filled = 0;
  while (true) {
    if (filled == contents.size()) {
      // The file may have grown since fstat: look for more, within the cap.
      if (contents.size() >= maxBytes) {
        char probe;
        ssize_t extra = ::read(fd.get(), &probe, 1);
        if (extra == 0) {
          break;
        }
        if (extra < 0 && errno == EINTR) {
          continue;
        }
        return std::nullopt;
      }
      contents.resize(std::min(maxBytes, contents.size() * 2 + 256));
    }
    ssize_t got = ::read(fd.get(), contents.data() + filled, contents.size() - filled);
    if (got < 0) {
      if (errno == EINTR) {
        continue;
      }
      return std::nullopt;
    }
    if (got == 0) {
      break;
    }
    filled += static_cast<std::size_t>(got);
  }
  contents.resize(filled);
  return contents;
}

std::string errnoText() {
  return std::generic_category().message(errno);
}

std::string parentFolder(const std::string& path) {
  auto slash = path.find_last_of('/');
  if (slash == std::string::npos) {
    return ".";
  }
  if (slash == 0) {
    return "/";
  }
  return path.substr(0, slash);
}

std::string lastComponent(const std::string& path) {
  auto slash = path.find_last_of('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

}  // namespace orvanta::linux_platform
