#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace zqpool::cli {

/// Columns that `text` takes on a terminal. Bytes that are no UTF-8 count one each.
std::size_t display_width(std::string_view text);

/// `text` fit to be shown: control characters and bytes that are no UTF-8 become "\x1b" and the
/// like, so that nothing a service says moves the cursor or forges a line.
std::string printable(std::string_view text);

/// `text` as one field of tab-separated output: backslash, tab, newline, carriage return and NUL
/// become \\ \t \n \r \0; every other byte stays.
std::string tsv_field(std::string_view text);

}  // namespace zqpool::cli
