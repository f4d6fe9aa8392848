#include "utils/support/retry.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

#include "platform/json/json_spirit.h"
#include "tests/support/guards.h"
#include "tests/support/log_capture.h"

namespace zqpool::test {
namespace {

using zqpool::detail::Attempt;
using zqpool::detail::retry;
using zqpool::detail::Source_Location;
using Seconds = std::vector<unsigned>;

const Source_Location location{"utils/pool/caller.cpp", 17};

class Retry : public testing::Test {
 public:
  /// Fails `failures` times, then succeeds.
  auto failing(int failures) {
    return [this, failures] { return ++attempts > failures ? Attempt::done : Attempt::again; };
  }
  /// Never succeeds.
  auto failing() {
    return [this] {
      ++attempts;
      return Attempt::again;
    };
  }

  Seconds slept() const {
    Seconds seconds;
    for (const std::chrono::milliseconds pause : sleeps.pauses()) {
      EXPECT_EQ(pause.count() % 1000, 0) << "whole seconds";
      seconds.push_back(static_cast<unsigned>(pause.count() / 1000));
    }
    return seconds;
  }

  /// Checks that each pause was announced, in order and from the caller's location.
  void check_notices(const Seconds& pauses) const {
    const std::vector<Log_Line> lines = log.lines();
    ASSERT_EQ(lines.size(), pauses.size());
    for (std::size_t i = 0; i < lines.size(); ++i) {
      EXPECT_EQ(lines[i].priority, "LM_INFO");
      EXPECT_EQ(lines[i].text, "Retry(" + std::to_string(i + 1) + ") utils/pool/caller.cpp:17 at " +
                                   std::to_string(pauses[i]) + " second(s) later.\n");
      EXPECT_EQ(lines[i].file, "utils/pool/caller.cpp");
      EXPECT_EQ(lines[i].line, 17);
    }
  }

  static Exponential_Backoff_Iterator steady(unsigned max_retries) {
    return Exponential_Backoff_Iterator(1, max_retries, 60, false);
  }

