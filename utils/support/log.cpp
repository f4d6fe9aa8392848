#include "utils/support/log.h"

#include <ace/Log_Msg.h>
#include <ace/Stack_Trace.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>

namespace zqpool::detail {
namespace {

// ACE's record takes 4,096 bytes and cuts silently, the newline included. In front of the text ACE
// may put the program's name and a time stamp, which need room in the same record.
constexpr std::size_t longest_text = 3500;

/// Keeps the first bytes of a text of any length, without taking memory.
class Bounded_Text {
 public:
  void append(const char* text, std::size_t length) noexcept {
    if (length == 0) return;
    if (kept_ < longest_text) {
      const std::size_t taken = std::min(length, longest_text - kept_);
      std::memcpy(text_ + kept_, text, taken);
      kept_ += taken;
    }
    total_ += length;
    last_ = text[length - 1];
  }
  void append(const char* text) noexcept { append(text, std::strlen(text)); }

  template <typename T>
  void append_number(T value) noexcept {
    char digits[24];
    append(digits,
           static_cast<std::size_t>(std::to_chars(digits, std::end(digits), value).ptr - digits));
  }

  /// The whole text, or as much of it as fits with a note of what is missing.
  const char* finish() noexcept {
    if (total_ > longest_text) {
      const char* const end = last_ == '\n' ? "\n" : "";
      std::size_t cut = longest_text - longest_note;
      // Never in the middle of a UTF-8 sequence, of which at most three bytes can lie before us.
      for (int i = 0; i < 3 && (static_cast<unsigned char>(text_[cut]) & 0xc0U) == 0x80U; ++i) {
        --cut;
      }
      const unsigned long long missing = total_ - cut - std::strlen(end);
      std::snprintf(text_ + cut, sizeof text_ - cut, "... (%llu bytes more)%s", missing, end);
    } else {
      text_[kept_] = '\0';
    }
    return text_;
  }

 private:
  static constexpr std::size_t longest_note = sizeof "... (18446744073709551615 bytes more)\n";

  char text_[longest_text + 1];
  std::size_t kept_ = 0;
  std::uint64_t total_ = 0;
  char last_ = '\0';
};

const char* or_null(const char* text) noexcept {
  return text != nullptr ? text : "(null)";
}

void render(Bounded_Text& text, const Place& place, const char* format,
            const Log_Argument* args) noexcept {
  while (*format != '\0') {
    const std::size_t plain = std::strcspn(format, "%");
    text.append(format, plain);
    format += plain;
    if (*format == '\0') break;
    ++format;
    switch (*format) {
      case 'N':
        text.append(or_null(place.file));
        break;
      case 'l':
        text.append_number(place.line);
        break;
      case '?':
        text.append(ACE_Stack_Trace(0).c_str());
        break;
      case 'd':
        text.append_number((args++)->number);
        break;
      case 'u':
      case 'Q':
        text.append_number((args++)->natural);
        break;
      case 's':
        text.append(or_null((args++)->text));
        break;
      case '.': {  // ".*s"
        const int limit = static_cast<int>((args++)->number);
        const char* const part = or_null((args++)->text);
        // As printf has it, a negative precision is none.
        text.append(
            part, limit < 0 ? std::strlen(part) : ::strnlen(part, static_cast<std::size_t>(limit)));
        format += 2;
        break;
      }
      default:
        text.append(format, 1);
        break;  // "%%"
    }
    ++format;
  }
}

}  // namespace

bool log_enabled(ACE_Log_Priority priority) noexcept {
  const int error = errno;
  ACE_Log_Msg* const log = ACE_Log_Msg::instance();
  const bool enabled = log != nullptr && log->log_priority_enabled(priority) != 0;
  errno = error;
  return enabled;
}

void write_log(const Place& place, ACE_Log_Priority priority, const char* format,
               const Log_Argument* args) noexcept {
  const int error = ACE_Log_Msg::last_error_adapter();
  ACE_Log_Msg* const log = ACE_Log_Msg::instance();
  // Both are null when the memory for them could not be had.
  if (log != nullptr && log->msg() != nullptr) {
    Bounded_Text text;
    render(text, place, format, args);
    log->conditional_set(place.file, place.line, priority == LM_INFO ? 0 : -1, error);
    try {
      log->log(priority, "%s", text.finish());
    } catch (...) {
      // A sink of the process threw. An operation's result must not depend on its log line.
    }
  }
  errno = error;
}

}  // namespace zqpool::detail
