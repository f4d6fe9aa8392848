#include <array>
#include <charconv>
#include <cmath>
#include <stdexcept>
#include <string_view>

#include "platform/json/detail/text_writer.h"
#include "platform/json/json_spirit.h"
#include "platform/text/utf8.h"

namespace json_spirit {

namespace detail {

namespace {

// What follows the backslash where a byte must be escaped, else 0.
constexpr std::array<char, 256> escapes = [] {
  std::array<char, 256> table{};
  for (std::size_t byte = 0; byte < 0x20; ++byte)
    table[byte] = 'u';
  table['"'] = '"';
  table['\\'] = '\\';
  table['\b'] = 'b';
  table['\f'] = 'f';
  table['\n'] = 'n';
  table['\r'] = 'r';
  table['\t'] = 't';
  return table;
}();

// The text with U+FFFD in place of each byte that is not UTF-8.
std::string repaired(std::string_view text) {
  std::string good;
  while (!text.empty()) {
    const auto lead = static_cast<unsigned char>(text.front());
    const std::size_t length = lead < 0x80 ? 1 : lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : 4;
    const std::string_view character = text.substr(0, length);
    const bool valid = zqpool::text::is_utf8(character);
    good += valid ? character : "\xef\xbf\xbd";
    text.remove_prefix(valid ? length : 1);
  }
  return good;
}

}  // namespace

class Writer {
 public:
  Writer(Text_Style style, std::string& out) : style_(style), out_(out) {}

  // `depth` is the number of containers around the value.
  void put(const Value& value, int depth) {
    std::visit([this, depth](const auto& content) { put(content, depth); }, value.data_);
  }
  void put(std::monostate, int) { out_ += "null"; }
  void put(bool flag, int) { out_ += flag ? "true" : "false"; }
  void put(std::int64_t number, int) { put_number(number); }
  void put(std::uint64_t number, int) { put_number(number); }
  void put(double number, int) { put_real(number); }
  void put(const std::string& text, int) { put_string(text); }

  void put(const Object& object, int depth) {
    if (too_deep(depth)) return;
    out_ += '{';
    bool first = true;
    for (const auto& [key, value] : object) {
      begin_element(first, depth + 1);
      put_string(key);
      out_ += style_.pretty ? ": " : ":";
      put(value, depth + 1);
    }
    if (!first) new_line(depth);
    out_ += '}';
  }

  void put(const Array& array, int depth) {
    if (too_deep(depth)) return;
    out_ += '[';
    bool first = true;
    for (const Value& value : array) {
      begin_element(first, depth + 1);
      put(value, depth + 1);
    }
    if (!first) new_line(depth);
    out_ += ']';
  }

 private:
  bool too_deep(int depth) {
    if (depth < max_depth) return false;
    if (!style_.lenient) throw std::runtime_error("JSON value is nested too deep to be written");
    out_ += "...";
    return true;
  }

  void begin_element(bool& first, int depth) {
    if (!first) out_ += ',';
    first = false;
    new_line(depth);
  }

  void new_line(int depth) {
    if (!style_.pretty) return;
    out_ += '\n';
    out_.append(2 * static_cast<std::size_t>(depth), ' ');
  }

  template <typename Number>
  void put_number(Number number) {
    char text[32];
    out_.append(text, std::to_chars(text, std::end(text), number).ptr);
  }

  void put_real(double number) {
    if (!std::isfinite(number)) {
      if (!style_.lenient) throw std::runtime_error("JSON has no text for NaN and infinity");
      out_ += "null";
      return;
    }
    const std::size_t begin = out_.size();
    put_number(number);
    // A whole number must read back as a real.
    if (out_.find_first_of(".e", begin) == std::string::npos) out_ += ".0";
  }

  void put_string(const std::string& text) {
    out_ += '"';
    std::size_t done = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
      const auto byte = static_cast<unsigned char>(text[i]);
      if (escapes[byte] == 0) continue;
      out_.append(text, done, i - done);
      put_escape(byte);
      done = i + 1;
    }
    out_.append(text, done);
    out_ += '"';
  }

  void put_escape(unsigned char byte) {
    constexpr char hex[] = "0123456789abcdef";
    out_ += '\\';
    out_ += escapes[byte];
    if (escapes[byte] != 'u') return;
    out_ += "00";
    out_ += hex[byte >> 4];
    out_ += hex[byte & 15];
  }

  const Text_Style style_;
  std::string& out_;
};

namespace {

template <typename Tree>
void append(const Tree& tree, Text_Style style, std::string& out) {
  const std::size_t size = out.size();
  try {
    Writer(style, out).put(tree, 0);
    // Only the tree's strings can hold other bytes than ASCII, so one check of the whole suffices.
    const std::string_view text = std::string_view(out).substr(size);
    if (zqpool::text::is_utf8(text)) return;
    if (!style.lenient) throw std::runtime_error("JSON has no text for a string that is not UTF-8");
    out.replace(size, out.npos, repaired(text));
  } catch (...) {
    out.resize(size);
    throw;
  }
}

}  // namespace

void write_text(const Value& value, Text_Style style, std::string& out) {
  append(value, style, out);
}

void write_text(const Object& object, Text_Style style, std::string& out) {
  append(object, style, out);
}

void write_text(const Array& array, Text_Style style, std::string& out) {
  append(array, style, out);
}

}  // namespace detail

std::string write(const Value& value) {
  std::string text;
  write_to(value, text);
  return text;
}

void write_to(const Value& value, std::string& out) {
  detail::write_text(value, {}, out);
}

}  // namespace json_spirit
