#pragma once

#include <cstddef>
#include <string>

#include "platform/export.h"

/// Decodes Base64 (RFC 4648, the standard alphabet) into bytes.
///
/// Strict: padding is required, blanks and line ends are rejected, and unused bits must be zero, so
/// that two different texts never decode to the same bytes. The decoded bytes are wiped by the next
/// set() and by the destructor. Not thread-safe.
class ZQ_EXPORT Base64_Decoder {
 public:
  Base64_Decoder() = default;
  ~Base64_Decoder();
  Base64_Decoder(const Base64_Decoder&) = delete;
  Base64_Decoder& operator=(const Base64_Decoder&) = delete;

  /// Decodes `length` characters, fewer than 2^31. Returns false and holds no bytes if they are not
  /// Base64. `text` may be null if `length` is 0.
  bool set(const char* text, std::size_t length);

  /// The decoded bytes, followed by a NUL. Never null; valid until the next set().
  const char* get() const noexcept { return bytes_.c_str(); }
  /// The number of decoded bytes.
  std::size_t length() const noexcept { return bytes_.size(); }

 private:
  std::string bytes_;
};
