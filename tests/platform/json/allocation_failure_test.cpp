// Repeats each operation with its first, second, third ... allocation failing: it must throw
// std::bad_alloc, leave its outputs unchanged and leak nothing.

#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <functional>
#include <new>
#include <string>
#include <thread>
#include <utility>

#include "platform/json/json_dump.h"
#include "platform/json/json_spirit.h"

namespace {

std::atomic<long> live{0};
// Bytes that this thread has allocated and not released, now and at most.
thread_local long in_use = 0;
thread_local long max_in_use = 0;
// Allocations of this thread that will succeed; negative for all.
thread_local long budget = -1;

void* allocate_or_null(std::size_t size) noexcept {
  if (budget == 0) return nullptr;
  if (budget > 0) --budget;
  void* const memory = std::malloc(size != 0 ? size : 1);
  if (memory != nullptr) {
    ++live;
    in_use += static_cast<long>(malloc_usable_size(memory));
    max_in_use = std::max(max_in_use, in_use);
  }
  return memory;
}

void* allocate(std::size_t size) {
  void* const memory = allocate_or_null(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

void release(void* memory) noexcept {
  if (memory != nullptr) {
    --live;
    in_use -= static_cast<long>(malloc_usable_size(memory));
  }
  std::free(memory);
}

}  // namespace

// All forms, because under a sanitizer the others do not call the first.
void* operator new(std::size_t size) {
  return allocate(size);
}
void* operator new[](std::size_t size) {
  return allocate(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return allocate_or_null(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return allocate_or_null(size);
}
void operator delete(void* memory) noexcept {
  release(memory);
}
void operator delete[](void* memory) noexcept {
  release(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  release(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
  release(memory);
}

namespace {

using json_spirit::Value;

const Value& untouched() {
  static const Value value = "as it was, in a text of some length";
  return value;
}

// Whether `work` fails when only `allocations` succeed.
template <typename Work>
bool fails_after(long allocations, Work work) {
  budget = allocations;
  bool failed = false;
  try {
    work();
  } catch (const std::bad_alloc&) {
    failed = true;
  }
  budget = -1;
  return failed;
}

// Runs `work` with one more allocation each time until it succeeds; returns how many runs failed.
long fail_at_each_allocation(const std::function<void()>& work,
                             const std::function<void()>& check_untouched) {
  for (long n = 0;; ++n) {
    const long before = live;
    if (!fails_after(n, work)) return n;
    EXPECT_EQ(live, before) << "leaked by a failure at allocation " << n;
    check_untouched();
  }
}

const std::string& document() {
  static const std::string text = [] {
    std::string made =
        R"({"object":{"b":"a text too long for the small buffer","a":[1,2.5,null]},)"
        R"("list":[{"k":"another text that needs memory"},[],[[true]],"x"],)"
        R"("twice":"the first text, which is replaced","twice":["the second one!!"])";
    for (int i = 0; i < 20; ++i)
      made += ",\"a key that needs memory " + std::to_string(i) + "\":" + "[{}]";
    return made + "}";
  }();
  return text;
}

Value tree() {
  Value value;
  EXPECT_TRUE(json_spirit::read(document(), value));
  return value;
}

class Json_Allocation_Failure : public testing::Test {
 protected:
  // simdjson selects its code for the processor once per process; it cannot report a failure there.
  static void SetUpTestSuite() {
    Value value = untouched();
    ASSERT_TRUE(json_spirit::read(document(), value));
  }
};

TEST_F(Json_Allocation_Failure, read_leaves_the_value_as_it_was) {
  const Value expected = tree();
  // A new thread also has to allocate the reader's working memory.
  std::thread([&expected] {
    Value value = untouched();
    const auto work = [&value] { ASSERT_TRUE(json_spirit::read(document(), value)); };
    // The first attempt that allocates all working memory keeps it, so leaks cannot be counted yet.
    long failures = 0;
    for (; fails_after(failures, work); ++failures)
      ASSERT_EQ(value, untouched());
    EXPECT_GT(failures, 50);
    EXPECT_EQ(value, expected);
    // Now that the working memory is there, no failure may leak.
    value = untouched();
    EXPECT_GT(fail_at_each_allocation(work, [&value] { EXPECT_EQ(value, untouched()); }), 50);
    EXPECT_EQ(value, expected);
  }).join();
}

TEST_F(Json_Allocation_Failure, read_on_a_fresh_thread_leaks_nothing) {
  for (long n = 0;; ++n) {
    bool failed = false;
    const long before = live;
    std::thread([n, &failed] {
      Value value = untouched();
      failed = fails_after(n, [&value] { EXPECT_TRUE(json_spirit::read(document(), value)); });
      if (!failed) return;
      EXPECT_EQ(value, untouched());
      // The thread can go on reading.
      EXPECT_TRUE(json_spirit::read(document(), value));
      EXPECT_EQ(value, tree());
    }).join();
    EXPECT_EQ(live, before) << "leaked by a failure at allocation " << n;
    if (!failed) break;
  }
}

TEST_F(Json_Allocation_Failure, read_of_a_growing_document_leaves_the_value_as_it_was) {
  std::thread([] {
    Value value;
    ASSERT_TRUE(json_spirit::read("[]", value));
    const std::string larger = "[\"" + std::string(100000, 'x') + "\"]";
    const auto work = [&] { ASSERT_TRUE(json_spirit::read(larger, value)); };
    long failures = 0;
    for (value = untouched(); fails_after(failures, work); ++failures) {
      ASSERT_EQ(value, untouched());
      // Replaces the parser with a small one, so that the next attempt has to grow it again.
      ASSERT_TRUE(json_spirit::read("[1,{\"a\":2}]", value));
      ASSERT_EQ(json_spirit::write(value), "[1,{\"a\":2}]");
      value = untouched();
    }
    EXPECT_GT(failures, 2);
  }).join();
}

TEST_F(Json_Allocation_Failure, read_above_the_kept_size_leaks_nothing) {
  const std::string large =
      "[\"" + std::string(std::size_t{1} << 20, 'x') + "\",[1,\"" + std::string(100, 'y') + "\"]]";
  Value value = untouched();
  const long failures =
      fail_at_each_allocation([&] { ASSERT_TRUE(json_spirit::read(large, value)); },
                              [&value] { EXPECT_EQ(value, untouched()); });
  EXPECT_GT(failures, 5);
  EXPECT_EQ(json_spirit::write(value), large);
}

long peak_memory(const std::function<void()>& work) {
  const long before = in_use;
  max_in_use = before;
  work();
  return max_in_use - before;
}

TEST_F(Json_Allocation_Failure, reading_a_text_that_is_moved_frees_it_before_the_tree_is_built) {
  std::string kept = "[[]" + std::string(10000, ' ');
  for (int i = 0; i < 10000; ++i)
    kept += ",{\"id\":0}";
  kept += "]";
  std::string moved = kept;
  moved.reserve(moved.size() + json_spirit::read_padding);
  Value value;
  std::string error;
  EXPECT_TRUE(json_spirit::read(kept, value, error));  // this thread keeps its working memory
  value = Value();
  const long peak = peak_memory([&] { EXPECT_TRUE(json_spirit::read(kept, value, error)); });
  value = Value();
  EXPECT_LT(peak_memory([&] { EXPECT_TRUE(json_spirit::read(std::move(moved), value, error)); }),
            peak - static_cast<long>(kept.size() / 10 * 9));
}

TEST_F(Json_Allocation_Failure, write_leaves_the_text_as_it_was) {
  const Value value = tree();
  std::string out;
  const std::string before = "a text that is there already and long";
  out = before;
  const long failures = fail_at_each_allocation([&] { json_spirit::write_to(value, out); },
                                                [&] { EXPECT_EQ(out, before); });
  EXPECT_GE(failures, 2);
  EXPECT_EQ(out, before + json_spirit::write(value));
  std::string text;
  EXPECT_GE(fail_at_each_allocation([&] { text = json_spirit::write(value); },
                                    [&] { EXPECT_TRUE(text.empty()); }),
            2);
}

TEST_F(Json_Allocation_Failure, dump_leaks_nothing) {
  Value value = tree();
  value.get_obj()["bad"] = std::string(500, '\xff');
  std::string text;
  const long failures = fail_at_each_allocation([&] { text = JSON_Dump(value, true).str(); },
                                                [&] { EXPECT_TRUE(text.empty()); });
  EXPECT_GE(failures, 3);
}

TEST_F(Json_Allocation_Failure, copy_leaks_nothing_and_assignment_keeps_the_old_value) {
  const Value value = tree();
  EXPECT_GT(fail_at_each_allocation([&value] { static_cast<void>(Value(value)); }, [] {}), 50);
  Value assigned = untouched();
  EXPECT_GT(fail_at_each_allocation([&] { assigned = value; },
                                    [&assigned] { EXPECT_EQ(assigned, untouched()); }),
            50);
  EXPECT_EQ(assigned, value);
}

}  // namespace
