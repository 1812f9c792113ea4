#include "linux/curl_library.hpp"

#include "linux/shared_library.hpp"

namespace orvanta::linux_platform {
namespace {

struct Loaded {
  CurlLibrary library;
  bool ok = false;
  std::string why;
};

Loaded loadLibrary() {
  Loaded loaded;
  SharedLibrary library(ORVANTA_LIBCURL, "libcurl", "libcurl 7.84 or later is needed");
#define ORVANTA_CURL_RESOLVE(name) library.resolve(loaded.library.name, "curl_" #name);
  ORVANTA_CURL_FUNCTIONS(ORVANTA_CURL_RESOLVE)
#undef ORVANTA_CURL_RESOLVE
  if (!library.complete()) {
    loaded.why = library.why();
    return loaded;
  }
  if (const CURLcode code = loaded.library.global_init(CURL_GLOBAL_DEFAULT); code != CURLE_OK) {
    loaded.why = std::string("libcurl could not be set up: ") + loaded.library.easy_strerror(code);
    return loaded;
  }
  loaded.ok = true;
  return loaded;
}

}  // namespace

const CurlLibrary* CurlLibrary::load(std::string& why) {
  static const Loaded loaded = loadLibrary();
  why = loaded.why;
  return loaded.ok ? &loaded.library : nullptr;
}

}  // namespace orvanta::linux_platform
