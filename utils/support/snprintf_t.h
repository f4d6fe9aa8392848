#pragma once

#include <ace/OS_NS_stdio.h>
#include <ace/OS_NS_stdlib.h>

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <type_traits>

/// A text formatted as by printf(): in the object itself while it is shorter than N characters, on
/// the heap otherwise. It is truncated only when memory runs out.
///
/// @code
///   snprintf_t<100> query("pool_id=%s&lun_id=%s", pool_uuid.c_str(), lun_id.c_str());
///   request.query_string(query.c_str());
/// @endcode
///
/// Throws nothing. Not thread-safe.
template <std::size_t N, typename CHAR = char>
class snprintf_t {
  static_assert(N > 0, "there must be room for the terminator");
  static_assert(std::is_same_v<CHAR, char>,
                "the C library's wide printf does not tell how long the text would be");

 public:
  // `format` is char*, not CHAR*, because gnu::format requires it.

  /// Formats a text. It is empty if the C library cannot format it.
  [[gnu::format(printf, 2, 3)]] explicit snprintf_t(const char* format, ...) noexcept {
    std::va_list args;
    va_start(args, format);
    vset(format, args);
    va_end(args);
  }
  ~snprintf_t() { ACE_OS::free(ptr_); }
  snprintf_t(const snprintf_t&) = delete;
  snprintf_t& operator=(const snprintf_t&) = delete;

  /// Replaces the text; no argument may point into it. Returns the length, or -1 if memory runs out
  /// (the text is then truncated) or if the C library cannot format it (the text is then empty).
  /// The caller must still call va_end() on `args`.
  [[gnu::format(printf, 2, 0)]] int vset(const char* format, std::va_list args) noexcept {
    for (bool guessed = false;;) {
      CHAR* const text = ptr_ != nullptr ? ptr_ : buf_;
      const std::uint64_t size = ptr_ != nullptr ? size_ : N;
      std::va_list pass;
      va_copy(pass, args);
      len_ = ACE_OS::vsnprintf(text, size, format, pass);
      va_end(pass);
      if (len_ >= 0 && static_cast<std::uint64_t>(len_) < size) return len_;

      std::uint64_t wanted = static_cast<std::uint64_t>(len_);
      if (len_ < 0 || wanted == size + 1) {
        // ACE returns "size plus one" also when the C library cannot format the text. A text that
        // really is that long fits on the next pass; if the same comes again, it is an error.
        if (len_ < 0 || guessed) {
          text[0] = CHAR();
          len_ = 0;
          return -1;
        }
        guessed = true;
        // Doubled on purpose: where the C library does not tell the length, this is ACE's guess,
        // and growing by one would take too many passes. Callers rely on the resulting sizes.
        wanted *= 2;
      } else {
        guessed = false;
      }
      CHAR* const grown = static_cast<CHAR*>(ACE_OS::realloc(ptr_, wanted + 1));
      if (grown == nullptr) {
        len_ = 0;
        return -1;
      }
      ptr_ = grown;
      size_ = wanted + 1;
    }
  }

  const CHAR* c_str() const noexcept { return ptr_ != nullptr ? ptr_ : buf_; }

 protected:
  CHAR buf_[N];
  std::int32_t len_ = 0;    ///< length of the text; 0 after a failure
  CHAR* ptr_ = nullptr;     ///< heap buffer; null: the text is in buf_
  std::uint64_t size_ = 0;  ///< size of the heap buffer in bytes
};
