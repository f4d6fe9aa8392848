#include <ace/OS_NS_stdio.h>
#include <ace/OS_NS_stdlib.h>
#include <gtest/gtest.h>

#include <cstdarg>
#include <cstddef>
#include <string>

namespace {
bool memory_is_exhausted = false;
}

// The class, with a realloc() that can be made to fail. No other source of this program uses it.
namespace ACE_OS {
inline void* realloc_unless_exhausted(void* block, std::size_t size) {
  return memory_is_exhausted ? nullptr : realloc(block, size);
}
}  // namespace ACE_OS
#define realloc realloc_unless_exhausted
#include "utils/support/snprintf_t.h"
#undef realloc

namespace zqpool::test {
namespace {

/// The members, for looking at.
template <std::size_t N>
class Probe : public snprintf_t<N> {
 public:
  [[gnu::format(printf, 2, 3)]] explicit Probe(const char* format, ...) : snprintf_t<N>("%s", "") {
    std::va_list args;
    va_start(args, format);
    result = this->vset(format, args);
    va_end(args);
  }
  [[gnu::format(printf, 2, 3)]] int set(const char* format, ...) {
    std::va_list args;
    va_start(args, format);
    const int length = this->vset(format, args);
    va_end(args);
    return length;
  }

  int length() const { return this->len_; }
  const char* heap() const { return this->ptr_; }
  std::uint64_t capacity() const { return this->size_; }
  const char* inline_text() const { return this->buf_; }
  bool members_are_in_order() const {
    const auto at = [this](const void* member) {
      return static_cast<const char*>(member) - reinterpret_cast<const char*>(this);
    };
    return at(this->buf_) == 0 && at(&this->len_) >= static_cast<std::ptrdiff_t>(N) &&
           at(&this->ptr_) > at(&this->len_) && at(&this->size_) > at(&this->ptr_) &&
           sizeof this->len_ == 4 && sizeof this->size_ == 8;
  }

