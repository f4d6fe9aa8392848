#include "service/api/text.h"

#include <openssl/rand.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <stdexcept>

#include "platform/text/hex.h"

namespace zqpool::service {

std::string printable(std::string_view bytes) {
  std::string out;
  out.reserve(bytes.size());
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '\\' || c == '"') {
      out += '\\';
      out += c;
    } else if (byte >= 0x20 && byte < 0x7f) {
      out += c;
    } else {
      out += "\\x";
      text::append_hex(out, byte, text::upper_hex_digits);
    }
  }
  return out;
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
    text::append_hex(out, bytes[i]);
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
