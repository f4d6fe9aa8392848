#include "service/api/text.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

#include "platform/text/uuid.h"
#include "service/app/access_key.h"
#include "service/http/access_log.h"
#include "tests/support/temp_directory.h"

namespace zqpool::service {
namespace {

TEST(Text, printable_leaves_nothing_that_ends_a_line_or_a_field) {
  EXPECT_EQ(printable("a b~"), "a b~");
  EXPECT_EQ(printable("a\r\nb\t\x7f\x1b[0m"), "a\\x0D\\x0Ab\\x09\\x7F\\x1B[0m");
  EXPECT_EQ(printable("\" \\"), "\\\" \\\\");
  EXPECT_EQ(printable("\xc3\xa9"), "\\xC3\\xA9");
  EXPECT_EQ(printable(std::string("\0", 1)), "\\x00");
}

TEST(Text, makes_random_uuids_of_version_4) {
  std::set<std::string> made;
  for (int i = 0; i < 1000; ++i) {
    const std::string uuid = random_uuid();
    EXPECT_TRUE(text::is_uuid(uuid));
    EXPECT_EQ(uuid[14], '4');
    EXPECT_NE(std::string("89ab").find(uuid[19]), std::string::npos);
    EXPECT_EQ(uuid, lower_case(uuid));
    made.insert(uuid);
  }
  EXPECT_EQ(made.size(), 1000U);
}

TEST(Text, tells_the_time_to_the_millisecond) {
  const std::string now = utc_now();
  ASSERT_EQ(now.size(), std::string("2026-11-21T09:30:00.123Z").size());
  EXPECT_EQ(now[10], 'T');
  EXPECT_EQ(now[19], '.');
  EXPECT_EQ(now.back(), 'Z');
}

TEST(Access_Key, lets_in_the_key_and_nothing_else) {
  const Access_Key key("0f3a9c57");
  EXPECT_TRUE(key.matches("0f3a9c57"));
  for (const char* wrong : {"", "0f3a9c5", "0f3a9c578", "0F3A9C57", "0f3a9c56", " 0f3a9c57"}) {
    EXPECT_FALSE(key.matches(wrong)) << wrong;
  }
  EXPECT_FALSE(key.matches(std::string("0f3a9c57\0", 9)));
}

TEST(Access_Key, is_read_from_a_file_that_holds_nothing_else) {
  const test::Temp_Directory directory;
  EXPECT_EQ(read_secret(directory.write("key", "k1\n"), "access key"), "k1");
  const std::string file = directory.write("key", "k1\nk2\n");
  try {
    read_secret(file, "access key");
    FAIL() << "two lines are no key";
  } catch (const std::runtime_error& error) {
    EXPECT_EQ(error.what(), "cannot read an access key from '" + file +
                                "': it is more than one line of printable ASCII");
  }
}

TEST(Access_Log, hides_what_may_be_a_secret) {
  EXPECT_EQ(without_secrets("/p"), "/p");
  EXPECT_EQ(without_secrets("/p?"), "/p?");
  EXPECT_EQ(without_secrets("/p?uuid=1&url=a%20b"), "/p?uuid=1&url=a%20b");
  EXPECT_EQ(without_secrets("/p?access_key=abc&uuid=1"), "/p?access_key=***&uuid=1");
  EXPECT_EQ(without_secrets("/p?uuid=1&SECRET_ID=abc&token=&x"),
            "/p?uuid=1&SECRET_ID=***&token=***&x");
  EXPECT_EQ(without_secrets("/p?acces%73_%6Bey=abc"), "/p?acces%73_%6Bey=***");
  EXPECT_EQ(without_secrets("/p?broken%zz=abc"), "/p?broken%zz=***");
  EXPECT_EQ(without_secrets("/p?my+password=abc=def&&b=1"), "/p?my+password=***&&b=1");
}

TEST(Access_Log, writes_one_line_of_fixed_form) {
  Access_Record record;
  record.peer = "127.0.0.1:5";
  record.request_id = "id-1";
  record.method = "GET";
  record.target = "/p?q=1";
  record.status = 200;
  record.bytes = 17;
  record.duration = std::chrono::microseconds(1234);
  EXPECT_EQ(Access_Log::line(record, "NOW"),
            "NOW peer=127.0.0.1:5 id=id-1 \"GET /p?q=1\" status=200 bytes=17 ms=1.234 fault=-");
  record.fault = "cut";
  record.note = "why";
  EXPECT_EQ(Access_Log::line(record, "NOW"),
            "NOW peer=127.0.0.1:5 id=id-1 \"GET /p?q=1\" status=200 bytes=17 ms=1.234 fault=cut "
            "note=\"why\"");
  EXPECT_EQ(Access_Log::line(Access_Record(), "NOW"),
            "NOW peer=- id=- \"- -\" status=0 bytes=0 ms=0.000 fault=-");
}

TEST(Access_Log, cannot_be_made_to_hold_a_forged_line) {
  Access_Record record;
  record.method = "GET\" status=200\n2026 peer=x";
  record.target = "/\r\n\"forged\" \x1b[31m";
  record.request_id = "a\nb";
  const std::string line = Access_Log::line(record, "NOW");
  for (const char c : line) {
    EXPECT_TRUE(c >= 0x20 && c < 0x7f);
  }
  EXPECT_NE(line.find("GET\\\" status=200\\x0A2026 peer=x /\\x0D\\x0A\\\"forged\\\""),
            std::string::npos)
      << line;
}

TEST(Access_Log, shortens_a_target_that_is_too_long) {
  Access_Record record;
  record.target = "/" + std::string(100000, 'x');
  const std::string line = Access_Log::line(record, "NOW");
  EXPECT_LT(line.size(), 4300U);
  EXPECT_NE(line.find("x...(95905 more)\""), std::string::npos) << line.substr(4000);
}

}  // namespace
}  // namespace zqpool::service
