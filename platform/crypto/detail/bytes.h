#pragma once

#include <string>
#include <string_view>

namespace zqpool::detail {

/// The bytes of a text, as OpenSSL takes them.
inline const unsigned char* bytes_of(std::string_view text) noexcept {
  return reinterpret_cast<const unsigned char*>(text.data());
}
inline unsigned char* bytes_of(std::string& text) noexcept {
  return reinterpret_cast<unsigned char*>(text.data());
}

}  // namespace zqpool::detail
