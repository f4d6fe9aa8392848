#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace zqpool::cli {

// Output to standard error. Thread-safe; each line is one write and made printable.

/// Suppresses notes and progress.
void set_quiet(bool quiet);

void say(std::string_view line);        ///< "zqpool: LINE"
void say_plain(std::string_view line);  ///< "LINE", for the library's log
void note(std::string_view line);       ///< say(), unless quiet

/// Redraws "DONE of TOTAL done" in place when standard error is a terminal, unless quiet.
void show_progress(std::size_t done, std::size_t total);
void clear_progress();

/// Writes all of `text`; false, with errno, on an error.
bool write_all(int descriptor, std::string_view text);

}  // namespace zqpool::cli
