#include <simdjson.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <stdexcept>
#include <string_view>

#include "platform/json/json_spirit.h"
#include "platform/json/detail/text_writer.h"

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

// True when none of the eight bytes needs an escape.
constexpr bool is_plain(std::uint64_t word) {
  return (bytes_below(word, 0x20) | bytes_below(word ^ every_byte('"'), 1) |
          bytes_below(word ^ every_byte('\\'), 1)) == 0;
}

constexpr bool is_plain(unsigned char byte) {
  return byte >= 0x20 && byte != '"' && byte != '\\';
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
    switch (value.type()) {
      case obj_type:
        put(value.get_obj(), depth);
        break;
      case array_type:
        put(value.get_array(), depth);
        break;
      case str_type:
        put_string(value.get_str());
        break;
      case bool_type:
        put_raw(value.get_bool() ? "true" : "false");
        break;
      case int_type:
        if (value.is_uint64()) {
          put_number(value.get_uint64());
        } else {
          put_number(value.get_int64());
        }
        break;
      case real_type:
        put_real(value.get_real());
        break;
      case null_type:
        put_raw("null");
        break;
    }
  }

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
    for (const Value& value : array) {
      begin_element(first, depth + 1);
      put(value, depth + 1);
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
    put_char('"');
    std::uint64_t seen = 0;
    // In slices, because room is made for the longest form.
    for (std::size_t done = 0; done < text.size(); done += slice) {
      seen |= put_escaped(text.substr(done, slice));
    }
    put_char('"');
    return (seen & every_byte(0x80)) == 0;
  }

  // Returns the bits that are set in any byte.
  std::uint64_t put_escaped(std::string_view text) {
    need(longest_escape * text.size());
    std::uint64_t seen = 0;
    const char* from = text.data();
    const char* const end = from + text.size();
    while (from != end) {
      for (; end - from >= 8; from += 8, next_ += 8) {
        std::uint64_t word;
        std::memcpy(&word, from, sizeof word);
        if (!is_plain(word)) break;
        std::memcpy(next_, &word, sizeof word);
        seen |= word;
      }
      for (const char* const stop = from + std::min<std::ptrdiff_t>(end - from, 8); from != stop;
           ++from) {
        const auto byte = static_cast<unsigned char>(*from);
        seen |= byte;
        if (is_plain(byte)) {
          *next_++ = *from;
        } else {
          put_escape(byte);
        }
      }
    }
    return seen;
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
