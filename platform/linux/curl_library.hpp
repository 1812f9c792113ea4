#pragma once

#include <curl/curl.h>

#include <string>

namespace orvanta::linux_platform {

/// libcurl's functions as the HTTP client uses them, from the library loaded when the first
/// request needs it: a process that sends nothing never loads libcurl, nor the TLS, compression
/// and authentication libraries it brings (a quarter of a host's start-up and several megabytes).
///
/// The library is the one named by `ORVANTA_LIBCURL` at build time ("libcurl.so.4"), found as the
/// dynamic linker finds any library. It is loaded once, with its global set-up, and never
/// unloaded.
struct CurlLibrary {
#define ORVANTA_CURL_FUNCTIONS(X)                                                               \
  X(global_init)                                                                                \
  X(easy_init) X(easy_cleanup) X(easy_reset) X(easy_setopt) X(easy_getinfo) X(easy_strerror)    \
      X(multi_init) X(multi_cleanup) X(multi_setopt) X(multi_add_handle) X(multi_remove_handle) \
          X(multi_perform) X(multi_poll) X(multi_wakeup) X(multi_info_read) X(slist_append)     \
              X(slist_free_all)
#define ORVANTA_CURL_MEMBER(name) decltype(&::curl_##name) name = nullptr;
  ORVANTA_CURL_FUNCTIONS(ORVANTA_CURL_MEMBER)
#undef ORVANTA_CURL_MEMBER

  /// The library, loaded and set up by the first call (any thread); null when it can't be, with
  /// the reason in `why`. Every later call gives the same answer.
  static const CurlLibrary* load(std::string& why);
};

}  // namespace orvanta::linux_platform
