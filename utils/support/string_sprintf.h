#pragma once

#include <sys/types.h>

#include <cstdarg>
#include <string>

#include "utils/support/export.h"

// printf-style formatting into strings. No argument may point into the string that is written.
// Safe on any number of threads, on distinct strings. Besides std::bad_alloc (and
// std::length_error beyond the largest string) nothing is thrown; the string then has what it had
// before in append mode, and is empty otherwise.

/// The formatted text; empty when the C library cannot format it.
[[gnu::format(printf, 1, 2)]] ZQPOOL_EXPORT std::string string_sprintf(const char* format, ...);

/// Replaces the contents of `out`. Returns the new length; negative, with `out` empty, when the C
/// library cannot format the text.
[[gnu::format(printf, 2, 3)]] ZQPOOL_EXPORT ssize_t string_sprintf(std::string& out,
                                                                   const char* format, ...);

/// Appends to `out`. Returns the new length of all of `out`; negative, with `out` as it was, when
/// the C library cannot format the text.
[[gnu::format(printf, 2, 3)]] ZQPOOL_EXPORT ssize_t string_sprintf_append(std::string& out,
                                                                          const char* format, ...);

/// The worker behind the three. `args` is left usable for its owner's va_end().
[[gnu::format(printf, 2, 0)]] ZQPOOL_EXPORT ssize_t string_vsprintf(std::string& out,
                                                                    const char* format,
                                                                    std::va_list args, bool append);
