#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/json/json_spirit.h"
#include "tests/platform/json/deep_value.h"

using json_spirit::max_depth;
using json_spirit::read;
using json_spirit::Value;
using json_spirit::write;

namespace {

const Value& untouched() {
  static const Value value = Object{{"was", Array{"here", 1}}};
  return value;
}

// Reads the text from a copy, in place, and freeing it: the result must always be the same.
bool reads(std::string text, Value& value) {
  text.shrink_to_fit();
  value = untouched();
  std::string error;
  const bool good = read(text, value, error);
  text.reserve(text.size() + json_spirit::read_padding);
  Value in_place = untouched();
  EXPECT_EQ(read(text, in_place), good);
  EXPECT_EQ(in_place, value);
  Value freed = untouched();
  std::string same_error;
  EXPECT_EQ(read(std::move(text), freed, same_error), good);
  EXPECT_EQ(freed, value);
  EXPECT_EQ(same_error, error);
  return good;
}

void expect_refused(const std::string& text, const std::string& why = {}) {
  Value value;
  EXPECT_FALSE(reads(text, value)) << why << ": " << text;
  EXPECT_EQ(value, untouched()) << why << ": " << text;
}

TEST(Json_Reader, texts_that_come_back_as_they_were) {
  const std::string same[] = {
      "null",
      "true",
      "false",
      "0",
      "-1",
      "2147483647",
      "2147483648",
      "-2147483649",
      "9223372036854775807",
      "9223372036854775808",
      "18446744073709551615",
      "-9223372036854775808",
      "0.0",
      "-0.0",
      "1.0",
      "-1.5",
      "0.1",
      "1e+22",
      "1e-07",
      "5e-324",
      "2.2250738585072014e-308",
      "1.7976931348623157e+308",
      "\"\"",
      "\"text\"",
      "\"a/b\"",
      "\"\\\"\\\\\\b\\f\\n\\r\\t\"",
      "\"\\u0000\\u0001\\u001f\x7f\"",
      "\"\xc3\xa9\xe2\x82\xac\xf0\x9f\x92\xbe\xef\xbf\xbf\xf4\x8f\xbf\xbf\"",
      "[]",
      "{}",
      "[5]",
      "{\"a\":1}",
      "[[],{},[[]],{\"\":{}}]",
      "[null,true,false,0,-1,1.5,\"x\",[1],{\"k\":\"v\"}]",
      "{\"A\":1,\"B\":{\"a\":[],\"b\":null},\"a\":2,\"\xc3\xa9\":3}",
  };
  for (const std::string& text : same) {
    Value value;
    EXPECT_TRUE(reads(text, value)) << text;
    EXPECT_EQ(write(value), text);
  }
}

TEST(Json_Reader, texts_with_more_than_one_form_become_the_shortest) {
  const std::vector<std::pair<std::string, std::string>> forms = {
      {" \t\r\n[ 1 ,\n2 ] ", "[1,2]"},
      {"-0", "0"},
      {"1E2", "100.0"},
      {"1e0", "1.0"},
      {"10.50", "10.5"},
      {"0.1000000000000000055511151231257827", "0.1"},
      {"123456789012345678901234567890.0", "1.2345678901234568e+29"},
      {"1e-400", "0.0"},
      {"-1e-400", "-0.0"},
      {"\"\\/\"", "\"/\""},
      {"\"\\u0041\\u00e9\\u20ac\"", "\"A\xc3\xa9\xe2\x82\xac\""},
      {"\"\\ud83d\\udcbe\"", "\"\xf0\x9f\x92\xbe\""},
      {"\"\\u001F\"", "\"\\u001f\""},
      {"{\"b\":1,\"a\":2}", "{\"a\":2,\"b\":1}"},
  };
  for (const auto& [text, shortest] : forms) {
    Value value;
    EXPECT_TRUE(reads(text, value)) << text;
    EXPECT_EQ(write(value), shortest);
  }
}

TEST(Json_Reader, integers_are_exact_up_to_64_bits_and_refused_beyond) {
  Value value;
  ASSERT_TRUE(reads("9223372036854775807", value));
  EXPECT_EQ(value.get_int64(), 9223372036854775807);
  EXPECT_FALSE(value.is_uint64());
  ASSERT_TRUE(reads("9223372036854775808", value));
  EXPECT_EQ(value.get_uint64(), std::uint64_t{1} << 63);
  EXPECT_TRUE(value.is_uint64());
  ASSERT_TRUE(reads("18446744073709551615", value));
  EXPECT_EQ(value.get_uint64(), ~std::uint64_t{0});
  ASSERT_TRUE(reads("-9223372036854775808", value));
  EXPECT_EQ(value.get_int64(), -9223372036854775807 - 1);
  for (const char* text : {"18446744073709551616", "-9223372036854775809", "-18446744073709551615",
                           "99999999999999999999", "100000000000000000000000000000000000000000"}) {
    expect_refused(text);
    expect_refused(std::string("[1,") + text + "]");
  }
}

TEST(Json_Reader, reals_beyond_double_are_refused) {
  Value value;
  ASSERT_TRUE(reads("1.7976931348623157e308", value));
  EXPECT_EQ(value.get_real(), 1.7976931348623157e308);
  for (const char* text : {"1e400", "-1e400", "1.7976931348623159e308", "1e309",
                           "1e99999999999999999999", "0.1e2147483649"}) {
    expect_refused(text);
    expect_refused(std::string("{\"a\":") + text + "}");
  }
  ASSERT_TRUE(reads("0.12345678901234567e-2147483639", value));
  EXPECT_EQ(value, Value(0.0));
}

TEST(Json_Reader, an_exponent_or_a_point_makes_a_real) {
  for (const char* text : {"1e0", "1.0", "100e-2", "1E+0"}) {
    Value value;
    ASSERT_TRUE(reads(text, value)) << text;
    EXPECT_EQ(value.type(), json_spirit::real_type) << text;
    EXPECT_EQ(value.get_real(), 1.0) << text;
  }
}

TEST(Json_Reader, malformed_texts_are_refused) {
  for (const char* text : {"",
                           " ",
                           "\n",
                           "[",
                           "]",
                           "{",
                           "}",
                           "[1",
                           "[1,",
                           "[1,]",
                           "[,1]",
                           "[1 2]",
                           "[1}",
                           "{]",
                           "{\"a\"",
                           "{\"a\":",
                           "{\"a\":1",
                           "{\"a\":1,",
                           "{\"a\":1,}",
                           "{\"a\" 1}",
                           "{a:1}",
                           "{'a':1}",
                           "{1:1}",
                           "{null:1}",
                           "{,}",
                           "{\"a\":,}",
                           "{\"a\":1 \"b\":2}",
                           "[\"a\":1]",
                           "'a'",
                           "\"",
                           "\"a",
                           "\"\\\"",
                           "\"\\",
                           "\"\\x\"",
                           "\"\\u\"",
                           "\"\\u12\"",
                           "\"\\u123g\"",
                           "\"\\'\"",
                           "\"\\U0041\"",
                           "nul",
                           "nulll",
                           "NULL",
                           "True",
                           "tru",
                           "truefalse",
                           "undefined",
                           "NaN",
                           "nan",
                           "Infinity",
                           "-Infinity",
                           "inf",
                           "+1",
                           "-",
                           "--1",
                           "- 1",
                           "01",
                           "-01",
                           "00",
                           "1.",
                           ".5",
                           "-.5",
                           "1.e1",
                           "1e",
                           "1e+",
                           "1e-",
                           "1e1.5",
                           "0x10",
                           "1_000",
                           "1,5",
                           "1a",
                           "0b1",
                           "1f",
                           "// c\n1",
                           "/* c */1",
                           "[1]// c",
                           "[1] /* */",
                           "\xef\xbb\xbf[]"}) {
    expect_refused(text);
  }
}

TEST(Json_Reader, text_after_the_document_is_refused) {
  for (const char* tail : {"x", "1", ",", "]", "}", " 1", " []", "\n{}", " null", "\"\"", "\x01"}) {
    for (const char* document : {"[]", "{}", "[1]", "{\"a\":1}", "\"s\"", "null", "true"}) {
      expect_refused(std::string(document) + tail);
    }
  }
  expect_refused("1 2");
  for (const char* document : {"[]", "{}", "1", "\"s\"", "null"}) {
    expect_refused(document + std::string(1, '\0'), "zero byte after the document");
  }
  expect_refused(std::string("[\0]", 3), "zero byte inside");
  expect_refused(std::string("\0[]", 3), "zero byte before");
}

TEST(Json_Reader, raw_control_bytes_in_strings_are_refused) {
  for (int byte = 0; byte < 0x20; ++byte) {
    const std::string text = std::string("\"a") + static_cast<char>(byte) + "b\"";
    expect_refused(text, "byte " + std::to_string(byte));
    expect_refused("{" + text + ":1}", "in a key, byte " + std::to_string(byte));
  }
}

TEST(Json_Reader, lone_surrogates_are_refused) {
  for (const char* text :
       {R"("\ud800")", R"("\udbff")", R"("\udc00")", R"("\udfff")", R"("\ud800\ud800")",
        R"("\udc00\ud800")", R"("\ud800x")", R"("\ud800\n")", R"("\ud800\u0041")", R"("\ud83d ")",
        R"(["\ud83d",1])", R"({"\ud83d":1})"}) {
    expect_refused(text);
  }
}

TEST(Json_Reader, invalid_utf8_is_refused) {
  const std::string bad[] = {
      "\x80",              // continuation without a start
      "\xbf",              //
      "\xc3",              // cut off
      "\xe2\x82",          //
      "\xf0\x9f\x92",      //
      "\xc3(",             // no continuation
      "\xe2(\xac",         //
      "\xc0\x80",          // overlong
      "\xc1\xbf",          //
      "\xe0\x9f\xbf",      //
      "\xf0\x8f\xbf\xbf",  //
      "\xed\xa0\x80",      // surrogates
      "\xed\xbf\xbf",      //
      "\xf4\x90\x80\x80",  // beyond U+10FFFF
      "\xf8\x88\x80\x80\x80",
      "\xfe",
      "\xff",
  };
  for (const std::string& bytes : bad) {
    expect_refused("\"" + bytes + "\"");
    expect_refused("[\"" + std::string(200, 'x') + bytes + std::string(200, 'y') + "\"]");
    expect_refused("{\"" + bytes + "\":1}");
    expect_refused("[1]" + bytes);
    expect_refused(bytes + "[1]");
  }
}

TEST(Json_Reader, a_document_cut_off_at_any_byte_is_refused) {
  const std::string document =
      "{\"list\":[null,true,false,-12,18446744073709551615,1.5e-3,\"a\\u00e9\\n\xe2\x82\xac\",[],"
      "{}],\"object\":{\"k\":{\"deep\":[[[\"x\"]]]}},\"long\":\"" +
      std::string(100, 'l') + "\"}";
  Value value;
  ASSERT_TRUE(reads(document, value));
  for (std::size_t size = 0; size < document.size(); ++size) {
    expect_refused(document.substr(0, size), "cut off at " + std::to_string(size));
  }
}

TEST(Json_Reader, what_stands_in_the_spare_capacity_does_not_count) {
  const std::vector<std::pair<std::string, std::size_t>> cuts = {
      {"12345678", 2}, {"[1]]]]]]", 3}, {"\"abc\"def\"", 5}, {"true false", 4}, {"-17.25", 3}};
  for (const auto& [all, size] : cuts) {
    std::string text;
    text.reserve(256);
    text = all;
    text.resize(size);
    Value value;
    Value expected;
    EXPECT_TRUE(read(text, value)) << text;
    EXPECT_TRUE(read(all.substr(0, size), expected));
    EXPECT_EQ(value, expected);
  }
  std::string text;
  text.reserve(256);
  text = "[1,2]";
  text.resize(3);  // the closing bracket now lies behind the end
  Value value = untouched();
  EXPECT_FALSE(read(text, value));
  EXPECT_EQ(value, untouched());
}

TEST(Json_Reader, of_members_with_the_same_key_the_last_wins) {
  Value value;
  ASSERT_TRUE(reads(R"({"a":1,"a":2})", value));
  EXPECT_EQ(write(value), R"({"a":2})");
  ASSERT_TRUE(reads(R"({"b":{"x":1,"y":2},"a":[1,2],"b":{"z":[3]},"a":"s","c":0,"a":[4]})", value));
  EXPECT_EQ(write(value), R"({"a":[4],"b":{"z":[3]},"c":0})");
  ASSERT_TRUE(
      reads(R"({"a":"a text that is too long to be kept inside","a":"so is this one, hopefully"})",
            value));
  EXPECT_EQ(value.get_obj().at("a").get_str(), "so is this one, hopefully");
}

TEST(Json_Reader, keys_come_out_sorted_whatever_their_order) {
  std::vector<std::string> keys;
  keys.reserve(200);
  for (int i = 0; i < 200; ++i)
    keys.push_back("k" + std::to_string(i * 7919 % 1000));
  const auto document = [](const std::vector<std::string>& order) {
    std::string text;
    for (const std::string& key : order) {
      text += text.empty() ? "{\"" : ",\"";
      text += key;
      text += "\":\"";
      text += key;
      text += "\"";
    }
    return text + "}";
  };
  Value shuffled;
  ASSERT_TRUE(reads(document(keys), shuffled));
  std::sort(keys.begin(), keys.end());
  EXPECT_EQ(write(shuffled), document(keys));
  Value sorted;
  ASSERT_TRUE(reads(document(keys), sorted));
  EXPECT_EQ(sorted, shuffled);
  std::reverse(keys.begin(), keys.end());
  Value reversed;
  ASSERT_TRUE(reads(document(keys), reversed));
  EXPECT_EQ(reversed, shuffled);
}

TEST(Json_Reader, zero_bytes_and_empty_keys_are_content) {
  Value value;
  ASSERT_TRUE(reads(R"({"":"\u0000","a\u0000b":1})", value));
  EXPECT_EQ(value.get_obj().at("").get_str(), std::string(1, '\0'));
  EXPECT_EQ(value.get_obj().at(std::string("a\0b", 3)).get_int(), 1);
}

TEST(Json_Reader, depth_256_is_read_and_257_refused) {
  struct Nesting {
    std::string open, inside, close;
  };
  const std::vector<Nesting> nestings = {{"[", "1", "]"},
                                         {"[1,", "\"x\"", ",[],{}]"},
                                         {"{\"a\":", "null", "}"},
                                         {"{\"a\":0,\"b\":", "{\"c\":1}", ",\"d\":{}}"}};
  for (const Nesting& nesting : nestings) {
    const int inside = nesting.inside.front() == '{' ? 1 : 0;
    const auto document = [&nesting](int levels) {
      return repeat(nesting.open, levels) + nesting.inside + repeat(nesting.close, levels);
    };
    // Siblings are containers too.
    const int siblings = nesting.close.size() > 1 ? 1 : 0;
    const int deepest = max_depth - std::max(inside, siblings);
    Value value;
    EXPECT_TRUE(reads(document(deepest), value)) << nesting.open;
    EXPECT_EQ(Value(value), value);
    EXPECT_FALSE(write(value).empty());
    expect_refused(document(deepest + 1), nesting.open);
  }
  Value value;
  EXPECT_TRUE(reads(repeat("[", max_depth) + repeat("]", max_depth), value));
  EXPECT_EQ(value, nested_arrays(max_depth));
  expect_refused(repeat("[", max_depth + 1) + repeat("]", max_depth + 1));
  EXPECT_TRUE(reads(repeat("{\"a\":", max_depth - 1) + "{}" + repeat("}", max_depth - 1), value));
  EXPECT_EQ(value, nested_objects(max_depth));
  expect_refused(repeat("{\"a\":", max_depth) + "{}" + repeat("}", max_depth));
}

TEST(Json_Reader, a_hundred_thousand_brackets_are_refused) {
  for (const char* open : {"[", "{\"a\":", "[{\"a\":"}) {
    expect_refused(repeat(open, 100000));
  }
  expect_refused(repeat("[", 100000) + repeat("]", 100000));
  expect_refused(repeat("]", 100000));
}

class Document_Size_Limit : public testing::Test {
 public:
  ~Document_Size_Limit() override { json_spirit::set_max_document_size(before_); }

