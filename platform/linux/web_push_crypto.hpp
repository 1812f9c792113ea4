#pragma once

// Encrypted pushes on the UnifiedPush path: the application's P-256 key pair and authentication
// secret, the push token that carries them to the service, and the decryption of a message in
// the "aes128gcm" content coding of RFC 8188 as web push uses it (RFC 8291). OpenSSL's libcrypto
// does the arithmetic; nothing here keeps state between calls, and every function may be called
// from any thread.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

struct evp_pkey_st;  // OpenSSL's EVP_PKEY

namespace orvanta::linux_platform {

inline constexpr std::size_t kWebPushPublicKeyBytes = 65;   // 0x04, X, Y
inline constexpr std::size_t kWebPushPrivateKeyBytes = 32;  // the scalar
inline constexpr std::size_t kWebPushAuthSecretBytes = 16;

/// The first byte of a push token in the layout below.
inline constexpr std::uint8_t kPushTokenVersion = 1;
/// The longest endpoint a push token carries.
inline constexpr std::size_t kMaxPushTokenEndpointBytes = 4096;

/// URL-safe base64 without padding (RFC 4648 §5), as web push writes keys.
std::string base64UrlEncode(std::string_view bytes);
/// Reads URL-safe base64 with or without "=" padding; none for anything else.
std::optional<std::string> base64UrlDecode(std::string_view text);

/// What reading an encrypted message gave: the plaintext, or why there is none.
struct WebPushDecryption {
  std::optional<std::string> plaintext;
  std::string error;  // "" when decrypted
};

/// The application's keys for encrypted pushes: a P-256 key pair and a 16-byte authentication
/// secret. A value; copies share the (immutable) OpenSSL key.
class WebPushKeys {
 public:
  /// Fresh keys from OpenSSL's random generator; none if it fails.
  static std::optional<WebPushKeys> generate();
  /// Keys from their stored secrets (the 32-byte scalar and the 16-byte secret); none when they
  /// are not that (a scalar of another length, zero, or not below the curve's order).
  static std::optional<WebPushKeys> fromSecrets(std::string_view privateKey,
                                                std::string_view authSecret);

  const std::string& publicKey() const { return publicKey_; }    // 65 bytes, uncompressed
  const std::string& privateKey() const { return privateKey_; }  // 32 bytes
  const std::string& authSecret() const { return authSecret_; }  // 16 bytes

  /// Decrypts a push message sent to these keys (RFC 8291: one "aes128gcm" record whose key id
  /// is the sender's 65-byte public key). Checks, in order: the header is whole, the record size
  /// is at least 18, the key id is 65 bytes and a point of P-256, the message is one record of at
  /// least 17 bytes, the tag authenticates, and the padding ends in the last record's delimiter
  /// 0x02. Allocates no more than the message's size.
  WebPushDecryption decrypt(std::string_view message) const;

 private:
  WebPushKeys() = default;
  std::shared_ptr<evp_pkey_st> key_;
  std::string publicKey_;
  std::string privateKey_;
  std::string authSecret_;
};

/// The push token of an endpoint with keys, as the kit hands it to the service (which writes it
/// in lower-case hex): version 1, the endpoint's length (2 bytes, big-endian), the endpoint's
/// bytes, the 65-byte public key, the 16-byte authentication secret. See docs/unifiedpush.md.
std::vector<std::uint8_t> pushToken(const std::string& endpoint, const WebPushKeys& keys);

/// What a push token carries.
struct PushTokenContents {
  std::string endpoint;
  std::string publicKey;
  std::string authSecret;
};
/// Reads a push token in the layout above; none when it is not one.
std::optional<PushTokenContents> readPushToken(std::span<const std::uint8_t> token);

}  // namespace orvanta::linux_platform
