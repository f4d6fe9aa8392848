#include "platform/net/backoff.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <set>
#include <thread>
#include <vector>

namespace {

using Iterator = Exponential_Backoff_Iterator;
using testing::ElementsAre;

constexpr unsigned most = std::numeric_limits<unsigned>::max();

std::vector<unsigned> delays(Iterator iterator, std::size_t count) {
  std::vector<unsigned> all;
  for (; all.size() < count && iterator != Iterator(); ++iterator)
    all.push_back(*iterator);
  return all;
}

TEST(Exponential_Backoff_Iterator, doubles_from_the_slot_up_to_the_cap) {
  EXPECT_THAT(delays({1, most, 60, false}, 9), ElementsAre(1, 2, 4, 8, 16, 32, 60, 60, 60));
  EXPECT_THAT(delays({3, most, 24, false}, 6), ElementsAre(3, 6, 12, 24, 24, 24));
  EXPECT_THAT(delays({1, most, 1, false}, 3), ElementsAre(1, 1, 1));
}

TEST(Exponential_Backoff_Iterator, a_slot_beyond_the_cap_is_the_cap) {
  EXPECT_THAT(delays({100, most, 60, false}, 3), ElementsAre(60, 60, 60));
  EXPECT_THAT(delays({100, most, 0, false}, 2), ElementsAre(0, 0));
}

TEST(Exponential_Backoff_Iterator, a_slot_of_0_never_waits) {
  EXPECT_THAT(delays({0, most, 60, false}, 3), ElementsAre(0, 0, 0));
  EXPECT_THAT(delays({0, most, 60, true}, 3), ElementsAre(0, 0, 0));
}

TEST(Exponential_Backoff_Iterator, ends_after_as_many_steps_as_allowed) {
  Iterator iterator(1, 3, 60, false);
  EXPECT_EQ(delays(iterator, 100).size(), 3U);
  EXPECT_FALSE(iterator.done());
  ++iterator;
  ++iterator;
  EXPECT_FALSE(iterator.done());
  EXPECT_EQ(*iterator, 4U);
  ++iterator;
  EXPECT_TRUE(iterator.done());
  EXPECT_EQ(iterator, Iterator());
  EXPECT_EQ(*iterator, 0U);
  EXPECT_EQ(iterator.cumulation(), 7U);
  ++iterator;
  EXPECT_TRUE(iterator.done());
  EXPECT_EQ(iterator.cumulation(), 7U);
}

TEST(Exponential_Backoff_Iterator, no_retries_are_the_end_at_once) {
  EXPECT_EQ(Iterator(1, 0, 60, true), Iterator());
  EXPECT_TRUE(Iterator().done());
  EXPECT_EQ(*Iterator(), 0U);
  EXPECT_EQ(Iterator().cumulation(), 0U);
}

TEST(Exponential_Backoff_Iterator, cumulation_is_the_sum_of_the_delays_stepped_past) {
  for (const bool jitter : {false, true}) {
    Iterator iterator(1, most, 60, jitter);
    unsigned sum = 0;
    for (int i = 0; i < 50; ++i) {
      EXPECT_EQ(iterator.cumulation(), sum);
      sum += *iterator;
      ++iterator;
    }
    EXPECT_EQ(iterator.cumulation(), sum);
  }
}

TEST(Exponential_Backoff_Iterator, next_steps_and_gives_the_new_delay) {
  Iterator iterator(1, 3, 60, false);
  EXPECT_EQ(iterator.next(), 2U);
  EXPECT_EQ(iterator.next(), 4U);
  EXPECT_EQ(iterator.cumulation(), 3U);
  EXPECT_EQ(iterator.next(), 0U);
  EXPECT_TRUE(iterator.done());
}

TEST(Exponential_Backoff_Iterator, reset_and_init_begin_anew) {
  Iterator iterator(1, 3, 60, false);
  while (!iterator.done())
    ++iterator;
  iterator.reset();
  EXPECT_THAT(delays(iterator, 10), ElementsAre(1, 2, 4));
  EXPECT_EQ(iterator.cumulation(), 0U);
  iterator.init(5, 2, 7, false);
  EXPECT_THAT(delays(iterator, 10), ElementsAre(5, 7));
}

TEST(Exponential_Backoff_Iterator, equality) {
  Iterator one(1, 5, 60, false);
  Iterator other = one;
  EXPECT_TRUE(one == other);
  EXPECT_FALSE(one != other);
  ++one;
  EXPECT_FALSE(one == other);
  EXPECT_TRUE(one != other);
  ++other;
  EXPECT_TRUE(one == other);
  EXPECT_FALSE(one == Iterator());
  EXPECT_FALSE(Iterator() == one);
  EXPECT_FALSE(Iterator(1, 5, 60, false) == Iterator(2, 5, 60, false));
  // All end iterators are equal.
  Iterator ended(7, 1, 9, true);
  ++ended;
  EXPECT_TRUE(ended == Iterator());
  EXPECT_TRUE(ended == Iterator(1, 0, 60, false));
}

TEST(Exponential_Backoff_Iterator, the_largest_numbers_do_not_wrap_round) {
  EXPECT_THAT(delays({1U << 31, most, most, false}, 4), ElementsAre(1U << 31, most, most, most));
  EXPECT_THAT(delays({most, most, most, false}, 2), ElementsAre(most, most));
  EXPECT_THAT(delays({1U << 30, most, (1U << 31) + 1, false}, 4),
              ElementsAre(1U << 30, 1U << 31, (1U << 31) + 1, (1U << 31) + 1));
  Iterator iterator(1U << 31, most, most, false);
  ++iterator;
  EXPECT_EQ(iterator.cumulation(), 1U << 31);
  ++iterator;
  EXPECT_EQ(iterator.cumulation(), most);
  ++iterator;
  EXPECT_EQ(iterator.cumulation(), most);
  for (const unsigned delay : delays({most, most, most, true}, 100))
    EXPECT_GE(delay, 1U);
}

// --- Jitter -------------------------------------------------------------------------------------

TEST(Exponential_Backoff_Jitter, stays_between_1_and_the_slot) {
  Iterator::seed_jitter(1);
  const std::vector<unsigned> slots = delays({1, most, 60, false}, 30);
  for (int run = 0; run < 200; ++run) {
    const std::vector<unsigned> drawn = delays({1, most, 60, true}, 30);
    ASSERT_EQ(drawn.size(), slots.size());
    for (std::size_t i = 0; i < drawn.size(); ++i) {
      EXPECT_GE(drawn[i], 1U);
      EXPECT_LE(drawn[i], slots[i]);
    }
  }
}

TEST(Exponential_Backoff_Jitter, is_repeatable_by_its_seed) {
  Iterator::seed_jitter(42);
  const auto first = delays({1, most, 60, true}, 100);
  Iterator::seed_jitter(42);
  EXPECT_EQ(delays({1, most, 60, true}, 100), first);
  Iterator::seed_jitter(43);
  EXPECT_NE(delays({1, most, 60, true}, 100), first);
}

TEST(Exponential_Backoff_Jitter, differs_from_run_to_run_and_from_thread_to_thread_without_a_seed) {
  std::vector<unsigned> here = delays({60, most, 60, true}, 40);
  std::vector<unsigned> there;
  std::thread([&there] { there = delays({60, most, 60, true}, 40); }).join();
  EXPECT_NE(here, there);
  EXPECT_NE(delays({60, most, 60, true}, 40), here);
}

TEST(Exponential_Backoff_Jitter, a_seed_holds_for_one_thread) {
  Iterator::seed_jitter(7);
  const auto alone = delays({60, most, 60, true}, 40);
  Iterator::seed_jitter(7);
  std::thread([] {
    Iterator::seed_jitter(8);
    delays({60, most, 60, true}, 40);
  }).join();
  EXPECT_EQ(delays({60, most, 60, true}, 40), alone);
}

TEST(Exponential_Backoff_Jitter, is_uniform) {
  constexpr unsigned slot = 60;
  constexpr std::size_t expected = 1000;
  for (const std::uint64_t seed : {1U, 2U, 3U}) {
    Iterator::seed_jitter(seed);
    std::vector<std::size_t> counts(slot + 1);
    for (const unsigned delay : delays({slot, most, slot, true}, slot * expected))
      ++counts[delay];
    EXPECT_EQ(counts[0], 0U);
    double chi_square = 0;
    for (unsigned delay = 1; delay <= slot; ++delay) {
      const double off = static_cast<double>(counts[delay]) - static_cast<double>(expected);
      chi_square += off * off / static_cast<double>(expected);
    }
    // 59 degrees of freedom: one run in a thousand is above 98.3, one in a thousand below 30.5.
    EXPECT_LT(chi_square, 98.3) << "seed " << seed;
    EXPECT_GT(chi_square, 30.5) << "seed " << seed << ": too even to be random";
  }
}

TEST(Exponential_Backoff_Jitter, every_slot_is_drawn_anew_at_its_step) {
  Iterator::seed_jitter(5);
  Iterator iterator(60, most, 60, true);
  const unsigned first = *iterator;
  EXPECT_EQ(*iterator, first) << "reading does not draw";
  std::vector<unsigned> all = delays(iterator, 100);
  EXPECT_GT(std::set<unsigned>(all.begin(), all.end()).size(), 30U);
}

}  // namespace
