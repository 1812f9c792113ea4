#include "linux/web_push_crypto.hpp"

#include "linux/crypto_library.hpp"

#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/obj_mac.h>
#include <openssl/param_build.h>
#include <openssl/rand.h>

#include <array>
#include <cstdio>
#include <cstring>

namespace orvanta::linux_platform {
namespace {

constexpr const char* kCurve = "prime256v1";
constexpr std::size_t kSaltBytes = 16;
constexpr std::size_t kHeaderBytes = kSaltBytes + 4 + 1;  // salt, rs, idlen
constexpr std::size_t kTagBytes = 16;
constexpr std::uint32_t kMinimumRecordSize = 18;
constexpr std::uint8_t kLastRecordDelimiter = 0x02;

/// libcrypto, once `loaded()` said it is there (looked up once: a decryption makes some thirty
/// calls through it).
const CryptoLibrary& ssl() {
  static const CryptoLibrary& library = []() -> const CryptoLibrary& {
    std::string why;
    return *CryptoLibrary::load(why);
  }();
  return library;
}

/// Whether libcrypto could be loaded; the reason in `why` when not.
bool loaded(std::string& why) {
  return CryptoLibrary::load(why) != nullptr;
}

template <typename T, auto Free>
struct Deleter {
  void operator()(T* pointer) const { (ssl().*Free)(pointer); }
};
using PkeyContext =
    std::unique_ptr<EVP_PKEY_CTX, Deleter<EVP_PKEY_CTX, &CryptoLibrary::EVP_PKEY_CTX_free>>;
using Pkey = std::unique_ptr<EVP_PKEY, Deleter<EVP_PKEY, &CryptoLibrary::EVP_PKEY_free>>;
using CipherContext =
    std::unique_ptr<EVP_CIPHER_CTX, Deleter<EVP_CIPHER_CTX, &CryptoLibrary::EVP_CIPHER_CTX_free>>;
using Bignum = std::unique_ptr<BIGNUM, Deleter<BIGNUM, &CryptoLibrary::BN_clear_free>>;
using Group = std::unique_ptr<EC_GROUP, Deleter<EC_GROUP, &CryptoLibrary::EC_GROUP_free>>;
using Point = std::unique_ptr<EC_POINT, Deleter<EC_POINT, &CryptoLibrary::EC_POINT_free>>;
using ParamBuilder =
    std::unique_ptr<OSSL_PARAM_BLD, Deleter<OSSL_PARAM_BLD, &CryptoLibrary::OSSL_PARAM_BLD_free>>;
using Params = std::unique_ptr<OSSL_PARAM, Deleter<OSSL_PARAM, &CryptoLibrary::OSSL_PARAM_free>>;

const unsigned char* bytesOf(std::string_view text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

// A P-256 key from OpenSSL parameters: a public point (65 bytes) and, for a key pair, the scalar.
Pkey keyFrom(std::string_view publicKey, const BIGNUM* privateKey) {
  ParamBuilder builder(ssl().OSSL_PARAM_BLD_new());
  if (!builder ||
      ssl().OSSL_PARAM_BLD_push_utf8_string(builder.get(), OSSL_PKEY_PARAM_GROUP_NAME, kCurve, 0) !=
          1 ||
      ssl().OSSL_PARAM_BLD_push_octet_string(builder.get(), OSSL_PKEY_PARAM_PUB_KEY,
                                             publicKey.data(), publicKey.size()) != 1 ||
      (privateKey != nullptr &&
       ssl().OSSL_PARAM_BLD_push_BN(builder.get(), OSSL_PKEY_PARAM_PRIV_KEY, privateKey) != 1)) {
    return nullptr;
  }
  Params params(ssl().OSSL_PARAM_BLD_to_param(builder.get()));
  PkeyContext context(ssl().EVP_PKEY_CTX_new_from_name(nullptr, "EC", nullptr));
  EVP_PKEY* key = nullptr;
  if (!params || !context || ssl().EVP_PKEY_fromdata_init(context.get()) != 1 ||
      ssl().EVP_PKEY_fromdata(context.get(), &key,
                              privateKey != nullptr ? EVP_PKEY_KEYPAIR : EVP_PKEY_PUBLIC_KEY,
                              params.get()) != 1) {
    return nullptr;
  }
  return Pkey(key);
}

// HKDF with SHA-256 (RFC 5869), in its two halves. Outputs of up to 32 bytes need one block.
using Block = std::array<unsigned char, 32>;

bool extract(std::string_view salt, std::string_view input, Block& prk) {
  unsigned int length = 0;
  return ssl().HMAC(ssl().EVP_sha256(), salt.data(), static_cast<int>(salt.size()), bytesOf(input),
                    input.size(), prk.data(), &length) != nullptr &&
         length == prk.size();
}

bool expand(const Block& prk, std::string_view info, unsigned char* out, std::size_t length) {
  std::array<unsigned char, 160> message{};
  if (info.size() + 1 > message.size() || length > prk.size()) {
    return false;
  }
  std::memcpy(message.data(), info.data(), info.size());
  message[info.size()] = 0x01;
  Block block{};
  unsigned int produced = 0;
  if (ssl().HMAC(ssl().EVP_sha256(), prk.data(), static_cast<int>(prk.size()), message.data(),
                 info.size() + 1, block.data(), &produced) == nullptr) {
    return false;
  }
  std::memcpy(out, block.data(), length);
  ssl().OPENSSL_cleanse(block.data(), block.size());
  return true;
}

std::string_view asView(const Block& block) {
  return {reinterpret_cast<const char*>(block.data()), block.size()};
}

WebPushDecryption refused(std::string why) {
  return {std::nullopt, std::move(why)};
}

constexpr char kBase64Url[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";

int base64UrlValue(char c) {
  if (c >= 'A' && c <= 'Z') {
    return c - 'A';
  }
  if (c >= 'a' && c <= 'z') {
    return c - 'a' + 26;
  }
  if (c >= '0' && c <= '9') {
    return c - '0' + 52;
  }
  if (c == '-') {
    return 62;
  }
  if (c == '_') {
    return 63;
  }
  return -1;
}

}  // namespace

std::string base64UrlEncode(std::string_view bytes) {
  std::string text;
  text.reserve((bytes.size() * 4 + 2) / 3);
  std::uint32_t buffer = 0;
  int bits = 0;
  for (const unsigned char byte : bytes) {
    buffer = (buffer << 8) | byte;
    bits += 8;
    while (bits >= 6) {
      bits -= 6;
      text.push_back(kBase64Url[(buffer >> bits) & 0x3F]);
    }
  }
  if (bits > 0) {
    text.push_back(kBase64Url[(buffer << (6 - bits)) & 0x3F]);
  }
  return text;
}

std::optional<std::string> base64UrlDecode(std::string_view text) {
  while (!text.empty() && text.back() == '=') {
    text.remove_suffix(1);
  }
  if (text.size() % 4 == 1) {
    return std::nullopt;
  }
  std::string bytes;
  bytes.reserve(text.size() * 3 / 4);
  std::uint32_t buffer = 0;
  int bits = 0;
  for (const char c : text) {
    const int value = base64UrlValue(c);
    if (value < 0) {
      return std::nullopt;
    }
    buffer = (buffer << 6) | static_cast<std::uint32_t>(value);
    bits += 6;
    if (bits >= 8) {
      bits -= 8;
      bytes.push_back(static_cast<char>((buffer >> bits) & 0xFF));
    }
  }
  // The bits left over must be zero: one text per byte string.
  if ((buffer & ((1U << bits) - 1)) != 0) {
    return std::nullopt;
  }
  return bytes;
}

std::optional<WebPushKeys> WebPushKeys::generate() {
  if (std::string why; !loaded(why)) {
    return std::nullopt;
  }
  std::string secret(kWebPushAuthSecretBytes, '\0');
  if (ssl().RAND_bytes(reinterpret_cast<unsigned char*>(secret.data()),
                       static_cast<int>(secret.size())) != 1) {
    return std::nullopt;
  }
  Pkey key(ssl().EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", kCurve));
  BIGNUM* scalar = nullptr;
  if (!key || ssl().EVP_PKEY_get_bn_param(key.get(), OSSL_PKEY_PARAM_PRIV_KEY, &scalar) != 1) {
    return std::nullopt;
  }
  Bignum owned(scalar);
  std::string privateKey(kWebPushPrivateKeyBytes, '\0');
  if (ssl().BN_bn2binpad(owned.get(), reinterpret_cast<unsigned char*>(privateKey.data()),
                         static_cast<int>(privateKey.size())) < 0) {
    return std::nullopt;
  }
  auto keys = fromSecrets(privateKey, secret);
  ssl().OPENSSL_cleanse(privateKey.data(), privateKey.size());
  return keys;
}

std::optional<WebPushKeys> WebPushKeys::fromSecrets(std::string_view privateKey,
                                                    std::string_view authSecret) {
  if (std::string why; !loaded(why) || privateKey.size() != kWebPushPrivateKeyBytes ||
                       authSecret.size() != kWebPushAuthSecretBytes) {
    return std::nullopt;
  }
  Group group(ssl().EC_GROUP_new_by_curve_name(NID_X9_62_prime256v1));
  Bignum scalar(ssl().BN_bin2bn(bytesOf(privateKey), static_cast<int>(privateKey.size()), nullptr));
  if (!group || !scalar || ssl().BN_is_zero(scalar.get()) ||
      ssl().BN_cmp(scalar.get(), ssl().EC_GROUP_get0_order(group.get())) >= 0) {
    return std::nullopt;
  }
  Point point(ssl().EC_POINT_new(group.get()));
  std::string publicKey(kWebPushPublicKeyBytes, '\0');
  if (!point ||
      ssl().EC_POINT_mul(group.get(), point.get(), scalar.get(), nullptr, nullptr, nullptr) != 1 ||
      ssl().EC_POINT_point2oct(group.get(), point.get(), POINT_CONVERSION_UNCOMPRESSED,
                               reinterpret_cast<unsigned char*>(publicKey.data()), publicKey.size(),
                               nullptr) != publicKey.size()) {
    return std::nullopt;
  }
  Pkey key = keyFrom(publicKey, scalar.get());
  if (!key) {
    return std::nullopt;
  }
  WebPushKeys keys;
  keys.key_ =
      std::shared_ptr<EVP_PKEY>(key.release(), Deleter<EVP_PKEY, &CryptoLibrary::EVP_PKEY_free>());
  keys.publicKey_ = std::move(publicKey);
  keys.privateKey_ = std::string(privateKey);
  keys.authSecret_ = std::string(authSecret);
  return keys;
}

WebPushDecryption WebPushKeys::decrypt(std::string_view message) const {
  if (std::string why; !loaded(why)) {
    return refused(why);
  }
  // The header: salt (16), record size (4, big-endian), key id length (1), key id.
  if (message.size() < kHeaderBytes) {
    return refused("an encrypted message is at least " + std::to_string(kHeaderBytes) +
                   " bytes; this one has " + std::to_string(message.size()));
  }
  const std::string_view salt = message.substr(0, kSaltBytes);
  const auto* header = bytesOf(message);
  const std::uint32_t recordSize = (std::uint32_t{header[16]} << 24) |
                                   (std::uint32_t{header[17]} << 16) |
                                   (std::uint32_t{header[18]} << 8) | std::uint32_t{header[19]};
  const std::size_t keyIdLength = header[20];
  if (recordSize < kMinimumRecordSize) {
    return refused("record size " + std::to_string(recordSize) + " is below " +
                   std::to_string(kMinimumRecordSize));
  }
  if (keyIdLength != kWebPushPublicKeyBytes) {
    return refused("a key id of " + std::to_string(keyIdLength) +
                   " bytes, not the sender's 65-byte public key");
  }
  if (message.size() < kHeaderBytes + keyIdLength) {
    return refused("the message ends inside its header");
  }
  const std::string_view senderKey = message.substr(kHeaderBytes, keyIdLength);
  const std::string_view record = message.substr(kHeaderBytes + keyIdLength);
  if (record.size() < kTagBytes + 1) {
    return refused("a record of " + std::to_string(record.size()) +
                   " bytes, shorter than its tag and padding delimiter (17)");
  }
  if (record.size() > recordSize) {
    return refused("more than one record (" + std::to_string(record.size()) +
                   " bytes in records of " + std::to_string(recordSize) +
                   "); a push is a single record");
  }
  if (senderKey.front() != 0x04) {
    return refused("the sender's key is not an uncompressed P-256 point");
  }
  Pkey sender = keyFrom(senderKey, nullptr);
  if (!sender) {
    return refused("the sender's key is not a point of P-256");
  }

  // ECDH with the sender's key, then HKDF as RFC 8291 §3.3 and §3.4 say.
  Block shared{};
  std::size_t sharedLength = shared.size();
  PkeyContext derivation(ssl().EVP_PKEY_CTX_new_from_pkey(nullptr, key_.get(), nullptr));
  if (!derivation || ssl().EVP_PKEY_derive_init(derivation.get()) != 1 ||
      ssl().EVP_PKEY_derive_set_peer(derivation.get(), sender.get()) != 1 ||
      ssl().EVP_PKEY_derive(derivation.get(), shared.data(), &sharedLength) != 1 ||
      sharedLength != shared.size()) {
    return refused("no shared secret with the sender's key");
  }
  std::string keyInfo("WebPush: info", 13);
  keyInfo.push_back('\0');
  keyInfo.append(publicKey_).append(senderKey);
  Block prkKey{};
  Block ikm{};
  Block prk{};
  std::array<unsigned char, 16> contentKey{};
  std::array<unsigned char, 12> nonce{};
  const bool derived =
      extract(authSecret_, asView(shared), prkKey) &&
      expand(prkKey, keyInfo, ikm.data(), ikm.size()) && extract(salt, asView(ikm), prk) &&
      expand(prk, std::string_view("Content-Encoding: aes128gcm\0", 28), contentKey.data(),
             contentKey.size()) &&
      expand(prk, std::string_view("Content-Encoding: nonce\0", 24), nonce.data(), nonce.size());
  ssl().OPENSSL_cleanse(shared.data(), shared.size());
  ssl().OPENSSL_cleanse(prkKey.data(), prkKey.size());
  ssl().OPENSSL_cleanse(ikm.data(), ikm.size());
  ssl().OPENSSL_cleanse(prk.data(), prk.size());
  if (!derived) {
    return refused("the content key could not be derived");
  }

  // AES-128-GCM over the one record (sequence number 0: the nonce as derived).
  const std::size_t cipherLength = record.size() - kTagBytes;
  std::string plaintext(cipherLength, '\0');
  CipherContext cipher(ssl().EVP_CIPHER_CTX_new());
  int written = 0;
  int finished = 0;
  const bool opened =
      cipher &&
      ssl().EVP_DecryptInit_ex(cipher.get(), ssl().EVP_aes_128_gcm(), nullptr, contentKey.data(),
                               nonce.data()) == 1 &&
      ssl().EVP_DecryptUpdate(cipher.get(), reinterpret_cast<unsigned char*>(plaintext.data()),
                              &written, bytesOf(record), static_cast<int>(cipherLength)) == 1 &&
      ssl().EVP_CIPHER_CTX_ctrl(cipher.get(), EVP_CTRL_GCM_SET_TAG, static_cast<int>(kTagBytes),
                                const_cast<char*>(record.data() + cipherLength)) == 1 &&
      ssl().EVP_DecryptFinal_ex(cipher.get(),
                                reinterpret_cast<unsigned char*>(plaintext.data()) + written,
                                &finished) == 1;
  ssl().OPENSSL_cleanse(contentKey.data(), contentKey.size());
  if (!opened) {
    return refused(
        "an encrypted message that does not authenticate (altered, or encrypted to other keys)");
  }

  // Padding: zeros after the delimiter, which is 0x02 in the last (here the only) record.
  std::size_t end = plaintext.size();
  while (end > 0 && plaintext[end - 1] == '\0') {
    --end;
  }
  if (end == 0) {
    return refused("the decrypted record has no padding delimiter");
  }
  const auto delimiter = static_cast<unsigned char>(plaintext[end - 1]);
  if (delimiter != kLastRecordDelimiter) {
    char text[8];
    std::snprintf(text, sizeof text, "0x%02x", delimiter);
    return refused(std::string("the padding delimiter is ") + text +
                   ", not the last record's 0x02");
  }
  plaintext.resize(end - 1);
  return {std::move(plaintext), {}};
}

std::vector<std::uint8_t> pushToken(const std::string& endpoint, const WebPushKeys& keys) {
  std::vector<std::uint8_t> token;
  token.reserve(3 + endpoint.size() + kWebPushPublicKeyBytes + kWebPushAuthSecretBytes);
  token.push_back(kPushTokenVersion);
  token.push_back(static_cast<std::uint8_t>(endpoint.size() >> 8));
  token.push_back(static_cast<std::uint8_t>(endpoint.size() & 0xFF));
  token.insert(token.end(), endpoint.begin(), endpoint.end());
  token.insert(token.end(), keys.publicKey().begin(), keys.publicKey().end());
  token.insert(token.end(), keys.authSecret().begin(), keys.authSecret().end());
  return token;
}

std::optional<PushTokenContents> readPushToken(std::span<const std::uint8_t> token) {
  if (token.size() < 3 || token[0] != kPushTokenVersion) {
    return std::nullopt;
  }
  const std::size_t length = (std::size_t{token[1]} << 8) | token[2];
  if (length == 0 || length > kMaxPushTokenEndpointBytes ||
      token.size() != 3 + length + kWebPushPublicKeyBytes + kWebPushAuthSecretBytes) {
    return std::nullopt;
  }
  const auto* bytes = reinterpret_cast<const char*>(token.data());
  PushTokenContents contents;
  contents.endpoint.assign(bytes + 3, length);
  contents.publicKey.assign(bytes + 3 + length, kWebPushPublicKeyBytes);
  contents.authSecret.assign(bytes + 3 + length + kWebPushPublicKeyBytes, kWebPushAuthSecretBytes);
  if (static_cast<unsigned char>(contents.publicKey[0]) != 0x04) {
    return std::nullopt;
  }
  return contents;
}

}  // namespace orvanta::linux_platform
