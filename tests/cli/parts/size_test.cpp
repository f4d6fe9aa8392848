#include "cli/support/size.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <utility>

#include "cli/support/exit_code.h"

namespace zqpool::cli {
namespace {

TEST(Size, is_read_exactly) {
  const std::pair<const char*, std::uint64_t> table[] = {
      {"0", 0},
      {"4096", 4096},
      {"512B", 512},
      {"1KiB", 1024},
      {"10GiB", 10737418240},
      {"15EiB", 17293822569102704640U},
      {"16777215TiB", 18446742974197923840U},
      {"18446744073709551615", std::numeric_limits<std::uint64_t>::max()},
      {"18446744073709551615B", std::numeric_limits<std::uint64_t>::max()}};
  for (const auto& [text, bytes] : table)
    EXPECT_EQ(parse_size(text), bytes) << text;
}

TEST(Size, invalid_or_above_64_bits_is_refused) {
  for (const char* const bad :
       {"", "B", "GiB", "-1", "+1", " 1", "1 GiB", "1.5GiB", "1e3", "0x10", "1G", "1GB", "1gib",
        "1GiBs", "16EiB", "16777216TiB", "18446744073709551616", "99999999999999999999999KiB"}) {
    EXPECT_THROW(parse_size(bad), Usage_Error) << bad;
  }
}

TEST(Size, is_readable_and_rounded_down) {
  const std::pair<std::uint64_t, const char*> table[] = {
      {0, "0 B"},
      {1, "1 B"},
      {1023, "1023 B"},
      {1024, "1 KiB"},
      {1025, "1.00 KiB"},
      {1536, "1.50 KiB"},
      {1100, "1.07 KiB"},
      {1048575, "1023.99 KiB"},
      {1048576, "1 MiB"},
      {10737418240, "10 GiB"},
      {10737418241, "10.00 GiB"},
      {std::uint64_t{1} << 60, "1 EiB"},
      {std::numeric_limits<std::uint64_t>::max(), "15.99 EiB"}};
  for (const auto& [bytes, text] : table)
    EXPECT_EQ(readable_size(bytes), text);
}

}  // namespace
}  // namespace zqpool::cli
