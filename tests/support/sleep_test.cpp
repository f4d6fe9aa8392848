#include <gtest/gtest.h>

#include "platform/net/sleep.h"
#include "tests/support/signal_storm.h"
#include "utils/support/sleep.h"

namespace zqpool::test {
namespace {

using namespace std::chrono_literals;

/// A sleep that can be replaced: the client's of the platform, or the operations'.
struct Replaceable_Sleep {
  const char* name;
  void (*pause)(std::chrono::milliseconds);
  detail::Retry_Sleep (*replace)(detail::Retry_Sleep) noexcept;
};

class Replaceable_Sleep_Test : public testing::TestWithParam<Replaceable_Sleep> {
 protected:
  static std::chrono::steady_clock::duration time_of(std::chrono::milliseconds time) {
    const auto start = std::chrono::steady_clock::now();
    GetParam().pause(time);
    return std::chrono::steady_clock::now() - start;
  }
};

INSTANTIATE_TEST_SUITE_P(
    Both, Replaceable_Sleep_Test,
    testing::Values(
        Replaceable_Sleep{"client", &detail::sleep_between_attempts, &detail::replace_sleep},
        Replaceable_Sleep{"operations", &detail::sleep_before_retry, &detail::replace_retry_sleep}),
    [](const auto& tested) { return tested.param.name; });

TEST_P(Replaceable_Sleep_Test, lasts_its_whole_time_under_a_storm_of_signals) {
  const Signal_Storm storm;
  // On a busy machine signals that come while the thread waits for its turn become one.
  for (int i = 0; i < 100 && storm.count() < 5; ++i)
    EXPECT_GE(time_of(40ms), 40ms);
  EXPECT_GE(storm.count(), 5) << "no storm, no test";
}

TEST_P(Replaceable_Sleep_Test, nothing_takes_no_time) {
  EXPECT_LT(time_of(0ms), 10s);
  EXPECT_LT(time_of(-1000ms), 10s);
}

std::chrono::milliseconds asked{0};

TEST_P(Replaceable_Sleep_Test, can_be_replaced_and_put_back) {
  asked = 0ms;
  const detail::Retry_Sleep before = GetParam().replace([](auto pause) { asked = pause; });
  EXPECT_NE(before, nullptr);
  EXPECT_LT(time_of(1h), 10s);
  EXPECT_EQ(asked, 1h);
  GetParam().replace(nullptr);
  EXPECT_GE(time_of(2ms), 2ms);
  EXPECT_EQ(asked, 1h);
  EXPECT_EQ(GetParam().replace(before), before) << "null stands for the real one";
}

}  // namespace
}  // namespace zqpool::test
