#include "core/os.hpp"

#include <cerrno>
#include <string>

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

}  // namespace orvanta::os
