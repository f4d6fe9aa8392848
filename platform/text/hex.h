#pragma once

#include <string>

namespace zqpool::text {

inline constexpr char lower_hex_digits[] = "0123456789abcdef";
inline constexpr char upper_hex_digits[] = "0123456789ABCDEF";

/// The value of a hexadecimal digit of either case, -1 for any other character.
constexpr int hex_value(char c) noexcept {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

/// Appends a byte as two digits.
inline void append_hex(std::string& out, unsigned char byte,
                       const char* digits = lower_hex_digits) {
  out += digits[byte >> 4];
  out += digits[byte & 0xf];
}

}  // namespace zqpool::text
