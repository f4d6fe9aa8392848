#include <gtest/gtest.h>

#include <string>

#include "platform/text/hex.h"
#include "platform/text/host_port.h"
#include "platform/text/percent.h"
#include "platform/text/utf8.h"
#include "platform/text/uuid.h"

namespace zqpool::text {
namespace {

TEST(Hex, reads_digits_of_either_case) {
  EXPECT_EQ(hex_value('0'), 0);
  EXPECT_EQ(hex_value('9'), 9);
  EXPECT_EQ(hex_value('a'), 10);
  EXPECT_EQ(hex_value('F'), 15);
  for (const char c : {'/', ':', '@', 'G', '`', 'g', ' ', '\0', '\xff'})
    EXPECT_EQ(hex_value(c), -1);
}

TEST(Hex, writes_two_digits_a_byte) {
  std::string out;
  append_hex(out, 0x0f);
  append_hex(out, 0xa0, upper_hex_digits);
  append_hex(out, 0xff);
  EXPECT_EQ(out, "0fA0ff");
}

TEST(Percent, knows_an_encoding) {
  for (const char* text : {"%20", "%fF", "%00rest"})
    EXPECT_TRUE(starts_with_percent_encoding(text)) << text;
  for (const char* text : {"", "%", "%2", "%g0", "%0g", "20%", "%%20"})
    EXPECT_FALSE(starts_with_percent_encoding(text)) << text;
}

TEST(Percent, encodes_a_byte_in_upper_case) {
  std::string out = "a";
  append_percent_encoded(out, '/');
  append_percent_encoded(out, '\xc3');
  append_percent_encoded(out, '\0');
  EXPECT_EQ(out, "a%2F%C3%00");
}

TEST(Percent, decodes_encodings_and_plus) {
  EXPECT_EQ(decode_query_text("a+b%20c%2F%c3%A9%00"), std::string("a b c/\xc3\xa9\0", 9));
  EXPECT_EQ(decode_query_text(""), "");
  for (const char* bad : {"%", "%2", "a%2", "%zz", "%2g", "%g2", "%%20"})
    EXPECT_FALSE(decode_query_text(bad)) << bad;
}

TEST(UTF8, takes_well_formed_text_only) {
  EXPECT_TRUE(is_utf8(""));
  EXPECT_TRUE(is_utf8("plain"));
  EXPECT_TRUE(is_utf8("\xc3\xa9 \xe2\x82\xac \xf0\x9f\x92\xbe \xf4\x8f\xbf\xbf \xed\x9f\xbf"));
  EXPECT_TRUE(is_utf8(std::string("\0", 1)));
  EXPECT_FALSE(is_utf8("\x80"));
  EXPECT_FALSE(is_utf8("\xc0\xaf"));          // overlong
  EXPECT_FALSE(is_utf8("\xe0\x9f\xbf"));      // overlong
  EXPECT_FALSE(is_utf8("\xf0\x8f\xbf\xbf"));  // overlong
  EXPECT_FALSE(is_utf8("\xed\xa0\x80"));      // surrogate
  EXPECT_FALSE(is_utf8("\xf4\x90\x80\x80"));  // beyond U+10FFFF
  EXPECT_FALSE(is_utf8("\xc3"));
  EXPECT_FALSE(is_utf8("\xe2\x82"));
  EXPECT_FALSE(is_utf8("\xe2\x28\xa1"));
  EXPECT_FALSE(is_utf8("\xff"));
}

TEST(Host_Port, puts_brackets_around_an_ipv6_address_alone) {
  EXPECT_EQ(host_port("pool.example", 8480), "pool.example:8480");
  EXPECT_EQ(host_port("127.0.0.1", 0), "127.0.0.1:0");
  EXPECT_EQ(host_port("::1", 65535), "[::1]:65535");
  EXPECT_EQ(bracketed_host("fe80::1%eth0"), "[fe80::1%eth0]");
  EXPECT_EQ(bracketed_host(""), "");
}

TEST(Host_Port, takes_brackets_off_in_pairs) {
  EXPECT_EQ(without_brackets("[::1]"), "::1");
  EXPECT_EQ(without_brackets("::1"), "::1");
  EXPECT_EQ(without_brackets("[]"), "");
  for (const char* text : {"", "[", "]", "[::1", "::1]"})
    EXPECT_EQ(without_brackets(text), text);
}

TEST(UUID, has_hyphens_in_their_places) {
  EXPECT_TRUE(is_uuid("6f1c2f0e-5d0b-4b6e-9a55-0d6a4f1f7a01"));
  EXPECT_TRUE(is_uuid("6F1C2F0E-5D0B-4B6E-9A55-0D6A4F1F7A01"));
  EXPECT_FALSE(is_uuid(""));
  EXPECT_FALSE(is_uuid("6f1c2f0e-5d0b-4b6e-9a55-0d6a4f1f7a0"));
  EXPECT_FALSE(is_uuid("6f1c2f0e-5d0b-4b6e-9a55-0d6a4f1f7a012"));
  EXPECT_FALSE(is_uuid("6f1c2f0e-5d0b-4b6e-9a550-d6a4f1f7a01"));
  EXPECT_FALSE(is_uuid("6f1c2f0g-5d0b-4b6e-9a55-0d6a4f1f7a01"));
}

}  // namespace
}  // namespace zqpool::text
