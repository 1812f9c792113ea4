#include "core/os.hpp"

#include <cerrno>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#if defined(__linux__)
#include <pthread.h>
#include <sys/random.h>
#elif defined(__APPLE__)
#include <pthread.h>
#include <stdlib.h>
#endif

namespace orvanta::os {

void setCurrentThreadName(std::string_view name) {
  std::string bounded(name.substr(0, 15));
#if defined(__linux__)
  pthread_setname_np(pthread_self(), bounded.c_str());
#elif defined(__APPLE__)
  pthread_setname_np(bounded.c_str());
#endif
}

bool fillRandomBytes(void* buffer, std::size_t size) {
#if defined(__linux__)
  auto* bytes = static_cast<unsigned char*>(buffer);
  while (size > 0) {
    const ssize_t got = getrandom(bytes, size, 0);
    if (got < 0) {
      if (errno == EINTR) {
        continue;
      }
      return false;
    }
    bytes += got;
    size -= static_cast<std::size_t>(got);
  }
  return true;
#elif defined(__APPLE__)
  arc4random_buf(buffer, size);
  return true;
#else
  (void)buffer;
  (void)size;
  return false;
#endif
}

std::optional<FileIdentity> fileIdentity(const std::string& path) {
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0) {
    return std::nullopt;
  }
  constexpr std::int64_t kNano = 1'000'000'000;
  FileIdentity identity;
  identity.device = static_cast<std::uint64_t>(info.st_dev);
  identity.inode = static_cast<std::uint64_t>(info.st_ino);
  identity.size = static_cast<std::int64_t>(info.st_size);
  identity.directory = S_ISDIR(info.st_mode);
#if defined(__APPLE__)
  identity.modifiedNanoseconds = info.st_mtimespec.tv_sec * kNano + info.st_mtimespec.tv_nsec;
  identity.changedNanoseconds = info.st_ctimespec.tv_sec * kNano + info.st_ctimespec.tv_nsec;
#else
  identity.modifiedNanoseconds = info.st_mtim.tv_sec * kNano + info.st_mtim.tv_nsec;
  identity.changedNanoseconds = info.st_ctim.tv_sec * kNano + info.st_ctim.tv_nsec;
#endif
  return identity;
}

bool makeOwnerOnlyFile(const std::string& path, bool create) {
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0) {
    if (errno != ENOENT) {
      return false;
    }
    if (!create) {
      return true;
    }
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) {
      return false;
    }
    // Created just now with 0600 (or found created meanwhile): narrow it all the same.
    const bool narrowed = ::fchmod(fd, 0600) == 0;
    ::close(fd);
    return narrowed;
  }
  if ((info.st_mode & 077) == 0) {
    return true;
  }
  return ::chmod(path.c_str(), info.st_mode & 0700) == 0;
}

bool makeOwnerOnlyDirectories(const std::string& path) {
  if (path.empty()) {
    return false;
  }
  struct stat info {};
  if (::stat(path.c_str(), &info) == 0) {
    return S_ISDIR(info.st_mode);
  }
  const std::size_t slash = path.find_last_of('/', path.size() - 2);
  if (slash != std::string::npos && slash > 0 && !makeOwnerOnlyDirectories(path.substr(0, slash))) {
    return false;
  }
  if (::mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) {
    return false;
  }
  return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

}  // namespace orvanta::os
