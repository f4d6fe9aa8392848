#pragma once

#include <openssl/crypto.h>

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

namespace zqpool::detail {

/// Key material that is wiped when it goes.
struct Key_256 {
  std::array<unsigned char, 32> bytes{};

  Key_256() = default;
  Key_256(const Key_256&) = default;
  Key_256& operator=(const Key_256&) = default;
  ~Key_256() { OPENSSL_cleanse(bytes.data(), bytes.size()); }
};

inline constexpr std::size_t nonce_size = 12;
inline constexpr std::size_t tag_size = 16;

/// HKDF with SHA-256 (RFC 5869): fills `out` from `secret`. All three functions return false only
/// when OpenSSL fails or refuses, leave nothing in its error queue, and are thread-safe.
bool hkdf_sha256(std::string_view secret, std::string_view salt, std::string_view info,
                 unsigned char* out, std::size_t size);

/// AES-256-GCM: appends the ciphertext and its tag to `out`. `nonce` has nonce_size bytes, never
/// the same twice for one key; `context` is authenticated with the text but not part of `out`.
bool seal_aes_256_gcm(const Key_256& key, std::string_view nonce, std::string_view context,
                      std::string_view text, std::string& out);

/// The inverse: replaces `text`. False, and `text` empty, also when key, nonce, context or a bit of
/// `sealed` (ciphertext and tag) is not as it was when it was sealed.
bool open_aes_256_gcm(const Key_256& key, std::string_view nonce, std::string_view context,
                      std::string_view sealed, std::string& text);

}  // namespace zqpool::detail
