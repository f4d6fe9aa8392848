#include "platform/json/json_dump.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

#include "tests/platform/json/deep_value.h"

using json_spirit::max_depth;
using json_spirit::Value;

namespace {

TEST(Json_Dump, prints_compact_text) {
  EXPECT_STREQ(JSON_Dump(Array{5}, false).c_str(), "[5]");
  EXPECT_STREQ(JSON_Dump(Object{{"a", 1}}, false).c_str(), "{\"a\":1}");
  EXPECT_STREQ(JSON_Dump(Value(Object{{"a", Array{1, "x", Value()}}}), false).c_str(),
               R"({"a":[1,"x",null]})");
  EXPECT_EQ(JSON_Dump(Value("x"), false).str(), "\"x\"");
  EXPECT_STREQ(JSON_Dump(Value(), false).c_str(), "null");
}

TEST(Json_Dump, agrees_with_the_writer_where_that_has_a_text) {
  const Value value =
      Object{{"r", 1.0}, {"i", -7}, {"u", ~std::uint64_t{0}}, {"s", "\"\xc3\xa9\n\x01"}};
  EXPECT_EQ(JSON_Dump(value, false).str(), json_spirit::write(value));
}

TEST(Json_Dump, pretty_puts_one_member_a_line) {
  const Value value = Object{{"a", Array{1, Object{{"k", "v"}}}}, {"e", Array()}, {"o", Object()}};
  EXPECT_EQ(JSON_Dump(value, true).str(),
            "{\n"
            "  \"a\": [\n"
            "    1,\n"
            "    {\n"
            "      \"k\": \"v\"\n"
            "    }\n"
            "  ],\n"
            "  \"e\": [],\n"
            "  \"o\": {}\n"
            "}");
  EXPECT_EQ(JSON_Dump(Array(), true).str(), "[]");
  EXPECT_EQ(JSON_Dump(Value(1), true).str(), "1");
  Value back;
  EXPECT_TRUE(json_spirit::read(JSON_Dump(value, true).str(), back));
  EXPECT_EQ(back, value);
}

TEST(Json_Dump, nan_and_infinity_are_null) {
  const double infinity = std::numeric_limits<double>::infinity();
  EXPECT_EQ(JSON_Dump(Array{std::nan(""), infinity, -infinity, 1.5}, false).str(),
            "[null,null,null,1.5]");
}

TEST(Json_Dump, bytes_that_are_not_utf8_become_the_replacement_character) {
  const std::string mark = "\xef\xbf\xbd";
  const auto dump = [](const std::string& text) { return JSON_Dump(Value(text), false).str(); };
  EXPECT_EQ(dump("\xff"), "\"" + mark + "\"");
  EXPECT_EQ(dump("a\xffz"), "\"a" + mark + "z\"");
  EXPECT_EQ(dump("\xc3\xa9\x80\xe2\x82\xac"), "\"\xc3\xa9" + mark + "\xe2\x82\xac\"");
  EXPECT_EQ(dump("\xe2\x82"), "\"" + mark + mark + "\"");
  EXPECT_EQ(dump("\xf0\x9f\x92\xbe\xf0\x9f"), "\"\xf0\x9f\x92\xbe" + mark + mark + "\"");
  EXPECT_EQ(dump("\xed\xa0\x80"), "\"" + mark + mark + mark + "\"");
  EXPECT_EQ(dump("\n\xff\""), "\"\\n" + mark + "\\\"\"");
  EXPECT_EQ(JSON_Dump(Object{{"\xff", 1}}, false).str(), "{\"" + mark + "\":1}");
  EXPECT_EQ(JSON_Dump(Array{"\xc3", "\xa9"}, false).str(), "[\"" + mark + "\",\"" + mark + "\"]");
  const std::string tail = "\xff";
  EXPECT_EQ(dump(std::string(9999, 'x') + tail), "\"" + std::string(9999, 'x') + mark + "\"");
}

TEST(Json_Dump, what_is_nested_too_deep_is_left_out) {
  EXPECT_EQ(JSON_Dump(nested_arrays(max_depth), false).str(),
            repeat("[", max_depth) + repeat("]", max_depth));
  EXPECT_EQ(JSON_Dump(nested_arrays(max_depth + 1), false).str(),
            repeat("[", max_depth) + "..." + repeat("]", max_depth));
  const Value deep = nested_objects(max_depth + 10);
  const std::string text = repeat("{\"a\":", max_depth) + "..." + repeat("}", max_depth);
  EXPECT_EQ(JSON_Dump(deep, false).str(), text);
  EXPECT_EQ(JSON_Dump(deep.get_obj(), false).str(), text);
}

}  // namespace
