#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "platform/json/json_spirit.h"

using namespace json_spirit;

namespace {

const Object& sample() {
  static const Object object = {{"str", "text"},
                                {"bool", true},
                                {"int", -5},
                                {"wide", std::int64_t{1} << 40},
                                {"narrow", std::int64_t{-2147483647} - 1},
                                {"below", std::int64_t{-2147483649}},
                                {"huge", std::uint64_t{1} << 63},
                                {"real", 2.5},
                                {"null", Value()},
                                {"array", Array{1, 2}},
                                {"object", Object{{"k", "v"}}}};
  return object;
}

// The keys that `object_get` finds as a T in the sample, of all its keys and a missing one. For the
// others the output must stay unchanged.
template <typename T>
std::string taken(const T& untouched) {
  std::string keys;
  Object object = sample();
  object["missing"] = Value();
  for (const auto& [key, value] : object) {
    T out = untouched;
    if (object_get(sample(), key, out)) {
      keys += key + " ";
    } else {
      EXPECT_EQ(out, untouched) << key;
    }
  }
  return keys;
}

TEST(Json_Object_Get, gives_each_type_its_members_and_leaves_the_output_alone_otherwise) {
  EXPECT_EQ(taken<std::string>("kept"), "str ");
  EXPECT_EQ(taken<bool>(false), "bool ");
  EXPECT_EQ(taken<int>(77), "int narrow ");
  EXPECT_EQ(taken<std::int64_t>(77), "below int narrow wide ");
  EXPECT_EQ(taken<std::uint64_t>(77), "huge wide ");
  EXPECT_EQ(taken<double>(77), "below huge int narrow real wide ");
}

TEST(Json_Object_Get, gives_the_values) {
  std::string text;
  EXPECT_TRUE(object_get(sample(), "str", text));
  EXPECT_EQ(text, "text");
  int number = 0;
  EXPECT_TRUE(object_get(sample(), "int", number));
  EXPECT_EQ(number, -5);
  std::int64_t wide = 0;
  EXPECT_TRUE(object_get(sample(), "wide", wide));
  EXPECT_EQ(wide, std::int64_t{1} << 40);
  std::uint64_t huge = 0;
  EXPECT_TRUE(object_get(sample(), "huge", huge));
  EXPECT_EQ(huge, std::uint64_t{1} << 63);
  double real = 0;
  EXPECT_TRUE(object_get(sample(), "real", real));
  EXPECT_EQ(real, 2.5);
  EXPECT_TRUE(object_get(sample(), "int", real));
  EXPECT_EQ(real, -5.0);
}

TEST(Json_Object_Get, pointers_are_null_for_another_type_or_a_missing_key) {
  Object object = sample();
  for (const auto& [key, value] : sample()) {
    EXPECT_EQ(object_get_str(sample(), key) != nullptr, key == "str") << key;
    EXPECT_EQ(object_get_array(sample(), key) != nullptr, key == "array") << key;
    EXPECT_EQ(object_get_array(object, key) != nullptr, key == "array") << key;
    EXPECT_EQ(object_get_object(sample(), key) != nullptr, key == "object") << key;
    EXPECT_EQ(object_get_object(object, key) != nullptr, key == "object") << key;
  }
  EXPECT_EQ(object_get_str(object, "missing"), nullptr);
  EXPECT_EQ(object_get_array(object, "missing"), nullptr);
  EXPECT_EQ(object_get_object(object, "missing"), nullptr);
  EXPECT_EQ(object.size(), sample().size());
  object_get_array(object, "array")->push_back(3);
  EXPECT_EQ(object["array"].get_array().size(), 3U);
  EXPECT_EQ(object_get_str(object, "str"), &object["str"].get_str());
}

TEST(Json_Object_Get, swap_exchanges_contents) {
  Object object = sample();
  std::string text = "mine";
  EXPECT_TRUE(object_get_swap(object, "str", text));
  EXPECT_EQ(text, "text");
  EXPECT_EQ(object["str"].get_str(), "mine");
  Array array;
  EXPECT_TRUE(object_get_swap(object, "array", array));
  EXPECT_EQ(array, (Array{1, 2}));
  EXPECT_TRUE(object["array"].get_array().empty());
  Object inner = {{"mine", 1}};
  EXPECT_TRUE(object_get_swap(object, "object", inner));
  EXPECT_EQ(inner, (Object{{"k", "v"}}));
  EXPECT_EQ(object["object"], Value(Object{{"mine", 1}}));
}

TEST(Json_Object_Get, swap_leaves_both_alone_for_another_type_or_a_missing_key) {
  Object object = sample();
  std::string text = "mine";
  Array array = {9};
  Object inner = {{"mine", 1}};
  for (const char* key : {"int", "null", "missing", "bool"}) {
    EXPECT_FALSE(object_get_swap(object, key, text));
    EXPECT_FALSE(object_get_swap(object, key, array));
    EXPECT_FALSE(object_get_swap(object, key, inner));
  }
  EXPECT_FALSE(object_get_swap(object, "array", inner));
  EXPECT_FALSE(object_get_swap(object, "object", array));
  EXPECT_EQ(text, "mine");
  EXPECT_EQ(array, Array{9});
  EXPECT_EQ(inner, (Object{{"mine", 1}}));
  EXPECT_EQ(object, sample());
}

TEST(Json_Object_Get, a_member_can_take_the_place_of_its_own_object) {
  Object object = sample();
  EXPECT_TRUE(object_get_swap(object, "object", object));
  EXPECT_EQ(object, (Object{{"k", "v"}}));
}

std::string error_of(void (*get)(const Object&, const std::string&), const std::string& key) {
  try {
    get(sample(), key);
    return "no error";
  } catch (const std::runtime_error& error) {
    return error.what();
  }
}

void get_str(const Object& object, const std::string& key) {
  object_get_str_or_throw(object, key);
}
void get_int(const Object& object, const std::string& key) {
  object_get_int_or_throw(object, key);
}
void get_int64(const Object& object, const std::string& key) {
  object_get_int64_or_throw(object, key);
}
void get_uint64(const Object& object, const std::string& key) {
  object_get_uint64_or_throw(object, key);
}

TEST(Json_Object_Get, or_throw_gives_the_value) {
  EXPECT_EQ(&object_get_str_or_throw(sample(), "str"), object_get_str(sample(), "str"));
  EXPECT_EQ(object_get_int_or_throw(sample(), "int"), -5);
  EXPECT_EQ(object_get_int64_or_throw(sample(), "wide"), std::int64_t{1} << 40);
  EXPECT_EQ(object_get_uint64_or_throw(sample(), "huge"), std::uint64_t{1} << 63);
}

TEST(Json_Object_Get, or_throw_names_the_key_and_what_is_wrong) {
  for (const auto get : {get_str, get_int, get_int64, get_uint64}) {
    EXPECT_EQ(error_of(get, "missing"), "JSON member \"missing\" is missing");
  }
  EXPECT_EQ(error_of(get_str, "null"),
            "JSON member \"null\": JSON value type mismatch: wanted a string, found null");
  EXPECT_EQ(
      error_of(get_int, "real"),
      "JSON member \"real\": JSON value type mismatch: wanted a 32-bit integer, found a real");
  EXPECT_EQ(error_of(get_int, "wide"),
            "JSON member \"wide\": JSON value type mismatch: wanted a 32-bit integer, found the "
            "integer 1099511627776");
  EXPECT_EQ(error_of(get_int64, "huge"),
            "JSON member \"huge\": JSON value type mismatch: wanted a signed 64-bit integer, found "
            "the integer 9223372036854775808");
  EXPECT_EQ(error_of(get_uint64, "int"),
            "JSON member \"int\": JSON value type mismatch: wanted an unsigned 64-bit integer, "
            "found the integer -5");
  EXPECT_EQ(error_of(get_uint64, "str"),
            "JSON member \"str\": JSON value type mismatch: wanted an unsigned 64-bit integer, "
            "found a string");
}

}  // namespace
