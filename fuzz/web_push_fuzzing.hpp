#pragma once

// The body of the fuzz target for encrypted push messages (RFC 8291's aes128gcm record, the
// header first) and push tokens: the target calls it from LLVMFuzzerTestOneInput, the unit tests
// on the corpus and regressions. It returns normally for any input and aborts when the code under
// test breaks one of its promises.

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "fuzz/record_fuzzing.hpp"
#include "linux/web_push_crypto.hpp"

namespace orvanta::fuzzing {

/// The receiving keys of RFC 8291's example, so that the example (a corpus seed) decrypts and
/// its mutations reach every check.
inline const linux_platform::WebPushKeys& webPushFuzzKeys() {
  static const auto keys = [] {
    const auto secret =
        linux_platform::base64UrlDecode("q1dXpw3UpT5VOmu_cf_v6ih07Aems3njxI-JWgLcM94");
    const auto auth = linux_platform::base64UrlDecode("BTBZMqHH6r4Tts7J_aSIgg");
    auto made = linux_platform::WebPushKeys::fromSecrets(secret.value_or(""), auth.value_or(""));
    if (!made) {
      violated("the example's keys do not load");
    }
    return *made;
  }();
  return keys;
}

/// Bytes as a push message to the example's keys, and as a push token: a message decrypts to
/// fewer bytes than it has, or says why not; a token is read back within its layout's bounds.
inline void webPushMessage(const std::uint8_t* data, std::size_t size) {
  const auto result = webPushFuzzKeys().decrypt(asText(data, size));
  if (result.plaintext.has_value() == !result.error.empty()) {
    violated("a message both decrypted and refused, or neither");
  }
  if (result.plaintext && result.plaintext->size() >= size) {
    violated("a plaintext as long as its message");
  }
  if (auto token = linux_platform::readPushToken(std::span<const std::uint8_t>(data, size))) {
    if (token->endpoint.empty() ||
        token->endpoint.size() > linux_platform::kMaxPushTokenEndpointBytes ||
        token->publicKey.size() != linux_platform::kWebPushPublicKeyBytes ||
        token->authSecret.size() != linux_platform::kWebPushAuthSecretBytes) {
      violated("a push token read outside its layout");
    }
  }
}

}  // namespace orvanta::fuzzing
