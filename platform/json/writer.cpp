#include <simdjson.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <stdexcept>
#include <string_view>

#include "platform/json/detail/prefetch.h"
#include "platform/json/detail/text_writer.h"
#include "platform/json/detail/value_access.h"
#include "platform/json/json_spirit.h"

namespace json_spirit {

namespace {

using detail::Text_Style;

constexpr std::uint64_t every_byte(std::uint64_t byte) {
  return byte * 0x0101010101010101U;
}

// Bit 7 of each byte of the answer says whether that byte of `word` may be below `limit` (at most
// 128). It may also be set above a byte for which it rightly is, so only zero is certain.
constexpr std::uint64_t bytes_below(std::uint64_t word, std::uint64_t limit) {
  return (word - every_byte(limit)) & ~word & every_byte(0x80);
}

// Zero when none of the eight bytes needs an escape.
constexpr std::uint64_t unplain(std::uint64_t word) {
  return bytes_below(word, 0x20) | bytes_below(word ^ every_byte('"'), 1) |
         bytes_below(word ^ every_byte('\\'), 1);
}

constexpr bool is_plain(unsigned char byte) {
  return byte >= 0x20 && byte != '"' && byte != '\\';
}

// What a stretch of text holds, from the bits of all its words.
struct Traits {
  std::uint64_t unplain = 0;
  std::uint64_t bits = 0;

  bool ascii() const noexcept { return (bits & every_byte(0x80)) == 0; }
};

// Copies one word and notes what is in it.
template <typename Word>
void copy_word(const char* from, char* to, Traits& traits) {
  Word word;
  std::memcpy(&word, from, sizeof word);
  std::memcpy(to, &word, sizeof word);
  // A shorter word is filled up with copies of itself.
  std::uint64_t wide = word;
  for (std::size_t bits = 8 * sizeof word; bits < 64; bits *= 2)
    wide |= wide << bits;
  traits.unplain |= unplain(wide);
  traits.bits |= wide;
}

template <typename Word>
void copy_words(std::string_view text, char* to, Traits& traits) {
  const std::size_t last = text.size() - sizeof(Word);
  for (std::size_t i = 0; i < last; i += sizeof(Word)) {
    copy_word<Word>(text.data() + i, to + i, traits);
  }
  // The last word may overlap the one before, which saves a loop over single bytes.
  copy_word<Word>(text.data() + last, to + last, traits);
}

Traits copy(std::string_view text, char* to) {
  Traits traits;
  if (text.size() >= 8) {
    copy_words<std::uint64_t>(text, to, traits);
  } else if (text.size() >= 4) {
    copy_words<std::uint32_t>(text, to, traits);
  } else if (!text.empty()) {
    copy_words<unsigned char>(text, to, traits);
  }
  return traits;
}

constexpr std::size_t longest_escape = 6;  // \u001f
constexpr std::size_t longest_number = 32;
constexpr std::size_t slice = 4096;

// Writes through a pointer into `out`, whose size runs ahead of the text and is set right at the
// end.
class Writer {
 public:
  Writer(Text_Style style, std::string& out) : style_(style), out_(out), start_(out.size()) {
    at(start_);
  }

  template <typename Tree>
  void write(const Tree& tree) {
    try {
      put(tree, 0);
    } catch (...) {
      out_.resize(start_);
      throw;
    }
    out_.resize(size());
  }

 private:
  std::size_t size() const noexcept { return static_cast<std::size_t>(next_ - out_.data()); }

  void at(std::size_t position) noexcept {
    next_ = out_.data() + position;
    end_ = out_.data() + out_.size();
  }

  void need(std::size_t bytes) {
    if (static_cast<std::size_t>(end_ - next_) < bytes) grow(bytes);
  }

  void grow(std::size_t bytes) {
    const std::size_t used = size();
    out_.resize(std::max({used + bytes, 2 * out_.size(), start_ + 256}));
    at(used);
  }

  void put_char(char c) {
    need(1);
    *next_++ = c;
  }

  void put_raw(std::string_view text) {
    need(text.size());
    std::memcpy(next_, text.data(), text.size());
    next_ += text.size();
  }

  void put(const Value& value, int depth) {
    std::visit([this, depth](const auto& content) { put(content, depth); },
               detail::Value_Access::data(value));
  }

  void put(std::monostate, int) { put_raw("null"); }
  void put(bool flag, int) { put_raw(flag ? "true" : "false"); }
  void put(std::int64_t number, int) { put_number(number); }
  void put(std::uint64_t number, int) { put_number(number); }
  void put(double number, int) { put_real(number); }
  void put(const std::string& text, int) { put_string(text); }

  void put(const Object& object, int depth) {
    if (!enter(depth)) return;
    put_char('{');
    bool first = true;
    for (const auto& [key, value] : object) {
      begin_element(first, depth + 1);
      put_string(key);
      put_raw(style_.pretty ? ": " : ":");
      put(value, depth + 1);
    }
    if (!first) new_line(depth);
    put_char('}');
  }

