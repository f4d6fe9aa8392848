#include "utils/support/string_sprintf.h"

#include <gtest/gtest.h>

#include <string>

namespace zqpool::test {
namespace {

// No character has this code, so no multibyte locale can write it.
const wchar_t unwritable[] = {static_cast<wchar_t>(0x7fffffff), 0};

constexpr std::size_t room = 128;

[[gnu::format(printf, 3, 4)]] ssize_t call(std::string& out, bool append, const char* format, ...) {
  std::va_list args;
  va_start(args, format);
  const ssize_t length = string_vsprintf(out, format, args, append);
  va_end(args);
  return length;
}

TEST(String_Sprintf, returns_a_new_string) {
  EXPECT_EQ(string_sprintf("pool_id=%s&n=%d", "p", 7), "pool_id=p&n=7");
  EXPECT_EQ(string_sprintf("%s", ""), "");
}

TEST(String_Sprintf, replaces_the_contents_and_returns_the_new_length) {
  std::string out = "something longer than that";
  EXPECT_EQ(string_sprintf(out, "%s-%u", "a", 5U), 3);
  EXPECT_EQ(out, "a-5");
  EXPECT_EQ(string_sprintf(out, "%s", ""), 0);
  EXPECT_EQ(out, "");
}

TEST(String_Sprintf, append_returns_the_whole_new_length) {
  std::string out = "pool_id=p";
  EXPECT_EQ(string_sprintf_append(out, "&name=%s", "n"), 16);
  EXPECT_EQ(out, "pool_id=p&name=n");
  EXPECT_EQ(string_sprintf_append(out, "%s", ""), 16);
  std::string empty;
  EXPECT_EQ(string_sprintf_append(empty, "%d", 42), 2);
  EXPECT_EQ(empty, "42");
}

TEST(String_Sprintf, every_length_around_the_first_room_is_whole) {
  for (std::size_t length = 0; length < 3 * room; ++length) {
    const std::string wanted(length, 'x');
    std::string out;
    ASSERT_EQ(string_sprintf(out, "%s", wanted.c_str()), static_cast<ssize_t>(length));
    ASSERT_EQ(out, wanted);
    std::string longer = "start";
    ASSERT_EQ(string_sprintf_append(longer, "%s", wanted.c_str()),
              static_cast<ssize_t>(length + 5));
    ASSERT_EQ(longer, "start" + wanted);
  }
}

TEST(String_Sprintf, text_of_the_room_plus_one_takes_128_more_than_it_needs) {
  // What the string was grown to shows in its capacity.
  std::string exact(0, 'x');
  string_sprintf(exact, "%s", std::string(room, 'x').c_str());
  EXPECT_LE(exact.capacity(), 2 * room);
  std::string over(0, 'x');
  string_sprintf(over, "%s", std::string(room + 1, 'x').c_str());
  EXPECT_GE(over.capacity(), room + 1 + 128);
  EXPECT_EQ(over.size(), room + 1);
}

TEST(String_Sprintf, contents_of_128_or_more_are_the_room) {
  std::string out(300, 'x');
  const char* const data = out.data();
  EXPECT_EQ(string_sprintf(out, "%s", std::string(299, 'y').c_str()), 299);
  EXPECT_EQ(out, std::string(299, 'y'));
  EXPECT_EQ(out.data(), data) << "nothing had to be allocated";
}

TEST(String_Sprintf, text_of_a_megabyte_is_whole) {
  const std::string wanted(1 << 20, 'x');
  EXPECT_EQ(string_sprintf("%s", wanted.c_str()), wanted);
}

TEST(String_Sprintf, what_cannot_be_formatted_empties_the_string_and_releases_its_storage) {
  std::string out(1000, 'x');
  EXPECT_LT(string_sprintf(out, "%s%ls", "before", unwritable), 0);
  EXPECT_EQ(out, "");
  EXPECT_EQ(out.capacity(), std::string().capacity());
  EXPECT_EQ(string_sprintf("%ls", unwritable), "");
}

TEST(String_Sprintf, what_cannot_be_formatted_cuts_an_appended_string_back) {
  std::string out = "pool_id=p";
  EXPECT_LT(string_sprintf_append(out, "%s%ls", "before", unwritable), 0);
  EXPECT_EQ(out, "pool_id=p");
  std::string empty;
  empty.reserve(1000);
  EXPECT_LT(string_sprintf_append(empty, "%ls", unwritable), 0);
  EXPECT_EQ(empty, "");
  EXPECT_EQ(empty.capacity(), std::string().capacity());
}

TEST(String_Sprintf, text_longer_than_an_int_counts_cannot_be_formatted) {
  std::string out = "kept";
  const std::string format = "%99999999999d";  // not a literal, which the compiler would refuse
  EXPECT_LT(string_sprintf_append(out, format.c_str(), 1), 0);
  EXPECT_EQ(out, "kept");
}

TEST(String_Vsprintf, append_flag_decides) {
  std::string out = "a";
  EXPECT_EQ(call(out, true, "%s", "b"), 2);
  EXPECT_EQ(out, "ab");
  EXPECT_EQ(call(out, false, "%s", "c"), 1);
  EXPECT_EQ(out, "c");
}

}  // namespace
}  // namespace zqpool::test
