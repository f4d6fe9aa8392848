#include "platform/net/sleep.h"

#include <gtest/gtest.h>

#include "tests/support/signal_storm.h"

namespace zqpool {
namespace {

using namespace std::chrono_literals;

std::chrono::steady_clock::duration time_of(std::chrono::milliseconds pause) {
  const auto start = std::chrono::steady_clock::now();
  detail::sleep_between_attempts(pause);
  return std::chrono::steady_clock::now() - start;
}

TEST(Sleep_Between_Attempts, lasts_its_whole_time_under_a_storm_of_signals) {
  const test::Signal_Storm storm;
  // On a busy machine signals that come while the thread waits for its turn become one.
  for (int i = 0; i < 100 && storm.count() < 5; ++i)
    EXPECT_GE(time_of(40ms), 40ms);
  EXPECT_GE(storm.count(), 5) << "no storm, no test";
}

TEST(Sleep_Between_Attempts, nothing_takes_no_time) {
  EXPECT_LT(time_of(0ms), 50ms);
  EXPECT_LT(time_of(-1000ms), 50ms);
}

std::chrono::milliseconds asked{0};

TEST(Sleep_Between_Attempts, can_be_replaced_and_put_back) {
  const detail::Sleep_Function before = detail::replace_sleep([](auto pause) { asked = pause; });
  EXPECT_NE(before, nullptr);
  EXPECT_LT(time_of(1h), 10s);
  EXPECT_EQ(asked, 1h);
  detail::replace_sleep(nullptr);
  EXPECT_GE(time_of(2ms), 2ms);
  EXPECT_EQ(asked, 1h);
  EXPECT_EQ(detail::replace_sleep(before), before) << "null stands for the real one";
}

}  // namespace
}  // namespace zqpool
