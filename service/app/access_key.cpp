#include "service/app/access_key.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <stdexcept>

#include "service/app/secret_file.h"

namespace zqpool::service {

Access_Key::Access_Key(std::string_view key) : digest_(digest(key)) {}

Access_Key::Digest Access_Key::digest(std::string_view text) {
  Digest out{};
  if (EVP_Digest(text.data(), text.size(), out.data(), nullptr, EVP_sha256(), nullptr) != 1) {
    throw std::runtime_error("SHA-256 is not available");
  }
  return out;
}

// Digests have one length, so that not even the key's own shows in the time.
bool Access_Key::matches(std::string_view given) const {
  const Digest other = digest(given);
  return CRYPTO_memcmp(digest_.data(), other.data(), digest_.size()) == 0;
}

Access_Key Access_Key::from_file(const std::string& file) {
  return Access_Key(read_secret_file(file, "access key"));
}

}  // namespace zqpool::service
