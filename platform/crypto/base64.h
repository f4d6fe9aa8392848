#pragma once

#include <cstddef>
#include <string>

#include "platform/export.h"

/// Decodes Base64 (RFC 4648, the standard alphabet) into bytes.
///
/// Strict: padding is there, nothing else than the alphabet (no blanks, no line ends), and unused
/// bits are zero, so that two different texts never give the same bytes. One object may decode one
/// text after another; it wipes the bytes of each when it goes on. Belongs to one thread at a time.
class ZQ_EXPORT Base64_Decoder {
 public:
  Base64_Decoder() = default;
  ~Base64_Decoder();
  Base64_Decoder(const Base64_Decoder&) = delete;
  Base64_Decoder& operator=(const Base64_Decoder&) = delete;

  /// Decodes `length` characters, fewer than 2^31. False, and no bytes, when they are no Base64 or
  /// `text` is null with a length; no characters give no bytes and true.
  bool set(const char* text, std::size_t length);

  /// The bytes of the last set(), never null, good until the next one. A NUL follows them.
  const char* get() const noexcept { return bytes_.c_str(); }
  /// How many there are.
  std::size_t length() const noexcept { return bytes_.size(); }

 private:
  std::string bytes_;
};
