#pragma once

// The application server's side of encrypted pushes, as the sandbox sends them: the push token a
// device registered, read back into its endpoint and keys; the push encrypted to those keys (RFC
// 8291, one "aes128gcm" record of RFC 8188); and the VAPID signature (RFC 8292) on the POST. The
// sandbox's own implementation over OpenSSL's libcrypto, independent of the kit's. Any thread.

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace orvanta::sandbox::webpush {

// Where a device's pushes go and, when its token carries them, the keys to encrypt them to.
struct Subscription {
  std::string endpoint;
  std::optional<std::string> publicKey;   // 65 bytes: the device's P-256 point, uncompressed
  std::optional<std::string> authSecret;  // 16 bytes
  bool encrypted() const { return publicKey.has_value(); }
};

// The device token as the service keeps it (hex of the kit's token bytes, either case):
//   version 1: 0x01, the endpoint's length (2 bytes, big-endian, 1 to 4096), the endpoint, the
//              65-byte public key, the 16-byte authentication secret;
//   earlier:   the endpoint URL's bytes alone (no keys: pushes go in clear).
// None when the token is neither, or its endpoint is not an absolute http(s) URL.
std::optional<Subscription> subscriptionFromToken(std::string_view deviceToken);

// URL-safe base64 without padding, and back (padding tolerated); none for other text.
std::string base64Url(std::string_view bytes);
std::optional<std::string> fromBase64Url(std::string_view text);

// `plaintext` encrypted to the device's 65-byte public key and 16-byte secret: the message body
// (salt, record size 4096, the sender's key as key id, one record padded with the delimiter 0x02).
// A fresh sender key and salt per call; none when the device's key is no P-256 point or the
// plaintext does not fit one record.
std::optional<std::string> encrypt(std::string_view plaintext, std::string_view publicKey,
                                   std::string_view authSecret);

// The same with the sender's private key (32 bytes) and salt (16 bytes) given: for tests that
// need the exact bytes (RFC 8291's example).
std::optional<std::string> encryptWith(std::string_view plaintext, std::string_view publicKey,
                                       std::string_view authSecret, std::string_view senderPrivate,
                                       std::string_view salt);

// The same with the record given whole (plaintext, delimiter and padding), for tests of what the
// sandbox never sends: another delimiter, no delimiter, padding.
std::optional<std::string> encryptRecord(std::string_view record, std::string_view publicKey,
                                         std::string_view authSecret,
                                         std::string_view senderPrivate, std::string_view salt);

// A VAPID key pair that signs POSTs to push endpoints.
class VapidKey {
 public:
  static VapidKey generate();  // throws std::runtime_error when OpenSSL fails
  // From the private key (32 bytes) in URL-safe base64; none when it is not one.
  static std::optional<VapidKey> fromPrivateKey(std::string_view base64);

  const std::string& publicKey() const { return publicKey_; }    // URL-safe base64, 65 bytes
  const std::string& privateKey() const { return privateKey_; }  // URL-safe base64, 32 bytes

  // The Authorization header's value for a POST to `endpoint`: "vapid t=<JWT>, k=<public key>",
  // the JWT (ES256) naming the endpoint's origin as "aud", `subject` as "sub" and an expiry 12
  // hours after `now`. Empty when signing failed.
  std::string authorization(const std::string& endpoint, const std::string& subject,
                            std::chrono::system_clock::time_point now) const;

 private:
  std::string publicKey_;
  std::string privateKey_;
  std::string scalar_;  // the raw private key
};

// The origin of an http(s) URL: "scheme://host[:port]".
std::string originOf(const std::string& url);

}  // namespace orvanta::sandbox::webpush
