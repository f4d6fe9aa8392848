// Every operation again with its first, second, third ... allocation failing: std::bad_alloc comes
// out, the outputs are as they were, and nothing stays allocated. And how much is allocated at most
// while a long list is read.

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
// Bytes that this thread has allocated more than released, and the most of that.
thread_local long in_use = 0;
thread_local long most_in_use = 0;
// Allocations of this thread that still succeed; negative: all do.
thread_local long budget = -1;

void* allocate_or_null(std::size_t size) noexcept {
  if (budget == 0) return nullptr;
  if (budget > 0) --budget;
  void* const memory = std::malloc(size != 0 ? size : 1);
  if (memory != nullptr) {
    ++live;
    in_use += static_cast<long>(malloc_usable_size(memory));
    most_in_use = std::max(most_in_use, in_use);
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

// All forms: under a sanitizer the others do not come down to the first.
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

// Runs `work` until it succeeds, with one more allocation each time; returns how many failed.
long fail_at_each_allocation(const std::function<void()>& work,
                             const std::function<void()>& check_untouched) {
  for (long n = 0;; ++n) {
    const long before = live;
    bool failed = false;
    budget = n;
    try {
      work();
    } catch (const std::bad_alloc&) {
      failed = true;
    }
    budget = -1;
    if (!failed) return n;
    EXPECT_EQ(live, before) << "left behind by a failure at allocation " << n;
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
  // simdjson chooses its code for the processor once in a process, keeps what that allocates, and
  // cannot report a failure there.
  static void SetUpTestSuite() {
    Value value = untouched();
    ASSERT_TRUE(json_spirit::read(document(), value));
  }
};

TEST_F(Json_Allocation_Failure, read_leaves_the_value_as_it_was) {
  const Value expected = tree();
  // On a thread of its own the reader's working memory is allocated too, and grows again after
  // each failure; what the thread keeps is released when it ends.
  std::thread([&expected] {
    Value value = untouched();
    const auto work = [&value] { ASSERT_TRUE(json_spirit::read(document(), value)); };
    long failures = 0;
    // The working memory stays from the attempt that got so far, so count only what read() owns.
    for (;; ++failures) {
      budget = failures;
      bool failed = false;
      try {
        work();
      } catch (const std::bad_alloc&) {
        failed = true;
      }
      budget = -1;
      if (!failed) break;
      ASSERT_EQ(value, untouched());
    }
    EXPECT_GT(failures, 50);
    EXPECT_EQ(value, expected);
    // With the working memory there, every failure must leave nothing.
    value = untouched();
    EXPECT_GT(fail_at_each_allocation(work, [&value] { EXPECT_EQ(value, untouched()); }), 50);
    EXPECT_EQ(value, expected);
  }).join();
}

TEST_F(Json_Allocation_Failure, read_on_a_fresh_thread_leaves_nothing_behind) {
  for (long n = 0;; ++n) {
    bool failed = false;
    const long before = live;
    std::thread([n, &failed] {
      Value value = untouched();
      budget = n;
      try {
        EXPECT_TRUE(json_spirit::read(document(), value));
      } catch (const std::bad_alloc&) {
        failed = true;
      }
      budget = -1;
      if (!failed) return;
      EXPECT_EQ(value, untouched());
      // The same thread goes on as if nothing had been.
      EXPECT_TRUE(json_spirit::read(document(), value));
      EXPECT_EQ(value, tree());
    }).join();
    EXPECT_EQ(live, before) << "left behind by a failure at allocation " << n;
    if (!failed) break;
  }
}

TEST_F(Json_Allocation_Failure, read_of_a_growing_document_leaves_nothing_behind) {
  std::thread([] {
    Value value;
    ASSERT_TRUE(json_spirit::read("[]", value));
    const std::string larger = "[\"" + std::string(100000, 'x') + "\"]";
    for (long n = 0;; ++n) {
      value = untouched();
      budget = n;
      bool failed = false;
      try {
        ASSERT_TRUE(json_spirit::read(larger, value));
      } catch (const std::bad_alloc&) {
        failed = true;
      }
      budget = -1;
      if (!failed) {
        EXPECT_GT(n, 2);
        break;
      }
      ASSERT_EQ(value, untouched());
      // Back to a small parser, so that the next attempt has to grow again.
      ASSERT_TRUE(json_spirit::read("[1,{\"a\":2}]", value));
      ASSERT_EQ(json_spirit::write(value), "[1,{\"a\":2}]");
    }
  }).join();
}

TEST_F(Json_Allocation_Failure, read_above_the_kept_size_leaves_nothing_behind) {
  const std::string large =
      "[\"" + std::string(std::size_t{1} << 20, 'x') + "\",[1,\"" + std::string(100, 'y') + "\"]]";
  Value value = untouched();
  const long failures =
      fail_at_each_allocation([&] { ASSERT_TRUE(json_spirit::read(large, value)); },
                              [&value] { EXPECT_EQ(value, untouched()); });
  EXPECT_GT(failures, 5);
  EXPECT_EQ(json_spirit::write(value), large);
}

std::string long_list() {
  std::string text = "[";
  for (int i = 0; i < 10000; ++i) {
    text += (i != 0 ? ",{\"id\":" : "{\"id\":") + std::to_string(i);
    text += R"(,"name":"a text that is too long to be kept inside","tags":{"k":null}})";
  }
  return text + "]";
}

TEST_F(Json_Allocation_Failure, read_of_a_long_list_leaves_nothing_behind) {
  // Some failures in each part of it are enough: every one would take minutes.
  std::string text = long_list().substr(0, 100000);
  text.erase(text.rfind(",{\"id\"")) += "]";
  Value value;
  ASSERT_TRUE(json_spirit::read(text, value));  // this thread keeps its working memory
  value = untouched();
  long n = 0;
  for (bool failed = true; failed; n += n < 100 ? 1 : 97) {
    const long before = live;
    budget = n;
    try {
      failed = false;
      std::string given_up = text;
      std::string error;
      EXPECT_TRUE(json_spirit::read(std::move(given_up), value, error));
    } catch (const std::bad_alloc&) {
      failed = true;
    }
    budget = -1;
    if (!failed) break;
    EXPECT_EQ(live, before) << "left behind by a failure at allocation " << n;
    ASSERT_EQ(value, untouched());
  }
  EXPECT_GT(n, 3000);
  EXPECT_TRUE(json_spirit::write(value) == text);
}

struct Memory {
  long most = 0;  // the text, the tree and what it took to make it
  long tree = 0;
};

Memory memory_to_read(const std::string& text, bool give_up) {
  std::string error;
  Value value;
  std::string copy = text;
  EXPECT_TRUE(json_spirit::read(copy, value, error));  // this thread keeps its working memory
  value = Value();
  std::string().swap(copy);
  const long before = in_use;
  copy = text;
  most_in_use = in_use;
  EXPECT_TRUE(give_up ? json_spirit::read(std::move(copy), value, error)
                      : json_spirit::read(copy, value, error));
  Memory memory;
  memory.most = most_in_use - before;
  std::string().swap(copy);
  memory.tree = in_use - before;
  return memory;
}

TEST_F(Json_Allocation_Failure, a_long_list_takes_little_more_than_its_tree) {
  const std::string text = long_list();
  const Memory kept = memory_to_read(text, false);
  EXPECT_LT(kept.most, kept.tree + kept.tree / 20 + static_cast<long>(text.size()));
  const Memory given_up = memory_to_read(text, true);
  EXPECT_LT(given_up.most, given_up.tree + given_up.tree / 20);
}

TEST_F(Json_Allocation_Failure, a_text_given_up_takes_no_room_in_the_end) {
  std::string various = R"([{"first":1})";
  for (int i = 0; i < 10000; ++i)
    various += ",{\"id " + std::to_string(i) + "\":[{},{},{},{}]}";
  const std::string texts[] = {"{\"list\":" + long_list() + "}", various + "]"};
  for (const std::string& text : texts) {
    const long saved = memory_to_read(text, false).most - memory_to_read(text, true).most;
    EXPECT_GT(saved, static_cast<long>(text.size() / 10 * 9)) << text.substr(0, 20);
  }
}

TEST_F(Json_Allocation_Failure, a_list_may_begin_with_its_smallest_objects) {
  std::string text = R"([{"a":1})";
  while (text.size() < 40000)
    text += ",{}";
  text += R"(,{"a":")" + std::string(3000000, 'x') + "\"}]";
  EXPECT_LT(memory_to_read(text, false).most, static_cast<long>(25 * text.size()));
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

TEST_F(Json_Allocation_Failure, dump_leaves_nothing_behind) {
  Value value = tree();
  value.get_obj()["bad"] = std::string(500, '\xff');
  std::string text;
  const long failures = fail_at_each_allocation([&] { text = JSON_Dump(value, true).str(); },
                                                [&] { EXPECT_TRUE(text.empty()); });
  EXPECT_GE(failures, 3);
}

TEST_F(Json_Allocation_Failure, copy_leaves_nothing_behind_and_assignment_the_old_value) {
  const Value value = tree();
  EXPECT_GT(fail_at_each_allocation([&value] { static_cast<void>(Value(value)); }, [] {}), 50);
  Value assigned = untouched();
  EXPECT_GT(fail_at_each_allocation([&] { assigned = value; },
                                    [&assigned] { EXPECT_EQ(assigned, untouched()); }),
            50);
  EXPECT_EQ(assigned, value);
}

TEST_F(Json_Allocation_Failure, destruction_of_a_deep_value_needs_no_memory) {
  Value deep;
  for (int i = 0; i < 100000; ++i) {
    Array level;
    level.push_back(Object{{"k", Array{i}}});
    level.push_back(std::move(deep));
    deep = Value(std::move(level));
  }
  budget = 0;
  deep = Value();
  budget = -1;
  EXPECT_TRUE(deep.is_null());
}

}  // namespace
