// Services send keys as Base64. A text must decode if and only if a short second decoder accepts
// it, and to the same bytes.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "fuzz/check.h"
#include "platform/crypto/base64.h"

namespace {

std::optional<std::string> expected(std::string_view text) {
  constexpr std::string_view alphabet =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  if (text.size() % 4 != 0) return std::nullopt;
  for (int i = 0; i < 2 && !text.empty() && text.back() == '='; ++i)
    text.remove_suffix(1);
  std::string bytes;
  unsigned bits = 0;
  int count = 0;
  for (const char c : text) {
    const std::size_t value = alphabet.find(c);
    if (value == std::string_view::npos) return std::nullopt;
    bits = bits << 6 | static_cast<unsigned>(value);
    count += 6;
    if (count >= 8) {
      count -= 8;
      bytes += static_cast<char>(bits >> count & 0xff);
      bits &= (1U << count) - 1;
    }
  }
  return bits == 0 && count < 6 ? std::optional(bytes) : std::nullopt;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  Base64_Decoder decoder;
  // Nothing of an earlier text may remain.
  check(decoder.set("c29tZXRoaW5nIGVsc2U=", 20));
  const auto bytes = expected(text);
  check(decoder.set(text.data(), text.size()) == bytes.has_value());
  check(std::string_view(decoder.get(), decoder.length()) == bytes.value_or(""));
  return 0;
}
