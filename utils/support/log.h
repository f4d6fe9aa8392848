#pragma once

#include <ace/Log_Priority.h>

#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

// The library's log lines.
//
//   return ok || ZQ_ERROR("Failed to get lun '%s' info.\n", lun_id.c_str());
//
// ZQ_ERROR and its sisters write one line at the source position where they stand and yield false;
// ZQ_LOG_AT takes the position of somebody else, for code that speaks in its caller's name. The
// arguments are evaluated only when the priority is on, so a costly one (a JSON_Dump) costs nothing
// when it is off. errno is preserved, nothing is thrown, and no memory is taken but ACE's own.
//
// Directives: %s (a null text is "(null)"), %.*s, %d (int), %u (unsigned), %Q (unsigned 64-bit),
// %N and %l (file and line of the position), %? (call stack) and %%. The compiler refuses others,
// and arguments that do not fit. A text beyond ACE's record is cut at the end of a character and
// ends in "... (N bytes more)".

/// The source position where it stands.
#define ZQ_HERE (::zqpool::detail::Place{__FILE__, __LINE__})

#define ZQ_EMERGENCY(...) ZQ_LOG_AT(ZQ_HERE, LM_EMERGENCY, __VA_ARGS__)
#define ZQ_ERROR(...) ZQ_LOG_AT(ZQ_HERE, LM_ERROR, __VA_ARGS__)
#define ZQ_WARNING(...) ZQ_LOG_AT(ZQ_HERE, LM_WARNING, __VA_ARGS__)
#define ZQ_INFO(...) ZQ_LOG_AT(ZQ_HERE, LM_INFO, __VA_ARGS__)

#define ZQ_LOG_AT(place, priority, ...)                                                     \
  (::zqpool::detail::log_enabled(priority)                                                  \
       ? ::zqpool::detail::log<decltype(::zqpool::detail::log_arguments(__VA_ARGS__))::fit( \
             ZQ_LOG_FORMAT(__VA_ARGS__, 0))>(place, priority, __VA_ARGS__)                  \
       : ::zqpool::detail::log_nothing())
#define ZQ_LOG_FORMAT(format, ...) format

namespace zqpool::detail {

/// A source position.
struct Place {
  const char* file;
  int line;
};

/// One argument of a log line.
struct Log_Argument {
  enum class Kind { none, signed_int, unsigned_int, unsigned_64, text };

  Log_Argument() noexcept : number(0) {}
  Log_Argument(int value) noexcept : kind(Kind::signed_int), number(value) {}
  Log_Argument(unsigned value) noexcept : kind(Kind::unsigned_int), natural(value) {}
  Log_Argument(unsigned long value) noexcept : kind(Kind::unsigned_64), natural(value) {}
  Log_Argument(unsigned long long value) noexcept : kind(Kind::unsigned_64), natural(value) {}
  Log_Argument(const char* value) noexcept : kind(Kind::text), text(value) {}

  Kind kind = Kind::none;
  union {
    std::int64_t number;
    std::uint64_t natural;
    const char* text;
  };
};

/// The kind of argument that a T becomes: what unary plus makes of it.
template <typename T, typename = void>
constexpr Log_Argument::Kind log_kind = Log_Argument::Kind::none;
template <typename T>
constexpr Log_Argument::Kind log_kind<T, std::void_t<decltype(+std::declval<const T&>())>> = [] {
  using Plain = decltype(+std::declval<const T&>());
  if (std::is_same_v<Plain, int>) return Log_Argument::Kind::signed_int;
  if (std::is_same_v<Plain, unsigned>) return Log_Argument::Kind::unsigned_int;
  if (std::is_same_v<Plain, unsigned long> || std::is_same_v<Plain, unsigned long long>) {
    return Log_Argument::Kind::unsigned_64;
  }
  if (std::is_same_v<Plain, const char*> || std::is_same_v<Plain, char*>) {
    return Log_Argument::Kind::text;
  }
  return Log_Argument::Kind::none;
}();

/// The kinds of a line's arguments.
template <typename... Args>
struct Log_Arguments {
  /// Whether they are, in order, what the directives of `format` take.
  static constexpr bool fit(const char* format) noexcept {
    using Kind = Log_Argument::Kind;
    constexpr Kind kinds[] = {log_kind<Args>..., Kind::none};
    std::size_t next = 0;
    for (; *format != '\0'; ++format) {
      if (*format != '%') continue;
      switch (*++format) {
        case '%':
        case 'N':
        case 'l':
        case '?':
          break;
        case 'd':
          if (kinds[next++] != Kind::signed_int) return false;
          break;
        case 'u':
          if (kinds[next++] != Kind::unsigned_int) return false;
          break;
        case 'Q':
          if (kinds[next++] != Kind::unsigned_64) return false;
          break;
        case '.':
          if (format[1] != '*' || format[2] != 's') return false;
          format += 2;
          if (kinds[next++] != Kind::signed_int) return false;
          if (kinds[next++] != Kind::text) return false;
          break;
        case 's':
          if (kinds[next++] != Kind::text) return false;
          break;
        default:
          return false;
      }
    }
    return next == sizeof...(Args);
  }
};

/// Only its type is used.
template <typename... Args>
Log_Arguments<Args...> log_arguments(const char* format, const Args&... args);

/// Whether lines of this priority are wanted.
bool log_enabled(ACE_Log_Priority priority) noexcept;

/// Renders a line and hands it to ACE. `args` holds an argument for every directive that takes one.
void write_log(const Place& place, ACE_Log_Priority priority, const char* format,
               const Log_Argument* args) noexcept;

constexpr bool log_nothing() noexcept {
  return false;
}

template <bool fit, typename... Args>
bool log(const Place& place, ACE_Log_Priority priority, const char* format,
         const Args&... args) noexcept {
  static_assert(fit, "the arguments do not fit the format, or a directive is not known");
  const Log_Argument list[] = {Log_Argument(args)..., Log_Argument()};
  write_log(place, priority, format, list);
  return false;
}

}  // namespace zqpool::detail
