#include "cli/support/printable.h"

#include <gtest/gtest.h>

#include "cli/output/table.h"

namespace zqpool::cli {
namespace {

TEST(Text, width_counts_columns_not_bytes) {
  EXPECT_EQ(display_width(""), 0U);
  EXPECT_EQ(display_width("abc"), 3U);
  EXPECT_EQ(display_width("Zürich"), 6U);
  EXPECT_EQ(display_width("備份"), 4U);
  EXPECT_EQ(display_width("e\u0301"), 1U);  // a combining accent
  EXPECT_EQ(display_width("\xff\xfe"), 2U);
}

TEST(Text, controls_and_invalid_bytes_are_escaped) {
  EXPECT_EQ(printable("Zürich 備份"), "Zürich 備份");
  EXPECT_EQ(printable("\x1b[31m\a\n\r\t\x7f"), "\\x1b[31m\\x07\\x0a\\x0d\\x09\\x7f");
  EXPECT_EQ(printable(std::string_view("a\0b", 3)), "a\\x00b");
  EXPECT_EQ(printable("\xc2\x9b"), "\\xc2\\x9b");           // a control character of its own
  EXPECT_EQ(printable("a\xc3"), "a\\xc3");                  // cut off
  EXPECT_EQ(printable("\xed\xa0\x80"), "\\xed\\xa0\\x80");  // a surrogate
}

TEST(Text, tsv_field_escapes_what_would_break_a_line) {
  EXPECT_EQ(tsv_field(std::string_view("a\tb\nc\rd\\e\0f", 11)), "a\\tb\\nc\\rd\\\\e\\0f");
  EXPECT_EQ(tsv_field("Zürich \xff \x01"), "Zürich \xff \x01");
}

TEST(Table_Text, columns_are_aligned_by_width_without_trailing_blanks) {
  Table table({"A", "B"});
  table.add({"備份", "1"});
  table.add({"x", "22"});
  EXPECT_EQ(table.text(0), "A     B\n備份  1\nx     22\n");
  EXPECT_EQ(table.text(2), "  A     B\n  備份  1\n  x     22\n");
}

}  // namespace
}  // namespace zqpool::cli
