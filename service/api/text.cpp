#include "service/api/text.h"

#include <openssl/rand.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <stdexcept>

namespace zqpool::service {

namespace {

int hex_digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

constexpr char upper_digits[] = "0123456789ABCDEF";
constexpr char lower_digits[] = "0123456789abcdef";

}  // namespace

bool is_utf8(std::string_view text) {
  for (std::size_t i = 0; i < text.size();) {
    const auto first = static_cast<unsigned char>(text[i]);
    const std::size_t length = first < 0x80                    ? 1
                               : first >= 0xc2 && first < 0xe0 ? 2
                               : first >= 0xe0 && first < 0xf0 ? 3
                               : first >= 0xf0 && first < 0xf5 ? 4
                                                               : 0;
    if (length == 0 || i + length > text.size()) return false;
    for (std::size_t k = 1; k < length; ++k) {
      const auto next = static_cast<unsigned char>(text[i + k]);
      // Overlong forms, surrogates and what lies above U+10FFFF show in the second byte.
      const unsigned lowest = k > 1 ? 0x80 : first == 0xe0 ? 0xa0 : first == 0xf0 ? 0x90 : 0x80;
      const unsigned highest = k > 1 ? 0xbf : first == 0xed ? 0x9f : first == 0xf4 ? 0x8f : 0xbf;
      if (next < lowest || next > highest) return false;
    }
    i += length;
  }
  return true;
}

std::string printable(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '\\' || c == '"') {
      out += '\\';
      out += c;
    } else if (byte >= 0x20 && byte < 0x7f) {
      out += c;
    } else {
      out += "\\x";
      out += upper_digits[byte >> 4];
      out += upper_digits[byte & 0xf];
    }
  }
  return out;
}

bool decode_query_text(std::string_view text, std::string& out) {
  out.clear();
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '+') {
      out += ' ';
    } else if (text[i] == '%') {
      if (i + 2 >= text.size()) return false;
      const int high = hex_digit(text[i + 1]);
      const int low = hex_digit(text[i + 2]);
      if (high < 0 || low < 0) return false;
      out += static_cast<char>(high * 16 + low);
      i += 2;
    } else {
      out += text[i];
    }
  }
  return true;
}

bool is_uuid(std::string_view text) {
  if (text.size() != 36) return false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool hyphen = i == 8 || i == 13 || i == 18 || i == 23;
    if (hyphen ? text[i] != '-' : hex_digit(text[i]) < 0) return false;
  }
  return true;
}

std::string lower_case(std::string_view text) {
  std::string out(text);
  for (char& c : out) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return out;
}

std::string random_uuid() {
  std::array<unsigned char, 16> bytes{};
  if (RAND_bytes(bytes.data(), static_cast<int>(bytes.size())) != 1) {
    throw std::runtime_error("the system gives no random numbers");
  }
  bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0f) | 0x40);
  bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3f) | 0x80);
  std::string out;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) out += '-';
    out += lower_digits[bytes[i] >> 4];
    out += lower_digits[bytes[i] & 0xf];
  }
  return out;
}

std::string utc_now() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  tm parts{};
  gmtime_r(&now.tv_sec, &parts);
  std::array<char, 32> text{};
  const std::size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &parts);
  std::snprintf(text.data() + length, text.size() - length, ".%03dZ",
                static_cast<int>(now.tv_nsec / 1000000));
  return text.data();
}

}  // namespace zqpool::service
