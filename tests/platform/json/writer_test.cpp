#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/json/json_spirit.h"
#include "tests/platform/json/deep_value.h"

using json_spirit::max_depth;
using json_spirit::Value;
using json_spirit::write;

namespace {

TEST(Json_Writer, compact_text_without_blanks) {
  EXPECT_EQ(write(Value()), "null");
  EXPECT_EQ(write(true), "true");
  EXPECT_EQ(write(false), "false");
  EXPECT_EQ(write(Array{5}), "[5]");
  EXPECT_EQ(write(Object{{"a", 1}}), "{\"a\":1}");
  EXPECT_EQ(write(Object{{"b", Array{1, "x", Value(), 1.5}}, {"a", Object()}}),
            R"({"a":{},"b":[1,"x",null,1.5]})");
  EXPECT_EQ(write(std::numeric_limits<std::uint64_t>::max()), "18446744073709551615");
  EXPECT_EQ(write(std::numeric_limits<std::int64_t>::min()), "-9223372036854775808");
}

TEST(Json_Writer, quotes_backslashes_and_control_bytes_are_escaped) {
  const std::string named = "\"\\\b\f\n\r\t";
  const std::string names = "\"\\bfnrt";
  for (int byte = 0; byte < 0x80; ++byte) {
    const char c = static_cast<char>(byte);
    std::string escaped(1, c);
    if (const auto i = named.find(c); i != named.npos) {
      escaped = std::string("\\") + names[i];
    } else if (byte < 0x20) {
      char text[8];
      std::snprintf(text, sizeof text, "\\u%04x", static_cast<unsigned>(byte));
      escaped = text;
    }
    const std::string one(1, c);
    EXPECT_EQ(write(one), '"' + escaped + '"');
    EXPECT_EQ(write(repeat(one + "x", 3)), '"' + repeat(escaped + "x", 3) + '"');
    EXPECT_EQ(write(Object{{one, 1}}), "{\"" + escaped + "\":1}");
  }
  EXPECT_EQ(write(""), "\"\"");
}

TEST(Json_Writer, long_strings_read_back) {
  for (const std::string part :
       {"plain", "a\"b\\c\nd", "\xc3\xa9", "\xe2\x82\xac", "\xf0\x9f\x92\xbe"}) {
    const std::string text = repeat(part, 20000);
    Value back;
    ASSERT_TRUE(json_spirit::read(write(text), back));
    EXPECT_TRUE(back.get_str() == text) << part;
  }
}

TEST(Json_Writer, text_that_is_not_utf8_is_refused_in_values_and_keys) {
  for (const std::string bad : {"\x80", "\xc3", "\xe2\x82", "\xc0\x80", "\xed\xa0\x80",
                                "\xf4\x90\x80\x80", "\xff", "\xc3(", "\xf0\x9f\x92"}) {
    for (const std::size_t before : {0U, 1U, 5000U}) {
      const std::string text = std::string(before, 'x') + bad;
      EXPECT_THROW(write(text), std::runtime_error);
      EXPECT_THROW(write(text + "tail"), std::runtime_error);
      EXPECT_THROW(write(text + std::string(9000, 'y')), std::runtime_error);
      EXPECT_THROW(write(Object{{text, 1}}), std::runtime_error);
      EXPECT_THROW(write(Array{1, Object{{"k", text}}}), std::runtime_error);
    }
  }
  EXPECT_THROW(write(Array{"\xc3", "\xa9"}), std::runtime_error) << "two halves make no character";
}

TEST(Json_Writer, nan_and_infinity_are_refused) {
  const double infinity = std::numeric_limits<double>::infinity();
  for (const double number : {std::nan(""), -std::nan(""), infinity, -infinity}) {
    EXPECT_THROW(write(number), std::runtime_error);
    EXPECT_THROW(write(Object{{"k", Array{1, number}}}), std::runtime_error);
  }
}

TEST(Json_Writer, depth_256_is_written_and_257_refused) {
  EXPECT_EQ(write(nested_arrays(max_depth)), repeat("[", max_depth) + repeat("]", max_depth));
  EXPECT_THROW(write(nested_arrays(max_depth + 1)), std::runtime_error);
  EXPECT_EQ(write(nested_objects(max_depth)),
            repeat("{\"a\":", max_depth - 1) + "{}" + repeat("}", max_depth - 1));
  EXPECT_THROW(write(nested_objects(max_depth + 1)), std::runtime_error);
}

TEST(Json_Writer, appends_and_takes_a_failed_text_away_again) {
  std::string out = "x=";
  json_spirit::write_to(Array{1, "two"}, out);
  EXPECT_EQ(out, "x=[1,\"two\"]");
  json_spirit::write_to(Value(), out);
  EXPECT_EQ(out, "x=[1,\"two\"]null");
  const std::string before = out;
  EXPECT_THROW(json_spirit::write_to(Array{std::string(10000, 'y'), std::nan("")}, out),
               std::runtime_error);
  EXPECT_EQ(out, before);
  EXPECT_THROW(json_spirit::write_to(nested_arrays(300), out), std::runtime_error);
  EXPECT_EQ(out, before);
}

void expect_same_real(double number) {
  const std::string text = write(number);
  Value back;
  ASSERT_TRUE(json_spirit::read(text, back)) << text;
  ASSERT_EQ(back.type(), json_spirit::real_type) << text;
  const double got = back.get_real();
  std::uint64_t bits[2];
  std::memcpy(&bits[0], &number, sizeof number);
  std::memcpy(&bits[1], &got, sizeof got);
  ASSERT_EQ(bits[0], bits[1]) << text;
}

TEST(Json_Writer, reals_read_back_as_the_same_real) {
  using Limits = std::numeric_limits<double>;
  for (const double number : {0.0,
                              -0.0,
                              1.0,
                              -1.0,
                              0.1,
                              1.0 / 3,
                              1e15,
                              1e16,
                              1e17,
                              1e21,
                              1e22,
                              1e23,
                              123456789.0,
                              1e-5,
                              1e-7,
                              9007199254740993.0,
                              9223372036854775808.0,
                              18446744073709551616.0,
                              1e300,
                              Limits::max(),
                              Limits::min(),
                              Limits::denorm_min(),
                              Limits::epsilon(),
                              -Limits::max()}) {
    expect_same_real(number);
  }
}

TEST(Json_Writer, reals_of_any_bits_read_back_as_the_same_real) {
  std::mt19937_64 random(20261121);
  int tried = 0;
  while (tried < 20000) {
    const std::uint64_t bits = random();
    double number;
    std::memcpy(&number, &bits, sizeof number);
    if (!std::isfinite(number)) continue;
    expect_same_real(number);
    ++tried;
  }
  // Numbers as they are met: few digits before and after the point.
  for (int i = 0; i < 20000; ++i) {
    expect_same_real(static_cast<double>(static_cast<std::int64_t>(random() % 2000000) - 1000000) /
                     1000);
  }
}

TEST(Json_Writer, integers_of_any_size_read_back_as_the_same_integer) {
  std::mt19937_64 random(4711);
  for (int i = 0; i < 20000; ++i) {
    const std::uint64_t bits = random() >> (random() % 64);
    for (const Value& value : {Value(bits), Value(static_cast<std::int64_t>(bits))}) {
      Value back;
      ASSERT_TRUE(json_spirit::read(write(value), back));
      ASSERT_EQ(back, value);
    }
  }
}

}  // namespace
