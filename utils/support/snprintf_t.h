#pragma once

#include <ace/OS_NS_stdio.h>
#include <ace/OS_NS_stdlib.h>

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <type_traits>

/// A printf-style text that lives on the stack while it is shorter than N characters and moves to
/// the heap when it is not, so that it is never cut short while memory lasts.
///
/// @code
///   snprintf_t<100> query("pool_id=%s&lun_id=%s", pool_uuid.c_str(), lun_id.c_str());
///   request.query_string(query.c_str());
/// @endcode
///
/// Throws nothing. An object belongs to one thread and is neither copied nor moved.
template <std::size_t N, typename CHAR = char>
class snprintf_t {
  static_assert(N > 0, "there must be room for the terminator");
  static_assert(std::is_same_v<CHAR, char>,
                "the C library's wide printf does not tell how long the text would be");

  // Formats are spelt as char, because the attribute that has them checked wants to know.
 public:
  /// Formats at once. A text that cannot be formatted gives the empty text.
  [[gnu::format(printf, 2, 3)]] explicit snprintf_t(const char* format, ...) noexcept {
    std::va_list args;
    va_start(args, format);
    vset(format, args);
    va_end(args);
  }
  ~snprintf_t() { ACE_OS::free(ptr_); }
  snprintf_t(const snprintf_t&) = delete;
  snprintf_t& operator=(const snprintf_t&) = delete;

  /// Formats again into the same object; no argument may point into it. Returns the length, or -1:
  /// when memory is exhausted (the object keeps what fitted) and when the C library cannot format
  /// the text (the object is then empty). `args` is left usable for its owner's va_end().
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
        // ACE answers "size plus one" also when the C library cannot format the text at all. A text
        // that really is that long fits on the next pass, so a second such answer tells them apart.
        if (len_ < 0 || guessed) {
          text[0] = CHAR();
          len_ = 0;
          return -1;
        }
        guessed = true;
        // Doubling here looks like an oversight and is not to be "fixed": on a C library that does
        // not tell how much is needed the answer is only ACE's guess, and growing by one would
        // crawl. Callers count on the sizes that follow from it.
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
  std::int32_t len_ = 0;    ///< characters of the text; 0 after a failure
  CHAR* ptr_ = nullptr;     ///< the heap buffer, once the text has outgrown buf_
  std::uint64_t size_ = 0;  ///< capacity of the heap buffer in bytes
};
