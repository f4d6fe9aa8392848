#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace zqpool::cli {

/// The columns that `text` takes on a terminal. Each byte that is not UTF-8 counts as one.
std::size_t display_width(std::string_view text);

/// `text` with control characters and bytes that are not UTF-8 written as "\x1b", so that text of a
/// service cannot move the cursor or forge a line.
std::string printable(std::string_view text);

/// `text` as one field of tab-separated output: backslash, tab, newline, carriage return and NUL
/// become \\ \t \n \r \0; other bytes stay.
std::string tsv_field(std::string_view text);

}  // namespace zqpool::cli
