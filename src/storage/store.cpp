#include "storage/store.hpp"

#include <mutex>

#include "orvanta/platform.hpp"

namespace orvanta {
namespace {

// One wrapper per port object: the wrapper (and, for the key store, its read lock) is shared by
// every caller as long as the platform stays the same.
template <class Wrapper, class Port>
struct Cached {
  std::mutex mutex;
  std::shared_ptr<Port> port;
  std::shared_ptr<Wrapper> wrapper;

  std::shared_ptr<Wrapper> over(std::shared_ptr<Port> current) {
    std::lock_guard lock(mutex);
    if (!wrapper || port != current) {
      wrapper = std::make_shared<Wrapper>(current);
      port = std::move(current);
    }
    return wrapper;
  }
};

}  // namespace

std::shared_ptr<KeychainAccess> Store::keychain() {
  static auto* cache = new Cached<KeychainAccess, port::SecureStore>();
  return cache->over(currentPlatform()->secureStore);
}

std::shared_ptr<UserDefaultsAccess> Store::userDefaults() {
  static auto* cache = new Cached<UserDefaultsAccess, port::PreferencesStore>();
  return cache->over(currentPlatform()->preferences);
}

}  // namespace orvanta
