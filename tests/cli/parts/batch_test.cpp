#include "cli/command/batch.h"

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <numeric>
#include <thread>

namespace zqpool::cli {
namespace {

TEST(Batch, keeps_the_order_whatever_ends_first) {
  constexpr std::size_t count = 500;
  for (const std::size_t jobs : {1U, 2U, 8U, 64U}) {
    std::vector<std::size_t> seen;
    std::atomic<std::size_t> worked{0};
    const std::thread::id here = std::this_thread::get_id();
    std::size_t last_progress = 0;
    run_batch(
        count, jobs, [&](std::size_t) { ++worked; },
        [&](std::size_t i) {
          EXPECT_EQ(std::this_thread::get_id(), here);
          seen.push_back(i);
        },
        [&](std::size_t done) {
          EXPECT_GE(done, last_progress);
          last_progress = done;
        });
    std::vector<std::size_t> wanted(count);
    std::iota(wanted.begin(), wanted.end(), std::size_t{0});
    EXPECT_EQ(seen, wanted);
    EXPECT_EQ(worked, count);
    EXPECT_EQ(last_progress, count);
  }
}

TEST(Batch, works_on_as_many_as_asked_and_no_more) {
  constexpr std::size_t jobs = 4;
  std::mutex mutex;
  std::condition_variable changed;
  std::size_t inside = 0;
  std::size_t most = 0;
  run_batch(
      16, jobs,
      [&](std::size_t) {
        std::unique_lock<std::mutex> lock(mutex);
        most = std::max(most, ++inside);
        changed.notify_all();
        // Each waits until all four are at work at once.
        changed.wait(lock, [&] { return most >= jobs; });
        --inside;
      },
      [](std::size_t) {}, [](std::size_t) {});
  EXPECT_EQ(most, jobs);
}

TEST(Batch, no_objects_need_no_thread) {
  run_batch(
      0, 4, [](std::size_t) { ADD_FAILURE(); }, [](std::size_t) { ADD_FAILURE(); },
      [](std::size_t) { ADD_FAILURE(); });
}

}  // namespace
}  // namespace zqpool::cli
