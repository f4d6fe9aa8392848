#include "platform/text/percent.h"

#include "platform/text/hex.h"

namespace zqpool::text {

bool starts_with_percent_encoding(std::string_view text) noexcept {
  return text.size() >= 3 && text[0] == '%' && hex_value(text[1]) >= 0 && hex_value(text[2]) >= 0;
}

void append_percent_encoded(std::string& out, char c) {
  out += '%';
  append_hex(out, static_cast<unsigned char>(c), upper_hex_digits);
}

std::optional<std::string> decode_query_text(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '+') {
      out += ' ';
    } else if (text[i] != '%') {
      out += text[i];
    } else if (starts_with_percent_encoding(text.substr(i))) {
      out += static_cast<char>(hex_value(text[i + 1]) * 16 + hex_value(text[i + 2]));
      i += 2;
    } else {
      return std::nullopt;
    }
  }
  return out;
}

}  // namespace zqpool::text
