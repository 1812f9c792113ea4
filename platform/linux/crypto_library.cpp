#include "linux/crypto_library.hpp"

#include <dlfcn.h>

#include <type_traits>

namespace orvanta::linux_platform {
namespace {

struct Loaded {
  CryptoLibrary library;
  bool ok = false;
  std::string why;
};

Loaded loadLibrary() {
  Loaded loaded;
  // Kept for the life of the process: libcrypto keeps state of its own that must not unload.
  void* handle = ::dlopen(ORVANTA_LIBCRYPTO, RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
  if (handle == nullptr) {
    const char* error = ::dlerror();
    loaded.why = std::string("libcrypto could not be loaded: ") +
                 (error != nullptr ? error : ORVANTA_LIBCRYPTO);
    return loaded;
  }
  bool complete = true;
  const auto resolve = [&](auto& function, const char* name) {
    function = reinterpret_cast<std::remove_reference_t<decltype(function)>>(::dlsym(handle, name));
    if (function == nullptr && complete) {
      complete = false;
      loaded.why = std::string(ORVANTA_LIBCRYPTO " has no ") + name + " (OpenSSL 3 is needed)";
    }
  };
#define ORVANTA_CRYPTO_RESOLVE(name) resolve(loaded.library.name, #name);
  ORVANTA_CRYPTO_FUNCTIONS(ORVANTA_CRYPTO_RESOLVE)
#undef ORVANTA_CRYPTO_RESOLVE
  loaded.ok = complete;
  return loaded;
}

}  // namespace

const CryptoLibrary* CryptoLibrary::load(std::string& why) {
  static const Loaded loaded = loadLibrary();
  why = loaded.why;
  return loaded.ok ? &loaded.library : nullptr;
}

}  // namespace orvanta::linux_platform