  int attempts = 0;
  Sleep_Recorder sleeps;
  Log_Capture log;
};

TEST_F(Retry, first_attempt_that_is_done_ends_the_loop) {
  EXPECT_TRUE(retry(location, -1, failing(0)));
  EXPECT_EQ(attempts, 1);
  check_notices({});
  EXPECT_EQ(slept(), Seconds());
}

TEST_F(Retry, first_attempt_that_is_done_needs_no_time) {
  EXPECT_TRUE(retry(location, 0, failing(0)));
  EXPECT_EQ(attempts, 1);
}

TEST_F(Retry, timeout_0_makes_one_attempt_without_sleeping) {
  EXPECT_FALSE(retry(location, 0, failing()));
  EXPECT_EQ(attempts, 1);
  EXPECT_EQ(slept(), Seconds());
  check_notices({});
}

TEST_F(Retry, timeout_minus_1_retries_until_the_iterator_reaches_its_end) {
  EXPECT_FALSE(retry(location, -1, failing(), steady(9)));
  EXPECT_EQ(attempts, 10);
  const Seconds wanted{1, 2, 4, 8, 16, 32, 60, 60, 60};
  EXPECT_EQ(slept(), wanted);
  check_notices(wanted);
}

TEST_F(Retry, iterator_at_its_end_makes_one_attempt) {
  EXPECT_FALSE(retry(location, -1, failing(), Exponential_Backoff_Iterator()));
  EXPECT_EQ(attempts, 1);
  EXPECT_FALSE(retry(location, 100, failing(), steady(0)));
  EXPECT_EQ(attempts, 2);
  EXPECT_EQ(slept(), Seconds());
}

TEST_F(Retry, success_after_failures) {
  EXPECT_TRUE(retry(location, -1, failing(3), steady(9)));
  EXPECT_EQ(attempts, 4);
  const Seconds wanted{1, 2, 4};
  EXPECT_EQ(slept(), wanted);
  check_notices(wanted);
}

TEST_F(Retry, goes_on_while_less_than_the_timeout_has_been_slept) {
  // Slept before each decision: 0, 1, 3, 7 seconds.
  const std::vector<std::pair<int, Seconds>> cases = {
      {1, {1}}, {2, {1, 2}}, {3, {1, 2}}, {4, {1, 2, 4}}, {7, {1, 2, 4}}, {8, {1, 2, 4, 8}}};
  for (const auto& [timeout, wanted] : cases) {
    const Sleep_Recorder own;
    EXPECT_FALSE(retry(location, timeout, failing(), steady(100)));
    EXPECT_EQ(slept(), wanted) << "timeout " << timeout;
  }
}

TEST_F(Retry, success_on_the_last_attempt_within_the_timeout) {
  EXPECT_TRUE(retry(location, 2, failing(2), steady(100)));
  EXPECT_EQ(attempts, 3);
}

TEST_F(Retry, timeout_is_compared_as_an_unsigned_number) {
  EXPECT_FALSE(retry(location, -2, failing(), steady(12)));
  EXPECT_EQ(attempts, 13) << "only the iterator's end stops it";
}

TEST_F(Retry, time_slept_passes_the_timeout_by_at_most_one_delay) {
  for (unsigned seed = 0; seed < 200; ++seed) {
    const unsigned timeout = seed % 50 + 1;
    Exponential_Backoff_Iterator::seed_jitter(seed);
    const Sleep_Recorder own;
    EXPECT_FALSE(retry(location, static_cast<int>(timeout), failing()));
    const Seconds seconds = slept();
    ASSERT_FALSE(seconds.empty());
    unsigned before_last = 0;
    for (std::size_t i = 0; i + 1 < seconds.size(); ++i)
      before_last += seconds[i];
    EXPECT_LT(before_last, timeout);
    EXPECT_GE(before_last + seconds.back(), timeout);
  }
}

TEST_F(Retry, delays_are_random_within_slots_that_double_from_one_second_to_sixty) {
  Exponential_Backoff_Iterator::seed_jitter(4711);
  EXPECT_TRUE(retry(location, -1, failing(40)));
  const Seconds seconds = slept();
  ASSERT_EQ(seconds.size(), 40U);
  check_notices(seconds);

  Exponential_Backoff_Iterator::seed_jitter(4711);
  Exponential_Backoff_Iterator same(1, 4294967295U, 60, true);
  unsigned slot = 1;
  for (const unsigned delay : seconds) {
    EXPECT_EQ(delay, *same);
    EXPECT_GE(delay, 1U);
    EXPECT_LE(delay, slot);
    slot = std::min(slot * 2, 60U);
    ++same;
  }
  EXPECT_GT(*std::max_element(seconds.begin(), seconds.end()), 30U);
  EXPECT_NE(std::vector<unsigned>(seconds.end() - 10, seconds.end()), Seconds(10, seconds.back()));
}

TEST_F(Retry, without_a_limit_it_goes_on_for_long) {
  EXPECT_TRUE(retry(location, -1, failing(10000)));
  EXPECT_EQ(attempts, 10001);
}

// The three conditions under which the library's operations leave the loop.

TEST_F(Retry, condition_of_a_call_that_is_true) {
  const std::vector<bool> calls{false, false, true};
  EXPECT_TRUE(retry(
      location, -1,
      [&] { return calls[static_cast<std::size_t>(attempts++)] ? Attempt::done : Attempt::again; },
      steady(9)));
  EXPECT_EQ(attempts, 3);
}

TEST_F(Retry, condition_of_a_call_that_is_true_and_an_answer_that_is_an_object) {
  const std::vector<std::pair<bool, json_spirit::Value>> calls = {
      {true, json_spirit::Value()},
      {true, json_spirit::Value(Array())},
      {false, json_spirit::Value(Object())},
      {true, json_spirit::Value(Object())}};
  json_spirit::Value answer;
  EXPECT_TRUE(retry(
      location, -1,
      [&] {
        const auto& [ok, brought] = calls[static_cast<std::size_t>(attempts++)];
        answer = brought;
        return ok && answer.type() == json_spirit::obj_type ? Attempt::done : Attempt::again;
      },
      steady(9)));
  EXPECT_EQ(attempts, 4);
}

TEST_F(Retry, condition_of_an_attempt_that_ends_the_loop_at_once) {
  // As for a service whose error code rules a retry out.
  const std::vector<Attempt> calls{Attempt::again, Attempt::stop, Attempt::done};
  EXPECT_FALSE(retry(
      location, -1, [&] { return calls[static_cast<std::size_t>(attempts++)]; }, steady(9)));
  EXPECT_EQ(attempts, 2);
  EXPECT_EQ(slept(), Seconds{1});
}

TEST_F(Retry, exception_of_an_attempt_leaves_the_loop) {
  EXPECT_THROW(retry(location, -1, []() -> Attempt { throw std::bad_alloc(); }), std::bad_alloc);
  EXPECT_EQ(slept(), Seconds());
}

}  // namespace
}  // namespace zqpool::test
