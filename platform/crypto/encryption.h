#pragma once

#include <cstddef>

#include "platform/export.h"

/// The ciphers for a pool's data. The numbers are stored in records and must not change.
enum Encryption_Algorithm : int {
  ENCRYPT_UNKNOWN = -1,
  ENCRYPT_NONE = 0,
  ENCRYPT_AES_128_CBC = 1,
  ENCRYPT_AES_128_CBC_HMAC_SHA1 = 2,
  ENCRYPT_AES_128_CFB = 3,
  ENCRYPT_AES_128_CFB1 = 4,
  ENCRYPT_AES_128_CFB8 = 5,
  ENCRYPT_AES_128_CTR = 6,
  ENCRYPT_AES_128_ECB = 7,
  ENCRYPT_AES_128_GCM = 8,
  ENCRYPT_AES_128_OFB = 9,
  ENCRYPT_AES_128_XTS = 10,
  ENCRYPT_AES_192_CBC = 11,
  ENCRYPT_AES_192_CFB = 12,
  ENCRYPT_AES_192_CFB1 = 13,
  ENCRYPT_AES_192_CFB8 = 14,
  ENCRYPT_AES_192_CTR = 15,
  ENCRYPT_AES_192_ECB = 16,
  ENCRYPT_AES_192_GCM = 17,
  ENCRYPT_AES_192_OFB = 18,
  ENCRYPT_AES_256_CBC = 19,
  ENCRYPT_AES_256_CBC_HMAC_SHA1 = 20,
  ENCRYPT_AES_256_CFB = 21,
  ENCRYPT_AES_256_CFB1 = 22,
  ENCRYPT_AES_256_CFB8 = 23,
  ENCRYPT_AES_256_CTR = 24,
  ENCRYPT_AES_256_ECB = 25,
  ENCRYPT_AES_256_GCM = 26,
  ENCRYPT_AES_256_OFB = 27,
  ENCRYPT_AES_256_XTS = 28,
  ENCRYPT_BLOWFISH_CBC = 29,
  ENCRYPT_BLOWFISH_CFB = 30,
  ENCRYPT_BLOWFISH_ECB = 31,
  ENCRYPT_BLOWFISH_OFB = 32,
  ENCRYPT_RSA = 33,
  ENCRYPT_SM2 = 34,
  ENCRYPT_SM3 = 35,
  ENCRYPT_SM4_CBC = 36,
  ENCRYPT_SM4_CFB = 37,
  ENCRYPT_SM4_CTR = 38,
  ENCRYPT_SM4_ECB = 39,
  ENCRYPT_SM4_OFB = 40,
  ENCRYPT_EC = 41
};

/// Returns the cipher of a name: its enumerator without "ENCRYPT_", in upper or lower case and with
/// hyphens or underscores, such as "aes-256-gcm" or "AES_256_GCM". Returns ENCRYPT_UNKNOWN for any
/// other name and for null. Thread-safe.
ZQ_EXPORT Encryption_Algorithm encryption_name_to_value(const char* name,
                                                        std::size_t length) noexcept;
