#include "cli/support/printable.h"

#include <locale.h>
#include <wchar.h>

#include "platform/text/hex.h"

namespace zqpool::cli {

namespace {

/// One character: its bytes and its columns, -1 if it cannot be shown.
struct Character {
  std::size_t bytes;
  int columns;
};

/// The library's records are UTF-8, whatever the user's locale.
locale_t utf8_locale() {
  static const locale_t locale = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
  return locale;
}

class Use_UTF8 {
 public:
  Use_UTF8() : before_(uselocale(utf8_locale())) {}
  ~Use_UTF8() { uselocale(before_); }
  Use_UTF8(const Use_UTF8&) = delete;
  Use_UTF8& operator=(const Use_UTF8&) = delete;

 private:
  locale_t before_;
};

/// The first character of a text that is not empty. Needs Use_UTF8.
Character first_character(std::string_view text) {
  const auto byte = static_cast<unsigned char>(text.front());
  if (byte >= 0x20 && byte < 0x7f) return {1, 1};
  wchar_t wide = 0;
  mbstate_t state{};
  const std::size_t bytes = mbrtowc(&wide, text.data(), text.size(), &state);
  if (bytes == 0 || bytes > text.size()) return {1, -1};
  // Characters unknown to wcwidth() count as one column, except the C1 controls.
  const int columns = wcwidth(wide);
  return {bytes, columns >= 0 ? columns : (wide < 0xa0 ? -1 : 1)};
}

}  // namespace

std::size_t display_width(std::string_view text) {
  const Use_UTF8 utf8;
  std::size_t width = 0;
  while (!text.empty()) {
    const Character character = first_character(text);
    width += character.columns < 0 ? 1 : static_cast<std::size_t>(character.columns);
    text.remove_prefix(character.bytes);
  }
  return width;
}

std::string printable(std::string_view text) {
  const Use_UTF8 utf8;
  std::string out;
  out.reserve(text.size());
  while (!text.empty()) {
    const Character character = first_character(text);
    if (character.columns >= 0) {
      out += text.substr(0, character.bytes);
    } else {
      for (const char c : text.substr(0, character.bytes)) {
        out += "\\x";
        text::append_hex(out, static_cast<unsigned char>(c));
      }
    }
    text.remove_prefix(character.bytes);
  }
  return out;
}

std::string tsv_field(std::string_view text) {
  static constexpr std::string_view raw("\\\t\n\r\0", 5);
  static constexpr std::string_view escaped = "\\tnr0";
  std::string out;
  out.reserve(text.size());
  for (const char c : text) {
    const std::size_t found = raw.find(c);
    if (found == std::string_view::npos) {
      out += c;
    } else {
      out += '\\';
      out += escaped[found];
    }
  }
  return out;
}

}  // namespace zqpool::cli
