#include "orvanta_sandbox/web_push.hpp"

#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/kdf.h>
#include <openssl/obj_mac.h>
#include <openssl/params.h>
#include <openssl/rand.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <memory>
#include <stdexcept>

namespace orvanta::sandbox::webpush {
namespace {

constexpr std::size_t kPointBytes = 65;
constexpr std::size_t kScalarBytes = 32;
constexpr std::size_t kSecretBytes = 16;
constexpr std::size_t kMaxEndpointBytes = 4096;
constexpr std::uint32_t kRecordSize = 4096;

struct FreeKey {
  void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};
struct FreeKeyContext {
  void operator()(EVP_PKEY_CTX* context) const { EVP_PKEY_CTX_free(context); }
};
using Key = std::unique_ptr<EVP_PKEY, FreeKey>;
using KeyContext = std::unique_ptr<EVP_PKEY_CTX, FreeKeyContext>;

const unsigned char* raw(std::string_view bytes) {
  return reinterpret_cast<const unsigned char*>(bytes.data());
}

int hexValue(char c) {
  if (c >= '0' && c <= '9') {
    return c - '0';
  }
  if (c >= 'a' && c <= 'f') {
    return c - 'a' + 10;
  }
  if (c >= 'A' && c <= 'F') {
    return c - 'A' + 10;
  }
  return -1;
}

// An absolute http(s) URL with a host, and nothing a URL can't hold (controls, spaces).
bool isEndpoint(std::string_view url) {
  std::string_view rest;
  if (url.substr(0, 7) == "http://") {
    rest = url.substr(7);
  } else if (url.substr(0, 8) == "https://") {
    rest = url.substr(8);
  } else {
    return false;
  }
  if (rest.empty() || rest.front() == '/') {
    return false;
  }
  return std::none_of(url.begin(), url.end(), [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte <= 0x20 || byte == 0x7f;
  });
}

// The P-256 point of a private scalar, uncompressed.
std::optional<std::string> pointOf(std::string_view scalar) {
  EC_GROUP* group = EC_GROUP_new_by_curve_name(NID_X9_62_prime256v1);
  BIGNUM* number = BN_bin2bn(raw(scalar), static_cast<int>(scalar.size()), nullptr);
  EC_POINT* point = group != nullptr ? EC_POINT_new(group) : nullptr;
  std::optional<std::string> result;
  if (point != nullptr && number != nullptr && !BN_is_zero(number) &&
      BN_cmp(number, EC_GROUP_get0_order(group)) < 0 &&
      EC_POINT_mul(group, point, number, nullptr, nullptr, nullptr) == 1) {
    std::string encoded(kPointBytes, '\0');
    if (EC_POINT_point2oct(group, point, POINT_CONVERSION_UNCOMPRESSED,
                           reinterpret_cast<unsigned char*>(encoded.data()), encoded.size(),
                           nullptr) == kPointBytes) {
      result = std::move(encoded);
    }
  }
  EC_POINT_free(point);
  BN_clear_free(number);
  EC_GROUP_free(group);
  return result;
}

// A P-256 key from its point and, for a key pair, its scalar.
Key makeKey(std::string_view point, std::optional<std::string_view> scalar) {
  char group[] = "prime256v1";
  BIGNUM* number =
      scalar ? BN_bin2bn(raw(*scalar), static_cast<int>(scalar->size()), nullptr) : nullptr;
  std::array<unsigned char, kScalarBytes> little{};
  if (number != nullptr) {
    // OSSL_PARAM integers are native-endian.
    BN_bn2nativepad(number, little.data(), static_cast<int>(little.size()));
    BN_clear_free(number);
  }
  std::string pointCopy(point);
  OSSL_PARAM params[] = {
      OSSL_PARAM_construct_utf8_string(OSSL_PKEY_PARAM_GROUP_NAME, group, 0),
      OSSL_PARAM_construct_octet_string(OSSL_PKEY_PARAM_PUB_KEY, pointCopy.data(),
                                        pointCopy.size()),
      scalar ? OSSL_PARAM_construct_BN(OSSL_PKEY_PARAM_PRIV_KEY, little.data(), little.size())
             : OSSL_PARAM_construct_end(),
      OSSL_PARAM_construct_end(),
  };
  KeyContext context(EVP_PKEY_CTX_new_from_name(nullptr, "EC", nullptr));
  EVP_PKEY* key = nullptr;
  const bool made = context && EVP_PKEY_fromdata_init(context.get()) == 1 &&
                    EVP_PKEY_fromdata(context.get(), &key,
                                      scalar ? EVP_PKEY_KEYPAIR : EVP_PKEY_PUBLIC_KEY, params) == 1;
  OPENSSL_cleanse(little.data(), little.size());
  return made ? Key(key) : nullptr;
}

// HKDF-SHA-256, extract and expand in one (OpenSSL's KDF).
bool hkdf(std::string_view salt, std::string_view input, std::string_view info, unsigned char* out,
          std::size_t length) {
  EVP_KDF* kdf = EVP_KDF_fetch(nullptr, "HKDF", nullptr);
  EVP_KDF_CTX* context = kdf != nullptr ? EVP_KDF_CTX_new(kdf) : nullptr;
  EVP_KDF_free(kdf);
  if (context == nullptr) {
    return false;
  }
  char digest[] = "SHA256";
  std::string saltCopy(salt);
  std::string inputCopy(input);
  std::string infoCopy(info);
  OSSL_PARAM params[] = {
      OSSL_PARAM_construct_utf8_string(OSSL_KDF_PARAM_DIGEST, digest, 0),
      OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_SALT, saltCopy.data(), saltCopy.size()),
      OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_KEY, inputCopy.data(), inputCopy.size()),
      OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_INFO, infoCopy.data(), infoCopy.size()),
      OSSL_PARAM_construct_end(),
  };
  const bool done = EVP_KDF_derive(context, out, length, params) == 1;
  EVP_KDF_CTX_free(context);
  OPENSSL_cleanse(inputCopy.data(), inputCopy.size());
  return done;
}

