#pragma once

#include <sys/types.h>

#include <cstdarg>
#include <string>

#include "utils/support/export.h"

// Formatting into strings as by printf(). No argument may point into the string that is written.
// Throws only std::bad_alloc and std::length_error; the string is then unchanged when appending and
// empty otherwise.

/// Returns the formatted text; empty if the C library cannot format it.
[[gnu::format(printf, 1, 2)]] ZQPOOL_EXPORT std::string string_sprintf(const char* format, ...);

/// Replaces the contents of `out`. Returns the new length; negative, with `out` empty, if the C
/// library cannot format the text.
[[gnu::format(printf, 2, 3)]] ZQPOOL_EXPORT ssize_t string_sprintf(std::string& out,
                                                                   const char* format, ...);

/// Appends to `out`. Returns the new length of all of `out`; negative, with `out` unchanged, if the
/// C library cannot format the text.
[[gnu::format(printf, 2, 3)]] ZQPOOL_EXPORT ssize_t string_sprintf_append(std::string& out,
                                                                          const char* format, ...);

/// Replaces the contents of `out`, or appends to it. The caller must still call va_end() on `args`.
[[gnu::format(printf, 2, 0)]] ZQPOOL_EXPORT ssize_t string_vsprintf(std::string& out,
                                                                    const char* format,
                                                                    std::va_list args, bool append);
