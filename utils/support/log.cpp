#include "utils/support/log.h"

#include <ace/Log_Msg.h>

#include <algorithm>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace zqpool::detail {
namespace {

/// The longest text that fits ACE's record, prefix included. ACE silently drops the rest, newline
/// included.
constexpr std::size_t max_record = ACE_MAXLOGMSGLEN - 1;
constexpr std::size_t max_note = sizeof "... (2147483647 bytes more)\n" - 1;

/// The room that the program's name and time stamp, which ACE puts first, leave for a text.
std::size_t room_for_text(ACE_Log_Msg& log) {
  std::size_t prefix = 0;
  if ((log.flags() & ACE_Log_Msg::VERBOSE) != 0 && ACE_Log_Msg::program_name() != nullptr) {
    prefix += std::strlen(ACE_Log_Msg::program_name()) + 1;
  }
  // ACE reads this variable, too, but does not tell the result.
  if (std::getenv("ACE_LOG_TIMESTAMP") != nullptr) {
    prefix += sizeof "2026-11-22 08:00:00.000000|" - 1;
  }
  return max_record - std::min(prefix, max_record - max_note);
}

/// Ends `text` at `room` bytes, where vsnprintf() has cut it, with a note of how many are missing.
void note_missing(char* text, std::size_t room, std::size_t length, const char* line_end) {
  std::size_t cut = room - max_note;
  // Never inside a UTF-8 sequence, of which up to three bytes can lie before the cut.
  const std::size_t earliest = cut - std::min<std::size_t>(cut, 3);
  while (cut > earliest && (static_cast<unsigned char>(text[cut]) & 0xc0U) == 0x80U)
    --cut;
  std::snprintf(text + cut, room + 1 - cut, "... (%zu bytes more)%s",
                length - cut - std::strlen(line_end), line_end);
}

}  // namespace

bool log_enabled(ACE_Log_Priority priority) noexcept {
  ACE_Log_Msg* const log = ACE_Log_Msg::instance();
  return log != nullptr && log->log_priority_enabled(priority) != 0;
}

bool log(const Source_Location& location, ACE_Log_Priority priority, const char* format,
         ...) noexcept {
  const int error = ACE_Log_Msg::last_error_adapter();
  ACE_Log_Msg* const log = ACE_Log_Msg::instance();
  // Both are null when ACE could not allocate them.
  if (log == nullptr || log->msg() == nullptr) return false;

  char text[max_record + 1];
  const std::size_t room = room_for_text(*log);
  std::va_list args;
  va_start(args, format);
  const int length = std::vsnprintf(text, room + 1, format, args);
  va_end(args);
  if (length > static_cast<int>(room)) {
    const bool whole_line = *format != '\0' && format[std::strlen(format) - 1] == '\n';
    note_missing(text, room, static_cast<std::size_t>(length), whole_line ? "\n" : "");
  }

  log->conditional_set(location.file, location.line, priority == LM_INFO ? 0 : -1, error);
  try {
    // What the C library cannot format is logged as it stands.
    log->log(priority, "%s", length < 0 ? format : text);
  } catch (...) {
    // A log backend of the process threw. An operation's result must not depend on its log line.
  }
  return false;
}

ACE_Stack_Trace call_stack() noexcept {
  return ACE_Stack_Trace(-2);  // with the caller, which ACE would leave out
}

}  // namespace zqpool::detail
