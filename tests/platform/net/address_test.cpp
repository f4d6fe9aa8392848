#include "platform/net/address.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(ip_extended_format, ipv4_stays) {
  std::string text = "old";
  EXPECT_NE(ip_extended_format("10.0.0.5", text), -1);
  EXPECT_EQ(text, "10.0.0.5");
}

TEST(ip_extended_format, ipv6_gets_brackets_once) {
  for (const char* host : {"2001:db8::7", "[2001:db8::7]"}) {
    std::string text;
    EXPECT_EQ(ip_extended_format(host, text), 0);
    EXPECT_EQ(text, "[2001:db8::7]");
  }
  std::string text;
  EXPECT_EQ(ip_extended_format("fe80::1%eth0", text), 0);
  EXPECT_EQ(text, "[fe80::1%eth0]");
}

TEST(ip_extended_format, names_and_nonsense_are_refused_and_leave_the_text) {
  std::string text = "old";
  EXPECT_EQ(ip_extended_format(nullptr, text), -1);
  for (const char* host : {"", "localhost", "storage.example", "1.2.3", "1.2.3.4.5", "256.1.1.1",
                           "01.2.3.4", "1.2.3.4 ", "1.2.3.4:80", "[1.2.3.4]", "[::1", "::1]", "[]",
                           "[::1]:80", ":::", "fe80::1%", "fe80::1%a/b"}) {
    EXPECT_EQ(ip_extended_format(host, text), -1) << host;
    EXPECT_EQ(text, "old") << host;
  }
}

std::string rendered(const char* address, bool with_port) {
  return ACE_Addr_String(ACE_INET_Addr(address), with_port).c_str();
}

TEST(ACE_Addr_String, with_port) {
  EXPECT_EQ(rendered("192.0.2.1:3260", true), "192.0.2.1:3260");
  EXPECT_EQ(rendered("[2001:db8::7]:3260", true), "[2001:db8::7]:3260");
  EXPECT_EQ(rendered("192.0.2.1:65535", true), "192.0.2.1:65535");
}

TEST(ACE_Addr_String, without_port) {
  EXPECT_EQ(rendered("192.0.2.1:3260", false), "192.0.2.1");
  EXPECT_EQ(rendered("[2001:db8::7]:3260", false), "2001:db8::7");
}

TEST(ACE_Addr_String, resolved_name_shows_as_plain_ipv4_or_bracketed_ipv6) {
  const std::string text = rendered("localhost:3260", true);
  EXPECT_TRUE(text == "127.0.0.1:3260" || text == "[::1]:3260") << text;
}

TEST(ACE_Addr_String, mapped_ipv4_shows_as_ipv4) {
  EXPECT_EQ(rendered("[::ffff:192.0.2.1]:3260", true), "192.0.2.1:3260");
  EXPECT_EQ(rendered("[::ffff:192.0.2.1]:3260", false), "192.0.2.1");
}

TEST(ACE_Addr_String, unset_address) {
  const std::string text = ACE_Addr_String(ACE_INET_Addr(), true).c_str();
  EXPECT_TRUE(text == "[::]:0" || text == "0.0.0.0:0") << text;
}

TEST(ACE_Addr_String, interface_number_of_a_link_local_address) {
  EXPECT_EQ(rendered("[fe80::1%1]:3260", true), "[fe80::1%1]:3260");
}

}  // namespace