std::string randomBytes(std::size_t count) {
  std::string bytes(count, '\0');
  if (RAND_bytes(reinterpret_cast<unsigned char*>(bytes.data()), static_cast<int>(count)) != 1) {
    throw std::runtime_error("orvanta-sandbox: OpenSSL's random generator failed");
  }
  return bytes;
}

// A random scalar below the curve's order.
std::string randomScalar() {
  while (true) {
    std::string scalar = randomBytes(kScalarBytes);
    if (pointOf(scalar)) {
      return scalar;
    }
  }
}

}  // namespace

std::string base64Url(std::string_view bytes) {
  static constexpr char kAlphabet[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
  std::string text;
  std::size_t i = 0;
  for (; i + 3 <= bytes.size(); i += 3) {
    const std::uint32_t group = (std::uint32_t{raw(bytes)[i]} << 16) |
                                (std::uint32_t{raw(bytes)[i + 1]} << 8) | raw(bytes)[i + 2];
    for (int shift = 18; shift >= 0; shift -= 6) {
      text.push_back(kAlphabet[(group >> shift) & 63]);
    }
  }
  const std::size_t left = bytes.size() - i;
  if (left > 0) {
    std::uint32_t group = std::uint32_t{raw(bytes)[i]} << 16;
    if (left == 2) {
      group |= std::uint32_t{raw(bytes)[i + 1]} << 8;
    }
    text.push_back(kAlphabet[(group >> 18) & 63]);
    text.push_back(kAlphabet[(group >> 12) & 63]);
    if (left == 2) {
      text.push_back(kAlphabet[(group >> 6) & 63]);
    }
  }
  return text;
}

std::optional<std::string> fromBase64Url(std::string_view text) {
  while (!text.empty() && text.back() == '=') {
    text.remove_suffix(1);
  }
  std::string bytes;
  std::uint32_t buffer = 0;
  int bits = 0;
  for (const char c : text) {
    int value = -1;
    if (c >= 'A' && c <= 'Z') {
      value = c - 'A';
    } else if (c >= 'a' && c <= 'z') {
      value = c - 'a' + 26;
    } else if (c >= '0' && c <= '9') {
      value = c - '0' + 52;
    } else if (c == '-' || c == '+') {
      value = 62;
    } else if (c == '_' || c == '/') {
      value = 63;
    } else {
      return std::nullopt;
    }
    buffer = (buffer << 6) | static_cast<std::uint32_t>(value);
    bits += 6;
    if (bits >= 8) {
      bits -= 8;
      bytes.push_back(static_cast<char>((buffer >> bits) & 0xFF));
    }
  }
  if (bits >= 6) {
    return std::nullopt;  // a lone character holds no byte
  }
  return bytes;
}

std::optional<Subscription> subscriptionFromToken(std::string_view deviceToken) {
  if (deviceToken.empty() || deviceToken.size() % 2 != 0) {
    return std::nullopt;
  }
  std::string bytes;
  bytes.reserve(deviceToken.size() / 2);
  for (std::size_t i = 0; i < deviceToken.size(); i += 2) {
    const int high = hexValue(deviceToken[i]);
    const int low = hexValue(deviceToken[i + 1]);
    if (high < 0 || low < 0) {
      return std::nullopt;
    }
    bytes.push_back(static_cast<char>(high * 16 + low));
  }
  Subscription subscription;
  if (bytes[0] == '\x01') {
    if (bytes.size() < 3) {
      return std::nullopt;
    }
    const std::size_t length = (std::size_t{raw(bytes)[1]} << 8) | raw(bytes)[2];
    if (length == 0 || length > kMaxEndpointBytes ||
        bytes.size() != 3 + length + kPointBytes + kSecretBytes) {
      return std::nullopt;
    }
    subscription.endpoint = bytes.substr(3, length);
    subscription.publicKey = bytes.substr(3 + length, kPointBytes);
    subscription.authSecret = bytes.substr(3 + length + kPointBytes, kSecretBytes);
    if (!makeKey(*subscription.publicKey, std::nullopt)) {
      return std::nullopt;  // no point of P-256
    }
  } else {
    subscription.endpoint = std::move(bytes);
  }
  if (!isEndpoint(subscription.endpoint)) {
    return std::nullopt;
  }
  return subscription;
}

std::optional<std::string> encryptWith(std::string_view plaintext, std::string_view publicKey,
                                       std::string_view authSecret, std::string_view senderPrivate,
                                       std::string_view salt) {
  // One record: the plaintext, the last record's delimiter, no further padding.
  std::string record(plaintext);
  record.push_back('\x02');
  return encryptRecord(record, publicKey, authSecret, senderPrivate, salt);
}

std::optional<std::string> encryptRecord(std::string_view record, std::string_view publicKey,
                                         std::string_view authSecret,
                                         std::string_view senderPrivate, std::string_view salt) {
  if (publicKey.size() != kPointBytes || authSecret.size() != kSecretBytes ||
      senderPrivate.size() != kScalarBytes || salt.size() != 16) {
    return std::nullopt;
  }
  const auto senderPublic = pointOf(senderPrivate);
  Key device = makeKey(publicKey, std::nullopt);
  if (!senderPublic || !device) {
    return std::nullopt;
  }
  Key sender = makeKey(*senderPublic, senderPrivate);
  KeyContext agreement(sender ? EVP_PKEY_CTX_new(sender.get(), nullptr) : nullptr);
  std::array<unsigned char, 32> shared{};
  std::size_t sharedLength = shared.size();
  if (!agreement || EVP_PKEY_derive_init(agreement.get()) != 1 ||
      EVP_PKEY_derive_set_peer(agreement.get(), device.get()) != 1 ||
      EVP_PKEY_derive(agreement.get(), shared.data(), &sharedLength) != 1) {
    return std::nullopt;
  }
  const std::string keyInfo =
      std::string("WebPush: info") + '\0' + std::string(publicKey) + *senderPublic;
  std::array<unsigned char, 32> ikm{};
  std::array<unsigned char, 16> contentKey{};
  std::array<unsigned char, 12> nonce{};
  const std::string_view ikmView(reinterpret_cast<const char*>(ikm.data()), ikm.size());
  if (!hkdf(authSecret, {reinterpret_cast<const char*>(shared.data()), sharedLength}, keyInfo,
            ikm.data(), ikm.size()) ||
      !hkdf(salt, ikmView, std::string("Content-Encoding: aes128gcm") + '\0', contentKey.data(),
            contentKey.size()) ||
      !hkdf(salt, ikmView, std::string("Content-Encoding: nonce") + '\0', nonce.data(),
            nonce.size())) {
    return std::nullopt;
  }
  // The record size covers the one record whole.
  const std::uint32_t recordSize =
      std::max<std::uint32_t>(kRecordSize, static_cast<std::uint32_t>(record.size() + 16));
  std::string body(salt);
  for (int shift = 24; shift >= 0; shift -= 8) {
    body.push_back(static_cast<char>((recordSize >> shift) & 0xFF));
  }
  body.push_back(static_cast<char>(kPointBytes));
  body += *senderPublic;
  const std::size_t start = body.size();
  body.resize(start + record.size() + 16);
  auto* out = reinterpret_cast<unsigned char*>(body.data() + start);
  EVP_CIPHER_CTX* cipher = EVP_CIPHER_CTX_new();
  int written = 0;
  int last = 0;
  const bool sealed =
      cipher != nullptr &&
      EVP_EncryptInit_ex(cipher, EVP_aes_128_gcm(), nullptr, contentKey.data(), nonce.data()) ==
          1 &&
      EVP_EncryptUpdate(cipher, out, &written, raw(record), static_cast<int>(record.size())) == 1 &&
      EVP_EncryptFinal_ex(cipher, out + written, &last) == 1 &&
      EVP_CIPHER_CTX_ctrl(cipher, EVP_CTRL_GCM_GET_TAG, 16, out + record.size()) == 1;
  EVP_CIPHER_CTX_free(cipher);
  if (!sealed) {
    return std::nullopt;
  }
  return body;
}

std::optional<std::string> encrypt(std::string_view plaintext, std::string_view publicKey,
                                   std::string_view authSecret) {
  return encryptWith(plaintext, publicKey, authSecret, randomScalar(), randomBytes(16));
}

VapidKey VapidKey::generate() {
  auto key = fromPrivateKey(base64Url(randomScalar()));
  if (!key) {
    throw std::runtime_error("orvanta-sandbox: could not make a VAPID key");
  }
  return *key;
}

std::optional<VapidKey> VapidKey::fromPrivateKey(std::string_view base64) {
  auto scalar = fromBase64Url(base64);
  if (!scalar || scalar->size() != kScalarBytes) {
    return std::nullopt;
  }
  auto point = pointOf(*scalar);
  if (!point) {
    return std::nullopt;
  }
  VapidKey key;
  key.scalar_ = std::move(*scalar);
  key.publicKey_ = base64Url(*point);
  key.privateKey_ = base64Url(key.scalar_);
  return key;
}

std::string VapidKey::authorization(const std::string& endpoint, const std::string& subject,
                                    std::chrono::system_clock::time_point now) const {
  const auto expiry = std::chrono::duration_cast<std::chrono::seconds>(
                          (now + std::chrono::hours(12)).time_since_epoch())
                          .count();
  const std::string header = base64Url(R"({"typ":"JWT","alg":"ES256"})");
  const std::string claims = base64Url(
      nlohmann::json{{"aud", originOf(endpoint)}, {"exp", expiry}, {"sub", subject}}.dump());
  const std::string signedPart = header + "." + claims;
  const auto point = fromBase64Url(publicKey_);
  Key key = point ? makeKey(*point, scalar_) : nullptr;
  EVP_MD_CTX* digest = EVP_MD_CTX_new();
  std::array<unsigned char, 80> der{};
  std::size_t derLength = der.size();
  const bool signedOk =
      key && digest != nullptr &&
      EVP_DigestSignInit(digest, nullptr, EVP_sha256(), nullptr, key.get()) == 1 &&
      EVP_DigestSign(digest, der.data(), &derLength, raw(signedPart), signedPart.size()) == 1;
  EVP_MD_CTX_free(digest);
  if (!signedOk) {
    return {};
  }
  // JWS wants r and s side by side (32 bytes each), not OpenSSL's DER.
  const unsigned char* cursor = der.data();
  ECDSA_SIG* signature = d2i_ECDSA_SIG(nullptr, &cursor, static_cast<long>(derLength));
  if (signature == nullptr) {
    return {};
  }
  std::string rs(64, '\0');
  BN_bn2binpad(ECDSA_SIG_get0_r(signature), reinterpret_cast<unsigned char*>(rs.data()), 32);
  BN_bn2binpad(ECDSA_SIG_get0_s(signature), reinterpret_cast<unsigned char*>(rs.data()) + 32, 32);
  ECDSA_SIG_free(signature);
  return "vapid t=" + signedPart + "." + base64Url(rs) + ", k=" + publicKey_;
}

std::string originOf(const std::string& url) {
  const auto scheme = url.find("://");
  if (scheme == std::string::npos) {
    return {};
  }
  const auto path = url.find_first_of("/?#", scheme + 3);
  return url.substr(0, path);
}

}  // namespace orvanta::sandbox::webpush
