#include "linux/curl_library.hpp"

#include <dlfcn.h>

namespace orvanta::linux_platform {
namespace {

struct Loaded {
  CurlLibrary library;
  bool ok = false;
  std::string why;
};

Loaded loadLibrary() {
  Loaded loaded;
  // Kept for the life of the process: libcurl and the TLS libraries under it do not unload.
  void* handle = ::dlopen(ORVANTA_LIBCURL, RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
  if (handle == nullptr) {
    const char* error = ::dlerror();
    loaded.why =
        std::string("libcurl could not be loaded: ") + (error != nullptr ? error : ORVANTA_LIBCURL);
    return loaded;
  }
  bool complete = true;
  const auto resolve = [&](auto& function, const char* name) {
    function = reinterpret_cast<std::remove_reference_t<decltype(function)>>(::dlsym(handle, name));
    if (function == nullptr && complete) {
      complete = false;
      loaded.why =
          std::string(ORVANTA_LIBCURL " has no ") + name + " (libcurl 7.84 or later is needed)";
    }
  };
#define ORVANTA_CURL_RESOLVE(name) resolve(loaded.library.name, "curl_" #name);
  ORVANTA_CURL_FUNCTIONS(ORVANTA_CURL_RESOLVE)
#undef ORVANTA_CURL_RESOLVE
  if (!complete) {
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
