#pragma once

#include <ace/Log_Priority.h>
#include <ace/OS_Errno.h>
#include <ace/Stack_Trace.h>

// The library's log lines.
//
//   return ok || ZQ_ERROR("Failed to get lun '%s' info.\n", lun_id.c_str());
//
// ZQ_ERROR and its sisters write one line, formatted as by printf(), and yield false. ZQ_LOG_AT
// takes the source location to record, for code that logs on behalf of its caller.
//
// The arguments are evaluated only when the priority is on, so an expensive one (a JSON_Dump) costs
// nothing when it is off. errno is preserved, nothing is thrown. A null %s prints "(null)". A text
// that does not fit into ACE's record is cut at the end of a character and ends in
// "... (N bytes more)", and in a newline if `format` does.

#define ZQ_HERE (::zqpool::detail::Source_Location{__FILE__, __LINE__})

#define ZQ_EMERGENCY(...) ZQ_LOG_AT(ZQ_HERE, LM_EMERGENCY, __VA_ARGS__)
#define ZQ_ERROR(...) ZQ_LOG_AT(ZQ_HERE, LM_ERROR, __VA_ARGS__)
#define ZQ_WARNING(...) ZQ_LOG_AT(ZQ_HERE, LM_WARNING, __VA_ARGS__)
#define ZQ_INFO(...) ZQ_LOG_AT(ZQ_HERE, LM_INFO, __VA_ARGS__)

#define ZQ_LOG_AT(location, priority, ...)                            \
  (ACE_Errno_Guard(errno), ::zqpool::detail::log_enabled(priority) && \
                               ::zqpool::detail::log(location, priority, __VA_ARGS__))

namespace zqpool::detail {

struct Source_Location {
  const char* file;
  int line;
};

bool log_enabled(ACE_Log_Priority priority) noexcept;

/// Writes one line. Returns false.
[[gnu::format(printf, 3, 4)]] bool log(const Source_Location& location, ACE_Log_Priority priority,
                                       const char* format, ...) noexcept;

/// The call stack: `call_stack().c_str()`.
ACE_Stack_Trace call_stack() noexcept;

}  // namespace zqpool::detail
