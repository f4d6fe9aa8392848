#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "platform/json/json_dump.h"
#include "platform/json/json_spirit.h"
#include "tests/platform/json/deep_value.h"
#include "tests/platform/json/small_stack.h"

using json_spirit::max_depth;
using json_spirit::Value;

namespace {

constexpr std::int64_t int64_max = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t int64_min = std::numeric_limits<std::int64_t>::min();
constexpr std::uint64_t uint64_max = std::numeric_limits<std::uint64_t>::max();
constexpr std::uint64_t above_int64 = std::uint64_t{1} << 63;

static_assert(std::is_nothrow_move_constructible_v<Value>);
static_assert(std::is_nothrow_move_assignable_v<Value>);
static_assert(std::is_nothrow_swappable_v<Value>);
static_assert(!std::is_constructible_v<Value, void*>, "a pointer is not a bool");
static_assert(!std::is_constructible_v<Value, const int*>);
static_assert(!std::is_constructible_v<Value, const unsigned char*>);
static_assert(std::is_constructible_v<Value, char*>);
static_assert(json_spirit::obj_type == 0 && json_spirit::array_type == 1 &&
              json_spirit::str_type == 2 && json_spirit::bool_type == 3 &&
              json_spirit::int_type == 4 && json_spirit::real_type == 5 &&
              json_spirit::null_type == 6);

TEST(Json_Value, constructors_give_their_type) {
  EXPECT_EQ(Value().type(), json_spirit::null_type);
  EXPECT_TRUE(Value().is_null());
  EXPECT_EQ(Value(Object()).type(), json_spirit::obj_type);
  EXPECT_EQ(Value(Array()).type(), json_spirit::array_type);
  EXPECT_EQ(Value("x").type(), json_spirit::str_type);
  char buffer[] = "y";
  EXPECT_EQ(Value(buffer).get_str(), "y");
  EXPECT_EQ(Value(std::string("z")).get_str(), "z");
  EXPECT_EQ(Value(std::string_view("a\0b", 3)).get_str(), std::string("a\0b", 3));
  EXPECT_TRUE(Value(static_cast<const char*>(nullptr)).is_null());
  EXPECT_TRUE(Value(nullptr).is_null());
  EXPECT_EQ(Value(true).type(), json_spirit::bool_type);
  EXPECT_EQ(Value(1.0).type(), json_spirit::real_type);
  EXPECT_EQ(Value(1.0F).type(), json_spirit::real_type);
  const Value integers[] = {1, 1L, 1LL, 1U, 1UL, 1ULL, short{1}, static_cast<unsigned char>(1)};
  for (const Value& integer : integers) {
    EXPECT_EQ(integer.type(), json_spirit::int_type);
    EXPECT_FALSE(integer.is_uint64());
    EXPECT_EQ(integer, Value(1));
  }
}

TEST(Json_Value, unsigned_beyond_int64_is_the_only_uint64) {
  EXPECT_FALSE(Value(std::uint64_t{0}).is_uint64());
  EXPECT_FALSE(Value(above_int64 - 1).is_uint64());
  EXPECT_EQ(Value(above_int64 - 1), Value(int64_max));
  EXPECT_TRUE(Value(above_int64).is_uint64());
  EXPECT_TRUE(Value(uint64_max).is_uint64());
  EXPECT_FALSE(Value(-1).is_uint64());
  EXPECT_FALSE(Value(1e19).is_uint64());
  EXPECT_FALSE(Value().is_uint64());
}

struct Sample {
  const char* found;  // how a failing accessor names it
  Value value;
};

const std::vector<Sample>& samples() {
  static const std::vector<Sample> all = {
      {"an object", Object{{"a", 1}}},
      {"an array", Array{1}},
      {"a string", "text"},
      {"a boolean", true},
      {"null", Value()},
      {"a real", 1.0},
      {"the integer 0", 0},
      {"the integer -1", -1},
      {"the integer 2147483647", 2147483647},
      {"the integer 2147483648", 2147483648},
      {"the integer -2147483648", std::int64_t{-2147483647} - 1},
      {"the integer -2147483649", std::int64_t{-2147483649}},
      {"the integer 1099511627776", std::int64_t{1} << 40},
      {"the integer 9223372036854775807", int64_max},
      {"the integer -9223372036854775808", int64_min},
      {"the integer 9223372036854775808", above_int64},
      {"the integer 18446744073709551615", uint64_max},
  };
  return all;
}

// Tries one accessor on every sample: it must take exactly those that are listed in `taken`, and
// name both types in the exception for all others.
template <typename Get>
void check_accessor(const std::string& wanted, bool numeric, const std::vector<std::string>& taken,
                    Get get) {
  for (const Sample& sample : samples()) {
    const bool takes = std::find(taken.begin(), taken.end(), sample.found) != taken.end();
    std::string found = sample.found;
    if (!numeric && found.rfind("the integer ", 0) == 0) {
      found = sample.value.is_uint64() ? "an unsigned 64-bit integer" : "an integer";
    }
    Value value = sample.value;
    try {
      get(value);
      EXPECT_TRUE(takes) << wanted << " from " << sample.found;
    } catch (const std::runtime_error& error) {
      EXPECT_FALSE(takes) << wanted << " from " << sample.found;
      std::string text = "JSON value type mismatch: wanted ";
      text += wanted;
      text += ", found ";
      text += found;
      EXPECT_EQ(error.what(), text);
    }
    EXPECT_EQ(value, sample.value);
  }
}

TEST(Json_Value, every_accessor_takes_its_type_alone_and_names_both_types_otherwise) {
  const auto constant = [](Value& value) -> const Value& { return value; };
  check_accessor("a string", false, {"a string"}, [&](Value& v) { constant(v).get_str(); });
  check_accessor("a string", false, {"a string"}, [&](Value& v) { v.get_str(); });
  check_accessor("an object", false, {"an object"}, [&](Value& v) { constant(v).get_obj(); });
  check_accessor("an object", false, {"an object"}, [&](Value& v) { v.get_obj(); });
  check_accessor("an array", false, {"an array"}, [&](Value& v) { constant(v).get_array(); });
  check_accessor("an array", false, {"an array"}, [&](Value& v) { v.get_array(); });
  check_accessor("a boolean", false, {"a boolean"}, [](Value& v) { v.get_bool(); });
}

TEST(Json_Value, every_number_accessor_refuses_what_does_not_fit) {
  const std::vector<std::string> in_int = {"the integer 0", "the integer -1",
                                           "the integer 2147483647", "the integer -2147483648"};
  std::vector<std::string> in_int64 = in_int;
  in_int64.insert(in_int64.end(),
                  {"the integer 2147483648", "the integer -2147483649", "the integer 1099511627776",
                   "the integer 9223372036854775807", "the integer -9223372036854775808"});
  const std::vector<std::string> in_uint64 = {"the integer 0",
                                              "the integer 2147483647",
                                              "the integer 2147483648",
                                              "the integer 1099511627776",
                                              "the integer 9223372036854775807",
                                              "the integer 9223372036854775808",
                                              "the integer 18446744073709551615"};
  std::vector<std::string> in_real = in_int64;
  in_real.insert(in_real.end(),
                 {"the integer 9223372036854775808", "the integer 18446744073709551615", "a real"});
  check_accessor("a 32-bit integer", true, in_int, [](Value& v) { v.get_int(); });
  check_accessor("a signed 64-bit integer", true, in_int64, [](Value& v) { v.get_int64(); });
  check_accessor("an unsigned 64-bit integer", true, in_uint64, [](Value& v) { v.get_uint64(); });
  check_accessor("a real", true, in_real, [](Value& v) { v.get_real(); });
}

TEST(Json_Value, numbers_come_back_exactly) {
  EXPECT_EQ(Value(-2147483647 - 1).get_int(), std::numeric_limits<int>::min());
  EXPECT_EQ(Value(2147483647).get_int(), std::numeric_limits<int>::max());
  EXPECT_EQ(Value(int64_min).get_int64(), int64_min);
  EXPECT_EQ(Value(int64_max).get_int64(), int64_max);
  EXPECT_EQ(Value(int64_max).get_uint64(), above_int64 - 1);
  EXPECT_EQ(Value(above_int64).get_uint64(), above_int64);
  EXPECT_EQ(Value(uint64_max).get_uint64(), uint64_max);
  EXPECT_EQ(Value(0.1).get_real(), 0.1);
  EXPECT_EQ(Value(-3).get_real(), -3.0);
  EXPECT_EQ(Value(above_int64).get_real(), 9223372036854775808.0);
  EXPECT_TRUE(std::isnan(Value(std::nan("")).get_real()));
}

TEST(Json_Value, equality_needs_type_and_content) {
  EXPECT_EQ(Value(), Value());
  EXPECT_NE(Value(), Value(false));
  EXPECT_NE(Value(1), Value(1.0));
  EXPECT_NE(Value(0), Value(false));
  EXPECT_NE(Value("1"), Value(1));
  EXPECT_NE(Value(above_int64), Value(int64_min));
  EXPECT_NE(Value(above_int64), Value(9223372036854775808.0));
  EXPECT_EQ(Value(0.0), Value(-0.0));
  EXPECT_NE(Value(std::nan("")), Value(std::nan("")));
  EXPECT_EQ(Value(Object{{"a", Array{1, "x"}}}), Value(Object{{"a", Array{1, "x"}}}));
  EXPECT_NE(Value(Object{{"a", Array{1, "x"}}}), Value(Object{{"a", Array{1, "y"}}}));
  EXPECT_NE(Value(Object{{"a", 1}}), Value(Object{{"b", 1}}));
  EXPECT_NE(Value(Array{1}), Value(Array{1, 1}));
  EXPECT_NE(Value(Object()), Value(Array()));
}

TEST(Json_Value, moved_from_is_null) {
  for (const Sample& sample : samples()) {
    Array from = {sample.value, sample.value};
    const Value constructed(std::move(from[0]));
    Value assigned = 7;
    assigned = std::move(from[1]);
    EXPECT_EQ(constructed, sample.value);
    EXPECT_EQ(assigned, sample.value);
    EXPECT_EQ(from, (Array{Value(), Value()})) << sample.found;
  }
}

TEST(Json_Value, copies_are_deep) {
  const Value original = Object{{"list", Array{1, Object{{"k", "v"}}}}};
  Value copy = original;
  copy.get_obj()["list"].get_array()[1].get_obj()["k"] = "changed";
  EXPECT_EQ(original.get_obj().at("list").get_array()[1].get_obj().at("k").get_str(), "v");
}

TEST(Json_Value, assignment_of_itself_and_of_its_own_parts) {
  Value value = Array{Array{"inner"}, 2};
  const Value& same = value;
  value = same;
  EXPECT_EQ(value, Value(Array{Array{"inner"}, 2}));
  Value& alias = value;
  value = std::move(alias);
  EXPECT_EQ(value, Value(Array{Array{"inner"}, 2}));
  value = value.get_array()[0];
  EXPECT_EQ(value, Value(Array{"inner"}));
  value = std::move(value.get_array()[0]);
  EXPECT_EQ(value, Value("inner"));
  value.swap(value);
  EXPECT_EQ(value, Value("inner"));
}

TEST(Json_Value, swap_exchanges_any_two_types) {
  for (const Sample& a : samples()) {
    for (const Sample& b : samples()) {
      Value x = a.value;
      Value y = b.value;
      swap(x, y);
      EXPECT_EQ(x, b.value);
      EXPECT_EQ(y, a.value);
    }
  }
}

TEST(Json_Value, the_greatest_depth_needs_little_stack) {
  for (const auto& nested : {nested_arrays, nested_objects}) {
    on_small_stack([&nested] {
      const Value value = nested(max_depth);
      Value copy;
      copy = value;
      EXPECT_TRUE(copy == value);
      Value read;
      EXPECT_TRUE(json_spirit::read(json_spirit::write(value), read));
      EXPECT_TRUE(read == value);
      EXPECT_STREQ(JSON_Dump(value, false).c_str(), json_spirit::write(value).c_str());
    });
  }
}

TEST(Json_Value, values_built_deeper_than_can_be_read_are_values_like_others) {
  for (const auto& nested : {nested_arrays, nested_objects}) {
    Value value = nested(max_depth + 1);
    Value copy = value;
    EXPECT_TRUE(copy == value);
    EXPECT_FALSE(copy == nested(max_depth));
    Value moved = std::move(copy);
    swap(moved, value);
    value = std::move(value.type() == json_spirit::obj_type ? value.get_obj()["a"]
                                                            : value.get_array()[0]);
    EXPECT_TRUE(value == nested(max_depth));
  }
}

}  // namespace