 private:
  const std::size_t before_ = json_spirit::max_document_size();
};

TEST_F(Document_Size_Limit, is_256_mib_until_set) {
  EXPECT_EQ(json_spirit::max_document_size(), std::size_t{256} << 20);
}

TEST_F(Document_Size_Limit, holds_to_the_byte) {
  json_spirit::set_max_document_size(10);
  Value value;
  EXPECT_TRUE(reads("[1,2,3,45]", value));
  expect_refused("[1,2,3,456]");
  std::string error;
  EXPECT_FALSE(read("[1,2,3,456]", value, error));
  EXPECT_EQ(error, "the document is too large");
  json_spirit::set_max_document_size(0);
  expect_refused("1");
}

TEST(Json_Reader, documents_around_the_size_of_a_kept_parser) {
  constexpr std::size_t mib = 1U << 20;
  for (const std::size_t size : {mib - 1, mib, mib + 1, 3 * mib}) {
    const std::string text = "[\"" + std::string(size - 4, 'x') + "\"]";
    ASSERT_EQ(text.size(), size);
    Value value;
    ASSERT_TRUE(reads(text, value)) << size;
    EXPECT_EQ(write(value), text);
    expect_refused(text.substr(0, size - 1));
  }
}

TEST(Json_Reader, the_size_of_one_document_does_not_matter_to_the_next) {
  for (const int count : {1, 10, 5000, 3, 120000, 2, 1}) {
    const std::string text = "[1" + repeat(",{\"k\":\"v\"}", count) + "]";
    Value value;
    ASSERT_TRUE(reads(text, value)) << count;
    EXPECT_EQ(write(value), text);
    expect_refused(text + "]");
  }
}

TEST(Json_Reader, says_why_without_quoting_the_text) {
  for (const char* text :
       {"", "[secret", "\"secret", "{\"secret\":1e400}", "[\"secret\\ud800\"]"}) {
    Value value = untouched();
    std::string error = "before";
    EXPECT_FALSE(read(text, value, error)) << text;
    EXPECT_FALSE(error.empty());
    EXPECT_NE(error, "before");
    EXPECT_EQ(error.find("secret"), std::string::npos) << error;
    EXPECT_EQ(value, untouched());
  }
  Value value;
  std::string error = "before";
  EXPECT_TRUE(read("[]", value, error));
  EXPECT_EQ(error, "before");
}

TEST(Json_Reader, replaces_what_the_value_held) {
  Value value = nested_arrays(1000);
  EXPECT_TRUE(read("7", value));
  EXPECT_EQ(value, Value(7));
}

TEST(Json_Reader, many_threads_read_and_write_at_once) {
  std::string large = "[0";
  for (int i = 1; i < 30000; ++i)
    large += ",{\"id\":" + std::to_string(i) + ",\"name\":\"volume with a long name\"}";
  large += "]";
  ASSERT_GT(large.size(), std::size_t{1} << 20);
  const std::string small = R"({"a":[1,2.5,"x"],"b":{"c":null}})";
  std::vector<std::thread> threads;
  std::vector<int> good(4);
  threads.reserve(good.size());
  for (int& count : good) {
    threads.emplace_back([&large, &small, &count] {
      for (int round = 0; round < 100; ++round) {
        Value value;
        const std::string& text = round % 100 == 50 ? large : small;
        count += read(text, value) && write(value) == text && !read("[1,", value) ? 1 : 0;
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(good, std::vector<int>(4, 100));
}

// A thread's objects are destroyed in reverse order: this one was made before the reader's own, so
// it reads after they are gone.
struct Late_Reader {
  bool* result = nullptr;
  ~Late_Reader() {
    Value value;
    *result = read("[1,2]", value) && write(value) == "[1,2]" && !read("[1,2", value);
  }
};

TEST(Json_Reader, reads_also_while_its_thread_ends) {
  bool result = false;
  std::thread([&result] {
    thread_local Late_Reader late;
    late.result = &result;
    Value value;
    EXPECT_TRUE(read("[]", value));
  }).join();
  EXPECT_TRUE(result);
}

}  // namespace
