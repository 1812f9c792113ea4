#include "linux/crypto_library.hpp"

#include "linux/shared_library.hpp"

namespace orvanta::linux_platform {
namespace {

struct Loaded {
  CryptoLibrary library;
  bool ok = false;
  std::string why;
};

Loaded loadLibrary() {
  Loaded loaded;
  SharedLibrary library(ORVANTA_LIBCRYPTO, "libcrypto", "OpenSSL 3 is needed");
#define ORVANTA_CRYPTO_RESOLVE(name) library.resolve(loaded.library.name, #name);
  ORVANTA_CRYPTO_FUNCTIONS(ORVANTA_CRYPTO_RESOLVE)
#undef ORVANTA_CRYPTO_RESOLVE
  loaded.ok = library.complete();
  loaded.why = library.why();
  return loaded;
}

}  // namespace

const CryptoLibrary* CryptoLibrary::load(std::string& why) {
  static const Loaded loaded = loadLibrary();
  why = loaded.why;
  return loaded.ok ? &loaded.library : nullptr;
}

}  // namespace orvanta::linux_platform