  void put(const Array& array, int depth) {
    if (!enter(depth)) return;
    put_char('[');
    bool first = true;
    for (std::size_t i = 0; i < array.size(); ++i) {
      detail::prefetch_ahead(array, i);
      begin_element(first, depth + 1);
      put(array[i], depth + 1);
    }
    if (!first) new_line(depth);
    put_char(']');
  }

  // Whether a container that stands in `depth` others is to be written.
  bool enter(int depth) {
    if (depth < max_depth) return true;
    if (!style_.lenient) throw std::runtime_error("JSON value is nested too deep to be written");
    put_raw("...");
    return false;
  }

  void begin_element(bool& first, int depth) {
    if (!first) put_char(',');
    first = false;
    new_line(depth);
  }

  void new_line(int depth) {
    if (!style_.pretty) return;
    const std::size_t indent = 2 * static_cast<std::size_t>(depth);
    need(1 + indent);
    *next_++ = '\n';
    std::memset(next_, ' ', indent);
    next_ += indent;
  }

  template <typename Number>
  void put_number(Number number) {
    need(longest_number);
    next_ = std::to_chars(next_, end_, number).ptr;
  }

  void put_real(double number) {
    if (!std::isfinite(number)) {
      if (!style_.lenient) throw std::runtime_error("JSON has no text for NaN and infinity");
      put_raw("null");
      return;
    }
    need(longest_number);
    char* const begin = next_;
    next_ = std::to_chars(next_, end_, number).ptr;
    // A whole number must read back as a real.
    if (std::find_if(begin, next_, [](char c) { return c == '.' || c == 'e'; }) == next_) {
      *next_++ = '.';
      *next_++ = '0';
    }
  }

  void put_string(const std::string& text) {
    const std::size_t begin = size();
    if (put_quoted(text) || simdjson::validate_utf8(text.data(), text.size())) return;
    if (!style_.lenient)
      throw std::runtime_error("JSON has no text for a string that is not UTF-8");
    at(begin);
    put_quoted(repaired(text));
  }

  // Returns whether the text is all ASCII.
  bool put_quoted(std::string_view text) {
    bool ascii = true;
    put_char('"');
    // In slices, because room is made for the longest form.
    for (std::size_t done = 0; done < text.size(); done += slice) {
      const std::string_view part = text.substr(done, slice);
      need(longest_escape * part.size());
      const Traits traits = copy(part, next_);
      ascii = ascii && traits.ascii();
      if (traits.unplain == 0) {
        next_ += part.size();
      } else {
        put_escaped(part);
      }
    }
    put_char('"');
    return ascii;
  }

  // Overwrites what copy() may have put there.
  void put_escaped(std::string_view text) noexcept {
    for (const char c : text) {
      if (is_plain(static_cast<unsigned char>(c))) {
        *next_++ = c;
      } else {
        put_escape(static_cast<unsigned char>(c));
      }
    }
  }

  void put_escape(unsigned char byte) noexcept {
    constexpr char hex[] = "0123456789abcdef";
    constexpr std::string_view named = "\"\\\b\f\n\r\t";
    constexpr char names[] = "\"\\bfnrt";
    *next_++ = '\\';
    if (const auto i = named.find(static_cast<char>(byte)); i != named.npos) {
      *next_++ = names[i];
      return;
    }
    for (const char c : {'u', '0', '0', hex[byte >> 4], hex[byte & 15]})
      *next_++ = c;
  }

  static std::string repaired(std::string_view text) {
    std::string good;
    while (!text.empty()) {
      const auto lead = static_cast<unsigned char>(text.front());
      const std::size_t length = lead < 0x80 ? 1 : lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : 4;
      if (length <= text.size() && simdjson::validate_utf8(text.data(), length)) {
        good += text.substr(0, length);
        text.remove_prefix(length);
      } else {
        good += "\xef\xbf\xbd";
        text.remove_prefix(1);
      }
    }
    return good;
  }

  const Text_Style style_;
  std::string& out_;
  const std::size_t start_;
  char* next_ = nullptr;
  char* end_ = nullptr;
};

}  // namespace

namespace detail {

void write_text(const Value& value, Text_Style style, std::string& out) {
  Writer(style, out).write(value);
}

void write_text(const Object& object, Text_Style style, std::string& out) {
  Writer(style, out).write(object);
}

void write_text(const Array& array, Text_Style style, std::string& out) {
  Writer(style, out).write(array);
}

}  // namespace detail

std::string write(const Value& value) {
  std::string text;
  write_to(value, text);
  return text;
}

void write_to(const Value& value, std::string& out) {
  detail::write_text(value, Text_Style{}, out);
}

}  // namespace json_spirit
