#include "utils/support/json_util.h"

#include <gtest/gtest.h>

#include <string>

namespace zqpool::test {
namespace {

using json_spirit::Value;

Object object(const std::string& text) {
  Value value;
  EXPECT_TRUE(json_spirit::read(text, value)) << text;
  return value.get_obj();
}

std::string text(const Object& object) {
  return json_spirit::write(Value(object));
}

TEST(Json_Util, to_new_object_drops_what_was_there) {
  Value value("old");
  Object& made = to_new_object(value);
  EXPECT_EQ(&made, &value.get_obj());
  EXPECT_TRUE(made.empty());
  made["a"] = 1;
  EXPECT_TRUE(to_new_object(value).empty());
}

TEST(Json_Util, to_new_array_drops_what_was_there) {
  Value value(Object{{"a", 1}});
  Array& made = to_new_array(value);
  EXPECT_EQ(&made, &value.get_array());
  EXPECT_TRUE(made.empty());
}

TEST(Json_Util, insert_chains_pairs_of_every_type) {
  Value body;
  const std::string pool = "p";
  const char* const path = "/a";
  insert(to_new_object(body))("pool_uuid", pool)("path", path)("size", std::int64_t{-1})(
      "big", ~std::uint64_t{0})("export", true)("n", 7)("list", Array{1, 2})("sub", Object());
  EXPECT_EQ(json_spirit::write(body),
            R"({"big":18446744073709551615,"export":true,"list":[1,2],"n":7,"path":"/a",)"
            R"("pool_uuid":"p","size":-1,"sub":{}})");
}

TEST(Json_Util, insert_later_pair_of_the_same_key_wins) {
  Object made;
  insert(made)("size", 1)("size", "/path");
  EXPECT_EQ(text(made), R"({"size":"/path"})");
}

TEST(Object_Maker, skips_a_key_whose_pointer_is_null) {
  const std::string* const no_string = nullptr;
  const char* const no_text = nullptr;
  const int* const no_number = nullptr;
  EXPECT_EQ(text(Object_Maker()
                     .insert_ptr("a", no_string)
                     .insert_ptr("b", no_text)
                     .insert_ptr("c", no_number)
                     .take()),
            "{}");
}

TEST(Object_Maker, takes_what_a_pointer_points_to) {
  const std::string string = "s";
  char writable[] = "w";
  char* const text_pointer = writable;
  const int number = 5;
  EXPECT_EQ(text(Object_Maker()
                     .insert("key", "value")
                     .insert_ptr("a", &string)
                     .insert_ptr("b", "t")
                     .insert_ptr("c", text_pointer)
                     .insert_ptr("d", &number)
                     .insert_ptr("e", "")
                     .take()),
            R"({"a":"s","b":"t","c":"w","d":5,"e":"","key":"value"})");
}

TEST(Object_Maker, is_empty_after_take) {
  Object_Maker maker;
  EXPECT_EQ(maker.insert("a", 1).take().size(), 1U);
  EXPECT_TRUE(maker.take().empty());
}

TEST(Array_Maker, keeps_the_order) {
  Array_Maker maker;
  EXPECT_EQ(json_spirit::write(maker.push("a").push(1).push(Object{{"b", true}}).take()),
            R"(["a",1,{"b":true}])");
  EXPECT_TRUE(maker.take().empty());
}

TEST(Object_Get_Any_Ptr, points_to_a_member_of_the_wanted_type) {
  Object from = object(R"({"o":{"a":1},"l":[1],"s":"x"})");
  const Object& constant = from;
  EXPECT_EQ(object_get_any_ptr<Object>(from, "o"), &from["o"].get_obj());
  EXPECT_EQ(object_get_any_ptr<Array>(from, "l"), &from["l"].get_array());
  EXPECT_EQ(*object_get_any_ptr<std::string>(from, "s"), "x");
  EXPECT_EQ(object_get_any_ptr<Object>(constant, "o"), &from["o"].get_obj());
  EXPECT_EQ(object_get_any_ptr<Array>(constant, "l"), &from["l"].get_array());
  EXPECT_EQ(*object_get_any_ptr<std::string>(constant, "s"), "x");
  object_get_any_ptr<Array>(from, "l")->clear();
  EXPECT_EQ(text(from), R"({"l":[],"o":{"a":1},"s":"x"})");
}

TEST(Object_Get_Any_Ptr, is_null_for_a_missing_member_or_another_type) {
  Object from = object(R"({"o":{},"l":[],"s":"","n":null})");
  for (const char* const key : {"l", "s", "n", "missing"})
    EXPECT_EQ(object_get_any_ptr<Object>(from, key), nullptr) << key;
  for (const char* const key : {"o", "s", "n", "missing"})
    EXPECT_EQ(object_get_any_ptr<Array>(from, key), nullptr) << key;
  for (const char* const key : {"o", "l", "n", "missing"})
    EXPECT_EQ(object_get_any_ptr<std::string>(from, key), nullptr) << key;
  EXPECT_EQ(from.size(), 4U) << "looking a member up adds none";
}

TEST(Object_Get_Or_Default, gives_the_member_or_the_default) {
  const Object from =
      object(R"({"s":"x","n":5,"b":true,"big":4294967296,"l":[1],"o":{"a":1},"r":1.5})");
  EXPECT_EQ(object_get_or_default(from, "s", "d"), "x");
  EXPECT_EQ(object_get_or_default(from, "missing", "d"), "d");
  EXPECT_EQ(object_get_or_default(from, "n", "d"), "d");
  EXPECT_EQ(object_get_or_default(from, "s", std::string("d")), "x");
  EXPECT_EQ(object_get_or_default(from, "n", 1), 5);
  EXPECT_EQ(object_get_or_default(from, "big", 1), 1) << "a number that does not fit";
  EXPECT_EQ(object_get_or_default(from, "big", std::int64_t{1}), 4294967296);
  EXPECT_EQ(object_get_or_default(from, "big", std::uint64_t{1}), 4294967296U);
  EXPECT_TRUE(object_get_or_default(from, "b", false));
  EXPECT_TRUE(object_get_or_default(from, "s", true));
  EXPECT_DOUBLE_EQ(object_get_or_default(from, "r", 0.0), 1.5);
  EXPECT_EQ(object_get_or_default(from, "l", Array()).size(), 1U);
  EXPECT_EQ(object_get_or_default(from, "o", Object()).size(), 1U);
  EXPECT_EQ(object_get_or_default(from, "s", Object()).size(), 0U);
}

class Extractor : public testing::Test {
 protected:
  const Object from =
      object(R"({"s":"x","n":-5,"b":true,"big":4294967296,"huge":18446744073709551615,"l":[1],)"
             R"("o":{"a":1},"r":1.5,"z":null})");
  const Const_Object_Throw_Extractor extract{from};

