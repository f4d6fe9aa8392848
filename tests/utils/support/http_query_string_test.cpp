#include "utils/support/http_query_string.h"

#include <gtest/gtest.h>

#include <array>
#include <list>
#include <string>
#include <utility>

namespace zqpool::test {
namespace {

std::string encoded(const char* text, unsigned flags) {
  std::string out;
  http_encode_string_i(text, flags, std::back_inserter(out));
  return out;
}

const std::string always_kept =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_.~";

/// What every byte is to become under the flags: a description of its own, to compare with.
std::string expected(unsigned char byte, unsigned flags) {
  static const std::array<std::pair<char, unsigned>, 16> keepers = {{{':', 8U},
                                                                     {'(', 16U},
                                                                     {')', 32U},
                                                                     {'\'', 64U},
                                                                     {'*', 128U},
                                                                     {'!', 512U},
                                                                     {'#', 1024U},
                                                                     {'$', 2048U},
                                                                     {'&', 4096U},
                                                                     {'+', 8192U},
                                                                     {',', 16384U},
                                                                     {';', 32768U},
                                                                     {'=', 65536U},
                                                                     {'?', 131072U},
                                                                     {'@', 262144U},
                                                                     {'/', 0U}}};
  const char c = static_cast<char>(byte);
  if (always_kept.find(c) != std::string::npos) return std::string(1, c);
  if (c == ' ' && (flags & 2U) != 0) return "+";
  if (c == '/' && (flags & 1U) == 0) return "/";
  for (const auto& [kept, flag] : keepers) {
    if (c == kept && (flags & flag) != 0) return std::string(1, c);
  }
  char escape[4];
  std::snprintf(escape, sizeof escape, (flags & 4U) != 0 ? "%%%02X" : "%%%02x", byte);
  return escape;
}

void check_all_bytes(unsigned flags) {
  for (unsigned byte = 1; byte < 256; ++byte) {
    const char text[] = {static_cast<char>(byte), '\0'};
    EXPECT_EQ(encoded(text, flags), expected(static_cast<unsigned char>(byte), flags))
        << "byte " << byte << ", flags " << flags;
  }
}

TEST(Http_Encode, all_bytes_under_no_flag_and_each_flag_alone) {
  check_all_bytes(0);
  for (unsigned bit = 0; bit < 20; ++bit)
    check_all_bytes(1U << bit);
}

TEST(Http_Encode, all_bytes_under_the_flags_in_use_and_the_presets) {
  check_all_bytes(HUT_FLAG_SLASH | HUT_FLAG_SPACE);
  check_all_bytes(HUT_FLAG_JS_ENCODE_URI_COMPONENT);
  check_all_bytes(HUT_FLAG_JS_ENCODE_URI);
}

TEST(Http_Encode, values_of_the_flags) {
  EXPECT_EQ(HUT_FLAG_SLASH, 1U);
  EXPECT_EQ(HUT_FLAG_SPACE, 2U);
  EXPECT_EQ(HUT_FLAG_UPPERCASE, 4U);
  EXPECT_EQ(HUT_FLAG_KEEP_COLON, 8U);
  EXPECT_EQ(HUT_FLAG_KEEP_LEFT_PAREN, 16U);
  EXPECT_EQ(HUT_FLAG_KEEP_RIGHT_PAREN, 32U);
  EXPECT_EQ(HUT_FLAG_KEEP_SINGLE_QUOTE, 64U);
  EXPECT_EQ(HUT_FLAG_KEEP_ASTERISK, 128U);
  EXPECT_EQ(HUT_FLAG_KEEP_EXCLAMATION, 512U);
  EXPECT_EQ(HUT_FLAG_KEEP_POUND, 1024U);
  EXPECT_EQ(HUT_FLAG_KEEP_DOLLAR, 2048U);
  EXPECT_EQ(HUT_FLAG_KEEP_AMPERSAND, 4096U);
  EXPECT_EQ(HUT_FLAG_KEEP_PLUS, 8192U);
  EXPECT_EQ(HUT_FLAG_KEEP_COMMA, 16384U);
  EXPECT_EQ(HUT_FLAG_KEEP_SEMICOLON, 32768U);
  EXPECT_EQ(HUT_FLAG_KEEP_EQUAL, 65536U);
  EXPECT_EQ(HUT_FLAG_KEEP_QUESTION, 131072U);
  EXPECT_EQ(HUT_FLAG_KEEP_AT, 262144U);
  EXPECT_EQ(HUT_FLAG_JS_ENCODE_URI_COMPONENT, 757U);
  EXPECT_EQ(HUT_FLAG_JS_ENCODE_URI, 524028U);
}

TEST(Http_Encode, presets_do_as_the_functions_they_are_named_after) {
  const char* const text = "a /b?c=d&e;f:g@h,i$j+k#l-_.!~*'()\"%\xc3\xa9";
  EXPECT_EQ(encoded(text, HUT_FLAG_JS_ENCODE_URI_COMPONENT),
            "a%20%2Fb%3Fc%3Dd%26e%3Bf%3Ag%40h%2Ci%24j%2Bk%23l-_.!~*'()%22%25%C3%A9");
  EXPECT_EQ(encoded(text, HUT_FLAG_JS_ENCODE_URI),
            "a%20/b?c=d&e;f:g@h,i$j+k#l-_.!~*'()%22%25%C3%A9");
}

TEST(Http_Encode, null_or_empty_text_writes_nothing_and_yields_false) {
  std::string out;
  EXPECT_FALSE(http_encode_string_i(nullptr, 3, std::back_inserter(out)));
  EXPECT_FALSE(http_encode_string_i("", 3, std::back_inserter(out)));
  EXPECT_EQ(out, "");
  EXPECT_TRUE(http_encode_string_i("a", 3, std::back_inserter(out)));
}

TEST(Http_Encode, iterator_given_by_name_moves_on) {
  char out[16] = {};
  char* end = out;
  http_encode_string_i("a b", HUT_FLAG_SPACE, end);
  http_encode_string_i("/", HUT_FLAG_SLASH, end);
  EXPECT_EQ(std::string(out, end), "a+b%2f");
}

class Query_Builder : public testing::Test {
 protected:
  std::string query;
  HTTP_Query_String_Builder build{std::back_inserter(query)};
};

TEST_F(Query_Builder, slash_is_escaped_in_lower_case) {
  build("uri", "/zq/data", true, true, nullptr);
  EXPECT_EQ(query, "uri=%2fzq%2fdata");
}

TEST_F(Query_Builder, value_with_a_blank_and_a_slash) {
  build("v", "a b/c");
  EXPECT_EQ(query, "v=a+b%2fc");
}

TEST_F(Query_Builder, fields_are_separated_and_calls_chain) {
  build("a", "1")("b", "2")("c", "3");
  EXPECT_EQ(query, "a=1&b=2&c=3");
}

TEST_F(Query_Builder, empty_value_writes_the_name_and_the_equals_sign) {
  build("a", "")("b", "");
  EXPECT_EQ(query, "a=&b=");
}

TEST_F(Query_Builder, null_value_writes_the_name_alone) {
  build("a", nullptr)("b", nullptr);
  EXPECT_EQ(query, "a&b");
}

TEST_F(Query_Builder, empty_or_null_name_writes_nothing_and_no_separator) {
  build("", "1")(nullptr, "2");
  EXPECT_EQ(query, "");
  build("a", "1")("", "2", true, true, "prefix")(nullptr, "3")("b", "4");
  EXPECT_EQ(query, "a=1&b=4");
}

TEST_F(Query_Builder, names_are_encoded_too) {
  build("a b&c", "1");
  EXPECT_EQ(query, "a+b%26c=1");
}

TEST_F(Query_Builder, without_the_flags_texts_are_written_as_they_are) {
  build("a b", "c/d", false, false)("e/f", "g h", false, true)("i j", "k/l", true, false);
  EXPECT_EQ(query, "a b=c/d&e/f=g+h&i+j=k/l");
}

TEST_F(Query_Builder, prefix_goes_in_front_of_the_name) {
  build("b", "1", true, true, "a/")("b", "2", false, true, "a/")("b", "3", true, true, "");
  EXPECT_EQ(query, "a%2fb=1&a/b=2&b=3");
}

TEST_F(Query_Builder, value_cannot_smuggle_fields_in) {
  build("uuid", "x&uuid=y#z?%41\r\n");
  EXPECT_EQ(query, "uuid=x%26uuid%3dy%23z%3f%2541%0d%0a");
}

TEST(Query_Builder_T, works_over_any_output_iterator) {
  std::list<char> out;
  HTTP_Query_String_Builder_T<std::back_insert_iterator<std::list<char>>> build(
      std::back_inserter(out));
  build("a", "b c");
  EXPECT_EQ(std::string(out.begin(), out.end()), "a=b+c");
}

}  // namespace
}  // namespace zqpool::test
