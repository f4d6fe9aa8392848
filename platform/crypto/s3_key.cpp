#include "platform/crypto/s3_key.h"

#include <openssl/rand.h>

#include <mutex>
#include <optional>
#include <string_view>

#include "platform/crypto/base64.h"
#include "platform/crypto/detail/aead.h"
#include "platform/crypto/detail/base64_encode.h"
#include "platform/crypto/detail/bytes.h"
#include "platform/crypto/detail/wipe.h"

using namespace zqpool::detail;

namespace {

// Separates this key from others that may be derived from the same secret.
constexpr std::string_view key_purpose = "zqpool s3 secret key v1";

struct Sealing_Key {
  std::mutex mutex;
  std::optional<Key_256> key;
};

Sealing_Key& current() {
  // Never destroyed: other threads may still use it when the process ends.
  static Sealing_Key& instance = *new Sealing_Key;
  return instance;
}

std::optional<Key_256> sealing_key() {
  const std::lock_guard<std::mutex> lock(current().mutex);
  return current().key;
}

}  // namespace

void set_s3_key_secret(const std::string& shared_secret) {
  std::optional<Key_256> key;
  if (!shared_secret.empty()) {
    key.emplace();
    if (!hkdf_sha256(shared_secret, "", key_purpose, key->bytes.data(), key->bytes.size())) {
      key.reset();
    }
  }
  const std::lock_guard<std::mutex> lock(current().mutex);
  current().key = key;
}

bool decrypt_s3_key(const char* url, std::string& secret) {
  const std::optional<Key_256> key = sealing_key();
  Base64_Decoder decoder;
  if (!key || url == nullptr || !decoder.set(secret.data(), secret.size()) ||
      decoder.length() < nonce_size) {
    return false;
  }
  const std::string_view message(decoder.get(), decoder.length());
  std::string clear;
  if (!open_aes_256_gcm(*key, message.substr(0, nonce_size), url, message.substr(nonce_size),
                        clear)) {
    return false;
  }
  // Copied, not moved: a moved-from short string keeps its bytes.
  secret = clear;
  wipe(clear);
  return true;
}

bool encrypt_s3_key(const char* url, std::string& secret) {
  const std::optional<Key_256> key = sealing_key();
  std::string message(nonce_size, '\0');
  if (!key || url == nullptr || RAND_bytes(bytes_of(message), nonce_size) != 1) return false;
  const std::string nonce = message;
  if (!seal_aes_256_gcm(*key, nonce, url, secret, message)) return false;
  wipe(secret);
  secret = base64_encode(message);
  return true;
}
