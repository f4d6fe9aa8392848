#include "platform/crypto/detail/aead.h"

#include <openssl/core_names.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/kdf.h>
#include <openssl/params.h>

#include <algorithm>
#include <limits>
#include <memory>

#include "platform/crypto/detail/bytes.h"
#include "platform/crypto/detail/wipe.h"

namespace zqpool::detail {
namespace {

// Drops OpenSSL's errors: left in the thread's queue, they would be taken for those of its next TLS
// call.
class Error_Queue_Guard {
 public:
  Error_Queue_Guard() { ERR_set_mark(); }
  ~Error_Queue_Guard() { ERR_pop_to_mark(); }
  Error_Queue_Guard(const Error_Queue_Guard&) = delete;
  Error_Queue_Guard& operator=(const Error_Queue_Guard&) = delete;
};

template <auto Function>
struct Free_With {
  template <typename T>
  void operator()(T* object) const noexcept {
    Function(object);
  }
};

using Cipher_Context = std::unique_ptr<EVP_CIPHER_CTX, Free_With<EVP_CIPHER_CTX_free>>;
using KDF = std::unique_ptr<EVP_KDF, Free_With<EVP_KDF_free>>;
using KDF_Context = std::unique_ptr<EVP_KDF_CTX, Free_With<EVP_KDF_CTX_free>>;

const EVP_CIPHER* aes_256_gcm() noexcept {
  // Fetched once, because fetching takes as long as encrypting a key. Never freed.
  static const EVP_CIPHER* const cipher = EVP_CIPHER_fetch(nullptr, "AES-256-GCM", nullptr);
  return cipher;
}

bool fits_openssl(std::string_view text) noexcept {
  return text.size() <= static_cast<std::size_t>(std::numeric_limits<int>::max());
}

int int_size(std::string_view text) noexcept {
  return static_cast<int>(text.size());
}

OSSL_PARAM octets(const char* key, std::string_view text) noexcept {
  // OSSL_PARAM has no const; HKDF only reads.
  return OSSL_PARAM_construct_octet_string(key, const_cast<char*>(text.data()), text.size());
}

}  // namespace

bool hkdf_sha256(std::string_view secret, std::string_view salt, std::string_view info,
                 unsigned char* out, std::size_t size) {
  const Error_Queue_Guard guard;
  const KDF kdf(EVP_KDF_fetch(nullptr, "HKDF", nullptr));
  const KDF_Context context(EVP_KDF_CTX_new(kdf.get()));
  char digest[] = "SHA256";
  const OSSL_PARAM parameters[] = {
      OSSL_PARAM_construct_utf8_string(OSSL_KDF_PARAM_DIGEST, digest, 0),
      octets(OSSL_KDF_PARAM_KEY, secret),
      octets(OSSL_KDF_PARAM_SALT, salt),
      octets(OSSL_KDF_PARAM_INFO, info),
      OSSL_PARAM_construct_end(),
  };
  return context != nullptr && EVP_KDF_derive(context.get(), out, size, parameters) == 1;
}

bool seal_aes_256_gcm(const Key_256& key, std::string_view nonce, std::string_view context,
                      std::string_view text, std::string& out) {
  const Error_Queue_Guard guard;
  if (nonce.size() != nonce_size || !fits_openssl(context) || !fits_openssl(text)) return false;
  const Cipher_Context cipher(EVP_CIPHER_CTX_new());
  std::string sealed(text.size() + tag_size, '\0');
  unsigned char* const tag = bytes_of(sealed) + text.size();
  int size = 0;
  if (cipher == nullptr ||
      EVP_EncryptInit_ex2(cipher.get(), aes_256_gcm(), key.bytes.data(), bytes_of(nonce),
                          nullptr) != 1 ||
      EVP_EncryptUpdate(cipher.get(), nullptr, &size, bytes_of(context), int_size(context)) != 1 ||
      EVP_EncryptUpdate(cipher.get(), bytes_of(sealed), &size, bytes_of(text), int_size(text)) !=
          1 ||
      EVP_EncryptFinal_ex(cipher.get(), tag, &size) != 1 ||
      EVP_CIPHER_CTX_ctrl(cipher.get(), EVP_CTRL_AEAD_GET_TAG, tag_size, tag) != 1) {
    return false;
  }
  out += sealed;
  return true;
}

bool open_aes_256_gcm(const Key_256& key, std::string_view nonce, std::string_view context,
                      std::string_view sealed, std::string& text) {
  const Error_Queue_Guard guard;
  wipe(text);
  if (nonce.size() != nonce_size || sealed.size() < tag_size || !fits_openssl(context) ||
      !fits_openssl(sealed)) {
    return false;
  }
  const Cipher_Context cipher(EVP_CIPHER_CTX_new());
  const std::string_view ciphertext = sealed.substr(0, sealed.size() - tag_size);
  std::array<unsigned char, tag_size> tag;
  std::copy_n(bytes_of(sealed) + ciphertext.size(), tag_size, tag.begin());
  text.resize(ciphertext.size());
  int size = 0;
  const bool good =
      cipher != nullptr &&
      EVP_DecryptInit_ex2(cipher.get(), aes_256_gcm(), key.bytes.data(), bytes_of(nonce),
                          nullptr) == 1 &&
      EVP_DecryptUpdate(cipher.get(), nullptr, &size, bytes_of(context), int_size(context)) == 1 &&
      EVP_DecryptUpdate(cipher.get(), bytes_of(text), &size, bytes_of(ciphertext),
                        int_size(ciphertext)) == 1 &&
      EVP_CIPHER_CTX_ctrl(cipher.get(), EVP_CTRL_AEAD_SET_TAG, tag_size, tag.data()) == 1 &&
      EVP_DecryptFinal_ex(cipher.get(), tag.data(), &size) == 1;
  if (!good) wipe(text);
  return good;
}

}  // namespace zqpool::detail
