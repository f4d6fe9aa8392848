#pragma once

#include <openssl/crypto.h>

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

namespace zqpool::detail {

/// A key, wiped when destroyed.
struct Key_256 {
  std::array<unsigned char, 32> bytes{};

  Key_256() = default;
  Key_256(const Key_256&) = default;
  Key_256& operator=(const Key_256&) = default;
  ~Key_256() { OPENSSL_cleanse(bytes.data(), bytes.size()); }
};

inline constexpr std::size_t nonce_size = 12;
inline constexpr std::size_t tag_size = 16;

/// HKDF with SHA-256 (RFC 5869). Fills `out` with `size` bytes. Returns false if OpenSSL fails.
/// Like the functions below, leaves OpenSSL's error queue alone and is thread-safe.
bool hkdf_sha256(std::string_view secret, std::string_view salt, std::string_view info,
                 unsigned char* out, std::size_t size);

/// AES-256-GCM: appends the ciphertext of `text` and its tag to `out`. `nonce` has nonce_size bytes
/// and must be unique for the key. `context` is authenticated, but not part of `out`.
bool seal_aes_256_gcm(const Key_256& key, std::string_view nonce, std::string_view context,
                      std::string_view text, std::string& out);

/// The inverse: decrypts `sealed`, ciphertext and tag, to `text`. Returns false and empties `text`
/// unless key, nonce, context and `sealed` are exactly those of seal_aes_256_gcm().
bool open_aes_256_gcm(const Key_256& key, std::string_view nonce, std::string_view context,
                      std::string_view sealed, std::string& text);

}  // namespace zqpool::detail
