#include "platform/crypto/encryption.h"

#include <algorithm>
#include <iterator>
#include <string_view>

namespace {

// In the order of the enumeration, from ENCRYPT_NONE on.
constexpr std::string_view names[] = {
    "none",         "aes_128_cbc",  "aes_128_cbc_hmac_sha1",
    "aes_128_cfb",  "aes_128_cfb1", "aes_128_cfb8",
    "aes_128_ctr",  "aes_128_ecb",  "aes_128_gcm",
    "aes_128_ofb",  "aes_128_xts",  "aes_192_cbc",
    "aes_192_cfb",  "aes_192_cfb1", "aes_192_cfb8",
    "aes_192_ctr",  "aes_192_ecb",  "aes_192_gcm",
    "aes_192_ofb",  "aes_256_cbc",  "aes_256_cbc_hmac_sha1",
    "aes_256_cfb",  "aes_256_cfb1", "aes_256_cfb8",
    "aes_256_ctr",  "aes_256_ecb",  "aes_256_gcm",
    "aes_256_ofb",  "aes_256_xts",  "blowfish_cbc",
    "blowfish_cfb", "blowfish_ecb", "blowfish_ofb",
    "rsa",          "sm2",          "sm3",
    "sm4_cbc",      "sm4_cfb",      "sm4_ctr",
    "sm4_ecb",      "sm4_ofb",      "ec",
};
static_assert(std::size(names) == ENCRYPT_EC + 1);

constexpr char fold(char c) noexcept {
  if (c == '-') return '_';
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

}  // namespace

Encryption_Algorithm encryption_name_to_value(const char* name, std::size_t length) noexcept {
  if (name == nullptr) return ENCRYPT_UNKNOWN;
  const std::string_view wanted(name, length);
  const auto* const found =
      std::find_if(std::begin(names), std::end(names), [wanted](std::string_view known) {
        return std::equal(known.begin(), known.end(), wanted.begin(), wanted.end(),
                          [](char a, char b) { return a == fold(b); });
      });
  if (found == std::end(names)) return ENCRYPT_UNKNOWN;
  return static_cast<Encryption_Algorithm>(found - std::begin(names));
}
