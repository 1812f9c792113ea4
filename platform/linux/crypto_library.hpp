#pragma once

#include <openssl/bn.h>
#include <openssl/crypto.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/param_build.h>
#include <openssl/rand.h>

#include <string>

namespace orvanta::linux_platform {

/// libcrypto's functions as encrypted pushes use them (their keys, their decryption), from the
/// library loaded when the first key is made or read: a launch that meets no encrypted push
/// never loads libcrypto (two to three milliseconds of a host's start-up here, and more than a
/// megabyte of its memory).
///
/// The library is the one named by `ORVANTA_LIBCRYPTO` at build time ("libcrypto.so.3"), found as
/// the dynamic linker finds any library. It is loaded once and never unloaded.
struct CryptoLibrary {
// clang-format off
#define ORVANTA_CRYPTO_FUNCTIONS(X)                                                                 \
  X(OPENSSL_cleanse) X(RAND_bytes) X(HMAC)                                                          \
  X(EVP_sha256) X(EVP_aes_128_gcm) X(EVP_PKEY_free)                                                 \
  X(EVP_PKEY_Q_keygen) X(EVP_PKEY_get_bn_param) X(EVP_PKEY_fromdata_init)                           \
  X(EVP_PKEY_fromdata) X(EVP_PKEY_derive_init) X(EVP_PKEY_derive_set_peer)                          \
  X(EVP_PKEY_derive) X(EVP_PKEY_CTX_new_from_pkey) X(EVP_PKEY_CTX_new_from_name)                    \
  X(EVP_PKEY_CTX_free) X(EVP_CIPHER_CTX_new) X(EVP_CIPHER_CTX_free)                                 \
  X(EVP_CIPHER_CTX_ctrl) X(EVP_DecryptInit_ex) X(EVP_DecryptUpdate)                                 \
  X(EVP_DecryptFinal_ex) X(OSSL_PARAM_BLD_new) X(OSSL_PARAM_BLD_free)                               \
  X(OSSL_PARAM_BLD_push_utf8_string) X(OSSL_PARAM_BLD_push_octet_string) X(OSSL_PARAM_BLD_push_BN)  \
  X(OSSL_PARAM_BLD_to_param) X(OSSL_PARAM_free) X(EC_GROUP_new_by_curve_name)                       \
  X(EC_GROUP_get0_order) X(EC_GROUP_free) X(EC_POINT_new)                                           \
  X(EC_POINT_free) X(EC_POINT_mul) X(EC_POINT_point2oct)                                            \
  X(BN_bin2bn) X(BN_bn2binpad) X(BN_is_zero)                                                        \
  X(BN_cmp) X(BN_clear_free)
// clang-format on
#define ORVANTA_CRYPTO_MEMBER(name) decltype(&::name) name = nullptr;
  ORVANTA_CRYPTO_FUNCTIONS(ORVANTA_CRYPTO_MEMBER)
#undef ORVANTA_CRYPTO_MEMBER

  /// The library, loaded by the first call (any thread); null when it can't be, with the reason
  /// in `why`. Every later call gives the same answer.
  static const CryptoLibrary* load(std::string& why);
};

}  // namespace orvanta::linux_platform
