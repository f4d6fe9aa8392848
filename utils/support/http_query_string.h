#pragma once

#include <iterator>
#include <string>
#include <utility>

/// Which characters http_encode_string_i() leaves unescaped, and how it escapes the others.
enum HTTP_URL_Flags : unsigned {
  HUT_FLAG_SLASH = 1,      ///< escape "/", which is kept otherwise
  HUT_FLAG_SPACE = 2,      ///< write a blank as "+"
  HUT_FLAG_UPPERCASE = 4,  ///< use upper-case hexadecimal digits
  HUT_FLAG_KEEP_COLON = 8,
  HUT_FLAG_KEEP_LEFT_PAREN = 16,
  HUT_FLAG_KEEP_RIGHT_PAREN = 32,
  HUT_FLAG_KEEP_SINGLE_QUOTE = 64,
  HUT_FLAG_KEEP_ASTERISK = 128,
  HUT_FLAG_KEEP_EXCLAMATION = 512,
  HUT_FLAG_KEEP_POUND = 1024,
  HUT_FLAG_KEEP_DOLLAR = 2048,
  HUT_FLAG_KEEP_AMPERSAND = 4096,
  HUT_FLAG_KEEP_PLUS = 8192,
  HUT_FLAG_KEEP_COMMA = 16384,
  HUT_FLAG_KEEP_SEMICOLON = 32768,
  HUT_FLAG_KEEP_EQUAL = 65536,
  HUT_FLAG_KEEP_QUESTION = 131072,
  HUT_FLAG_KEEP_AT = 262144,

  /// Like encodeURIComponent() of JavaScript.
  HUT_FLAG_JS_ENCODE_URI_COMPONENT =
      HUT_FLAG_SLASH | HUT_FLAG_UPPERCASE | HUT_FLAG_KEEP_LEFT_PAREN | HUT_FLAG_KEEP_RIGHT_PAREN |
      HUT_FLAG_KEEP_SINGLE_QUOTE | HUT_FLAG_KEEP_ASTERISK | HUT_FLAG_KEEP_EXCLAMATION,
  /// Like encodeURI() of JavaScript.
  HUT_FLAG_JS_ENCODE_URI = HUT_FLAG_UPPERCASE | HUT_FLAG_KEEP_COLON | HUT_FLAG_KEEP_LEFT_PAREN |
                           HUT_FLAG_KEEP_RIGHT_PAREN | HUT_FLAG_KEEP_SINGLE_QUOTE |
                           HUT_FLAG_KEEP_ASTERISK | HUT_FLAG_KEEP_EXCLAMATION |
                           HUT_FLAG_KEEP_POUND | HUT_FLAG_KEEP_DOLLAR | HUT_FLAG_KEEP_AMPERSAND |
                           HUT_FLAG_KEEP_PLUS | HUT_FLAG_KEEP_COMMA | HUT_FLAG_KEEP_SEMICOLON |
                           HUT_FLAG_KEEP_EQUAL | HUT_FLAG_KEEP_QUESTION | HUT_FLAG_KEEP_AT
};

namespace zqpool::detail {

/// Whether http_encode_string_i() leaves `c` unescaped.
constexpr bool http_keeps(char c, unsigned flags) noexcept {
  if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) return true;
  const auto has = [flags](unsigned flag) { return (flags & flag) != 0; };
  switch (c) {
    case '-':
    case '_':
    case '.':
    case '~':
      return true;
    case '/':
      return !has(HUT_FLAG_SLASH);
    case ':':
      return has(HUT_FLAG_KEEP_COLON);
    case '(':
      return has(HUT_FLAG_KEEP_LEFT_PAREN);
    case ')':
      return has(HUT_FLAG_KEEP_RIGHT_PAREN);
    case '\'':
      return has(HUT_FLAG_KEEP_SINGLE_QUOTE);
    case '*':
      return has(HUT_FLAG_KEEP_ASTERISK);
    case '!':
      return has(HUT_FLAG_KEEP_EXCLAMATION);
    case '#':
      return has(HUT_FLAG_KEEP_POUND);
    case '$':
      return has(HUT_FLAG_KEEP_DOLLAR);
    case '&':
      return has(HUT_FLAG_KEEP_AMPERSAND);
    case '+':
      return has(HUT_FLAG_KEEP_PLUS);
    case ',':
      return has(HUT_FLAG_KEEP_COMMA);
    case ';':
      return has(HUT_FLAG_KEEP_SEMICOLON);
    case '=':
      return has(HUT_FLAG_KEEP_EQUAL);
    case '?':
      return has(HUT_FLAG_KEEP_QUESTION);
    case '@':
      return has(HUT_FLAG_KEEP_AT);
    default:
      return false;
  }
}

}  // namespace zqpool::detail

/// Writes `text` percent-encoded to the output iterator `out`, which is advanced if it is an
/// lvalue. `flags` is a combination of HTTP_URL_Flags. Returns false if `text` is null or empty.
template <typename It>
bool http_encode_string_i(const char* text, unsigned flags, It&& out) {
  if (text == nullptr || *text == '\0') return false;
  const char* const digits =
      (flags & HUT_FLAG_UPPERCASE) != 0 ? "0123456789ABCDEF" : "0123456789abcdef";
  for (; *text != '\0'; ++text) {
    if (zqpool::detail::http_keeps(*text, flags)) {
      *out++ = *text;
    } else if (*text == ' ' && (flags & HUT_FLAG_SPACE) != 0) {
      *out++ = '+';
    } else {
      const auto byte = static_cast<unsigned char>(*text);
      *out++ = '%';
      *out++ = digits[byte >> 4];
      *out++ = digits[byte & 15];
    }
  }
  return true;
}

/// Writes a query string, field by field, to an output iterator.
///
/// @code
///   std::string query;
///   HTTP_Query_String_Builder build(std::back_inserter(query));
///   build("uuid", "42")("uri", "/zq/data");  // uuid=42&uri=%2fzq%2fdata
/// @endcode
template <typename It>
class HTTP_Query_String_Builder_T {
 public:
  explicit HTTP_Query_String_Builder_T(It iter) : iter_(std::move(iter)) {}

  /// Writes one field: `prefix` (null: none) and `name`, then "=" and `value`. A null `value` omits
  /// the "=". A null or empty `name` writes nothing.
  HTTP_Query_String_Builder_T& operator()(const char* name, const char* value,
                                          bool encode_name = true, bool encode_value = true,
                                          const char* prefix = nullptr) {
    if (name == nullptr || *name == '\0') return *this;
    if (sep_) *iter_++ = '&';
    sep_ = true;
    write(prefix, encode_name);
    write(name, encode_name);
    if (value != nullptr) {
      *iter_++ = '=';
      write(value, encode_value);
    }
    return *this;
  }

 private:
  void write(const char* text, bool encode) {
    if (encode) {
      http_encode_string_i(text, HUT_FLAG_SLASH | HUT_FLAG_SPACE, iter_);
    } else {
      for (; text != nullptr && *text != '\0'; ++text) {
        *iter_++ = *text;
      }
    }
  }

  It iter_;
  bool sep_ = false;  ///< a field has been written
};

/// Writes into a string.
using HTTP_Query_String_Builder =
    HTTP_Query_String_Builder_T<std::back_insert_iterator<std::string>>;
