#include "service/access_key.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <stdexcept>

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
  std::ifstream in(file);
  std::string line;
  if (!in || !std::getline(in, line)) {
    throw std::runtime_error("cannot read an access key from '" + file + "'");
  }
  if (!line.empty() && line.back() == '\r') line.pop_back();
  const bool printable =
      std::all_of(line.begin(), line.end(), [](char c) { return c > ' ' && c < 0x7f; });
  if (line.empty() || line.size() > 1024 || !printable) {
    throw std::runtime_error("the first line of '" + file +
                             "' is no access key: 1 to 1024 printable characters without blanks");
  }
  struct stat status {};
  if (::stat(file.c_str(), &status) == 0 && (status.st_mode & 077) != 0) {
    std::fprintf(stderr, "zqpoold: warning: access key file '%s' can be read by others\n",
                 file.c_str());
  }
  return Access_Key(line);
}

}  // namespace zqpool::service
