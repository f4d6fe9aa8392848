#include "platform/crypto/base64.h"

#include <openssl/evp.h>

#include <algorithm>
#include <limits>
#include <string_view>

#include "platform/crypto/detail/base64_encode.h"
#include "platform/crypto/detail/bytes.h"
#include "platform/crypto/detail/wipe.h"

using namespace zqpool::detail;

std::string zqpool::detail::base64_encode(std::string_view bytes) {
  std::string text((bytes.size() + 2) / 3 * 4, '\0');
  // Writes a NUL where the string has its own.
  EVP_EncodeBlock(bytes_of(text), bytes_of(bytes), static_cast<int>(bytes.size()));
  return text;
}

Base64_Decoder::~Base64_Decoder() {
  wipe(bytes_);
}

bool Base64_Decoder::set(const char* text, std::size_t length) {
  wipe(bytes_);
  if (length == 0) return true;
  constexpr std::size_t max_length = std::numeric_limits<int>::max();
  if (text == nullptr || length % 4 != 0 || length > max_length) return false;
  const std::string_view encoded(text, length);

  bytes_.resize(length / 4 * 3);
  const bool whole = EVP_DecodeBlock(bytes_of(bytes_), bytes_of(encoded),
                                     static_cast<int>(length)) == static_cast<int>(bytes_.size());
  // OpenSSL skips blanks at both ends, which decodes to fewer bytes, takes padding anywhere for
  // zero bits, and drops the unused bits. Refuse all three.
  const std::string_view last = encoded.substr(length - 4);
  const std::size_t padding = last[3] != '=' ? 0 : last[2] != '=' ? 1 : 2;
  bytes_.resize(bytes_.size() - padding);
  std::string last_again = base64_encode(std::string_view(bytes_).substr(length / 4 * 3 - 3));
  const bool good =
      whole && std::min(encoded.find('='), length) == length - padding && last_again == last;
  wipe(last_again);
  if (!good) wipe(bytes_);
  return good;
}
