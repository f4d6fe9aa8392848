#include "service/app/access_key.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <cstdio>
#include <stdexcept>

#include "platform/text/secret_file.h"

namespace zqpool::service {

std::string read_secret(const std::string& file, const std::string& what) {
  try {
    text::Secret_File read = text::read_secret_file(file);
    if (read.open_to_others) {
      std::fprintf(stderr, "zqpoold: warning: %s file '%s' can be read by others\n", what.c_str(),
                   file.c_str());
    }
    return std::move(read.secret);
  } catch (const std::runtime_error& error) {
    throw std::runtime_error("cannot read an " + what + " from '" + file + "': " + error.what());
  }
}

Access_Key::Access_Key(std::string_view key) : digest_(digest(key)) {}

Access_Key::Digest Access_Key::digest(std::string_view text) {
  Digest out{};
  if (EVP_Digest(text.data(), text.size(), out.data(), nullptr, EVP_sha256(), nullptr) != 1) {
    throw std::runtime_error("SHA-256 is not available");
  }
  return out;
}

// All digests have the same length, so the time does not reveal even the key's length.
bool Access_Key::matches(std::string_view given) const {
  const Digest other = digest(given);
  return CRYPTO_memcmp(digest_.data(), other.data(), digest_.size()) == 0;
}

}  // namespace zqpool::service
