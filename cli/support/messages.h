#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace zqpool::cli {

/// What goes to standard error. All of it thread-safe; each line is one write, and foreign text in
/// it is made printable.

/// Leaves out everything but errors and what was asked for (traces, the library's log).
void be_quiet(bool quiet);

void say(std::string_view line);        ///< "zqpool: LINE"
void say_plain(std::string_view line);  ///< "LINE", for the library's log
void note(std::string_view line);       ///< say(), unless quiet

/// Redraws "DONE of TOTAL done" in place when standard error is a terminal and not quiet.
void show_progress(std::size_t done, std::size_t total);
void clear_progress();

/// Writes all of `text`; false, with errno, when the descriptor does not take it.
bool write_all(int descriptor, std::string_view text);

}  // namespace zqpool::cli
