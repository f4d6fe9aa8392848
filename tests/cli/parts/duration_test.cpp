#include "cli/support/duration.h"

#include <gtest/gtest.h>

#include <utility>

#include "cli/support/exit_code.h"

namespace zqpool::cli {
namespace {

TEST(Duration, is_read_in_seconds_and_units) {
  const std::pair<const char*, long> table[] = {{"0", 0},
                                                {"90", 90000},
                                                {"90s", 90000},
                                                {"1m30s", 90000},
                                                {"250ms", 250},
                                                {"2h", 7200000},
                                                {"1h1m1s1ms", 3661001},
                                                {"1m500ms", 60500},
                                                {"007", 7000},
                                                {"2147483s", 2147483000},
                                                {"2147483647ms", 2147483647}};
  for (const auto& [text, milliseconds] : table) {
    EXPECT_EQ(parse_duration(text).count(), milliseconds) << text;
  }
}

TEST(Duration, anything_else_is_refused) {
  for (const char* const bad : {"", "s", "-1", "+1", "1x", "1 s", " 1", "1s1m", "1m1m", "1m30",
                                "1.5", "1e3", "0x10", "1M", "2147484", "2147483648ms",
                                "9223372036854775807h", "99999999999999999999", "1h2147483647ms"}) {
    EXPECT_THROW(parse_duration(bad), Usage_Error) << bad;
  }
}

}  // namespace
}  // namespace zqpool::cli