  int result = 0;
};

constexpr std::size_t N = 16;

std::string text_of(std::size_t length) {
  std::string text;
  for (std::size_t i = 0; i < length; ++i)
    text += static_cast<char>('a' + i % 26);
  return text;
}

// No character has this code, so no multibyte locale can write it.
const wchar_t unwritable[] = {static_cast<wchar_t>(0x7fffffff), 0};

TEST(Snprintf_T, members_are_buf_len_ptr_size_in_that_order) {
  EXPECT_TRUE(Probe<N>("x").members_are_in_order());
  EXPECT_TRUE(Probe<100>("x").members_are_in_order());
}

TEST(Snprintf_T, constructor_formats_at_once) {
  EXPECT_STREQ(snprintf_t<100>("pool_id=%s&lun_id=%s&n=%d", "p", "l", 7).c_str(),
               "pool_id=p&lun_id=l&n=7");
}

TEST(Snprintf_T, empty_text) {
  const Probe<N> text("%s", "");
  EXPECT_STREQ(text.c_str(), "");
  EXPECT_EQ(text.result, 0);
  EXPECT_EQ(text.heap(), nullptr);
  EXPECT_EQ(text.capacity(), 0U);
}

TEST(Snprintf_T, text_of_n_minus_1_characters_stays_in_buf) {
  const std::string wanted = text_of(N - 1);
  const Probe<N> text("%s", wanted.c_str());
  EXPECT_EQ(text.c_str(), wanted);
  EXPECT_EQ(text.c_str(), text.inline_text());
  EXPECT_EQ(text.result, 15);
  EXPECT_EQ(text.length(), 15);
  EXPECT_EQ(text.heap(), nullptr);
  EXPECT_EQ(text.capacity(), 0U);
}

TEST(Snprintf_T, text_of_n_characters_moves_to_a_heap_buffer_of_n_plus_1_bytes) {
  const std::string wanted = text_of(N);
  const Probe<N> text("%s", wanted.c_str());
  EXPECT_EQ(text.c_str(), wanted);
  EXPECT_EQ(text.c_str(), text.heap());
  EXPECT_EQ(text.result, 16);
  EXPECT_EQ(text.length(), 16);
  EXPECT_EQ(text.capacity(), N + 1);
}

TEST(Snprintf_T, text_of_n_plus_1_characters_gets_a_heap_buffer_of_twice_that_plus_1_bytes) {
  const std::string wanted = text_of(N + 1);
  const Probe<N> text("%s", wanted.c_str());
  EXPECT_EQ(text.c_str(), wanted);
  EXPECT_EQ(text.result, 17);
  EXPECT_EQ(text.length(), 17);
  EXPECT_EQ(text.capacity(), 2 * (N + 1) + 1);
}

TEST(Snprintf_T, text_of_n_plus_2_characters_gets_what_it_needs) {
  const std::string wanted = text_of(N + 2);
  const Probe<N> text("%s", wanted.c_str());
  EXPECT_EQ(text.c_str(), wanted);
  EXPECT_EQ(text.capacity(), N + 3);
}

TEST(Snprintf_T, buffer_of_one_character_holds_the_empty_text_only) {
  EXPECT_EQ(Probe<1>("%s", "").heap(), nullptr);
  const Probe<1> one("%s", "a");
  EXPECT_STREQ(one.c_str(), "a");
  EXPECT_EQ(one.capacity(), 2U);
  const Probe<1> two("%s", "ab");  // the size plus one
  EXPECT_STREQ(two.c_str(), "ab");
  EXPECT_EQ(two.capacity(), 5U);
}

TEST(Snprintf_T, every_length_around_the_sizes_in_use_is_whole) {
  const auto check = [](auto size) {
    for (std::size_t length = 0; length < 3 * size() + 3; ++length) {
      const std::string wanted = text_of(length);
      const Probe<size()> text("%s", wanted.c_str());
      ASSERT_EQ(text.c_str(), wanted);
      ASSERT_EQ(text.result, static_cast<int>(length));
    }
  };
  check(std::integral_constant<std::size_t, 16>());
  check(std::integral_constant<std::size_t, 21>());
  check(std::integral_constant<std::size_t, 64>());
  check(std::integral_constant<std::size_t, 100>());
}

TEST(Snprintf_T, vset_formats_again_into_the_same_object) {
  Probe<N> text("%s", text_of(40).c_str());
  const char* const heap = text.heap();
  EXPECT_EQ(text.set("%s", "short"), 5);
  EXPECT_STREQ(text.c_str(), "short");
  EXPECT_EQ(text.heap(), heap) << "a heap buffer stays in use";
  EXPECT_EQ(text.capacity(), 41U);
  // From here on the heap buffer's capacity is the size that counts.
  EXPECT_EQ(text.set("%s", text_of(42).c_str()), 42);
  EXPECT_EQ(text.c_str(), text_of(42));
  EXPECT_EQ(text.capacity(), 85U);
}

TEST(Snprintf_T, vset_leaves_va_end_to_the_caller) {
  struct Twice {
    [[gnu::format(printf, 2, 3)]] static std::string set(Probe<N>& text, const char* format, ...) {
      std::va_list args;
      va_start(args, format);
      text.vset(format, args);
      const std::string first = text.c_str();
      text.vset(format, args);
      va_end(args);
      return first;
    }
  };
  Probe<N> text("x");
  const std::string first = Twice::set(text, "%d %s", 1, text_of(30).c_str());
  EXPECT_EQ(first, "1 " + text_of(30));
  EXPECT_EQ(text.c_str(), first);
}

TEST(Snprintf_T, text_of_a_megabyte_is_whole) {
  const std::string wanted = text_of(1 << 20);
  EXPECT_EQ(Probe<100>("%s", wanted.c_str()).c_str(), wanted);
}

TEST(Snprintf_T, text_that_cannot_be_formatted_gives_minus_1_and_an_empty_object) {
  Probe<N> text("%s%ls", "before", unwritable);
  EXPECT_EQ(text.result, -1);
  EXPECT_EQ(text.length(), 0);
  EXPECT_STREQ(text.c_str(), "");
  EXPECT_EQ(text.capacity(), 2 * (N + 1) + 1) << "one guess is followed, a second in a row is not";
  EXPECT_EQ(text.set("%s", "good again"), 10);
  EXPECT_STREQ(text.c_str(), "good again");
}

TEST(Snprintf_T, constructor_gives_the_empty_text_if_it_cannot_format) {
  EXPECT_STREQ(snprintf_t<N>("%ls", unwritable).c_str(), "");
}

TEST(Snprintf_T, exhausted_memory_gives_minus_1_and_a_truncated_text) {
  memory_is_exhausted = true;
  const Probe<N> text("%s", text_of(40).c_str());
  memory_is_exhausted = false;
  EXPECT_EQ(text.result, -1);
  EXPECT_EQ(text.length(), 0);
  EXPECT_EQ(text.heap(), nullptr);
  EXPECT_EQ(text.capacity(), 0U);
  EXPECT_EQ(text.c_str(), text_of(N - 1));
}

TEST(Snprintf_T, exhausted_memory_leaves_an_earlier_heap_buffer_in_use) {
  Probe<N> text("%s", text_of(40).c_str());
  memory_is_exhausted = true;
  EXPECT_EQ(text.set("%s", text_of(90).c_str()), -1);
  memory_is_exhausted = false;
  EXPECT_EQ(text.length(), 0);
  EXPECT_EQ(text.capacity(), 41U);
  EXPECT_EQ(text.c_str(), text_of(40));
}

}  // namespace
}  // namespace zqpool::test