  template <typename T>
  std::string complaint(const std::string& key, T out) {
    const T before = out;
    try {
      extract(key, out, true);
    } catch (const std::exception& error) {
      EXPECT_EQ(out, before) << "left as it was";
      return error.what();
    }
    return "none";
  }
};

TEST_F(Extractor, reads_members_of_every_type) {
  std::string s;
  int n = 0;
  bool b = false;
  std::int64_t big = 0;
  std::uint64_t huge = 0;
  double r = 0;
  Array l;
  Object o;
  EXPECT_TRUE(extract("s", s, true));
  EXPECT_TRUE(extract("n", n, true));
  EXPECT_TRUE(extract("b", b, false));
  EXPECT_TRUE(extract("big", big, true));
  EXPECT_TRUE(extract("huge", huge, true));
  EXPECT_TRUE(extract("r", r, true));
  EXPECT_TRUE(extract("l", l, true));
  EXPECT_TRUE(extract("o", o, false));
  EXPECT_EQ(s, "x");
  EXPECT_EQ(n, -5);
  EXPECT_TRUE(b);
  EXPECT_EQ(big, 4294967296);
  EXPECT_EQ(huge, 18446744073709551615U);
  EXPECT_DOUBLE_EQ(r, 1.5);
  EXPECT_EQ(l.size(), 1U);
  EXPECT_EQ(o.size(), 1U);
}

TEST_F(Extractor, names_the_key_and_the_types_of_what_is_required) {
  EXPECT_EQ(complaint("lun_num", 1), "\"lun_num\": wanted 32-bit integer, found nothing");
  EXPECT_EQ(complaint("s", 1), "\"s\": wanted 32-bit integer, found string");
  EXPECT_EQ(complaint("n", std::string("t")), "\"n\": wanted string, found integer");
  EXPECT_EQ(complaint("z", true), "\"z\": wanted bool, found null");
  EXPECT_EQ(complaint("b", std::int64_t{1}), "\"b\": wanted 64-bit integer, found bool");
  EXPECT_EQ(complaint("l", Object()), "\"l\": wanted object, found array");
  EXPECT_EQ(complaint("o", Array()), "\"o\": wanted array, found object");
  EXPECT_EQ(complaint("s", 1.0), "\"s\": wanted number, found string");
  EXPECT_EQ(complaint("r", 1), "\"r\": wanted 32-bit integer, found real");
}

TEST_F(Extractor, number_that_does_not_fit_is_a_wrong_type) {
  EXPECT_EQ(complaint("big", 1), "\"big\": wanted 32-bit integer, found integer out of its range");
  EXPECT_EQ(complaint("n", std::uint64_t{1}),
            "\"n\": wanted unsigned 64-bit integer, found integer out of its range");
  EXPECT_EQ(complaint("huge", std::int64_t{1}),
            "\"huge\": wanted 64-bit integer, found integer out of its range");
}

TEST_F(Extractor, optional_member_missing_or_of_another_type_is_no_error) {
  int lun = 42;
  EXPECT_FALSE(extract("missing", lun, false));
  EXPECT_FALSE(extract("s", lun, false));
  EXPECT_FALSE(extract("z", lun, false));
  EXPECT_FALSE(extract("big", lun, false));
  EXPECT_EQ(lun, 42);
}

}  // namespace
}  // namespace zqpool::test
