// Services send encrypted keys. Only a text that was encrypted for the URL may be decrypted, and
// any other must be left alone. The input's first line is the URL. The rest is used both as an
// encrypted text and as a clear one; its first and last byte select the damage.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz/check.h"
#include "platform/crypto/s3_key.h"

namespace {

void check_refused(const std::string& url, const std::string& sealed) {
  std::string text = sealed;
  check(!decrypt_s3_key(url.c_str(), text));
  check(text == sealed);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool prepared = (set_s3_key_secret("of the fuzzer"), true);
  if (!prepared) return 0;
  const std::string input(reinterpret_cast<const char*>(data), size);
  const std::size_t line_end = input.find('\n');
  const std::string url = input.substr(0, std::min(line_end, input.find('\0')));
  const std::string text = line_end == std::string::npos ? "" : input.substr(line_end + 1);
  // The line end makes a URL that nothing is encrypted for: the fuzzer can learn texts that are
  // encrypted for the others.
  check_refused(url + '\n', text);

  std::string sealed = text;
  check(encrypt_s3_key(url.c_str(), sealed));
  std::string opened = sealed;
  check(decrypt_s3_key(url.c_str(), opened) && opened == text);
  check_refused(url + "/", sealed);
  if (text.empty()) return 0;

  std::string damaged = sealed;
  char& byte = damaged[static_cast<unsigned char>(text.front()) % damaged.size()];
  byte = static_cast<char>(byte ^ (1 << (text.back() & 7)));
  check_refused(url, damaged);
  check_refused(url, sealed.substr(0, static_cast<unsigned char>(text.back()) % sealed.size()));
  return 0;
}
