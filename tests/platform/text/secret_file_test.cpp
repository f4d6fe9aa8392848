#include "platform/text/secret_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <stdexcept>
#include <string>

#include "tests/support/temp_directory.h"

namespace zqpool::text {
namespace {

/// Why a secret file with this content is refused; "" when it is not.
std::string refusal_of(const std::string& content) {
  const test::Temp_Directory directory;
  try {
    read_secret_file(directory.write("key", content));
    return "";
  } catch (const std::runtime_error& error) {
    return error.what();
  }
}

TEST(Secret_File, holds_one_secret_with_or_without_a_line_end) {
  const test::Temp_Directory directory;
  for (const char* content : {"k1 k2", "k1 k2\n", "k1 k2\r\n"})
    EXPECT_EQ(read_secret_file(directory.write("key", content)).secret, "k1 k2");
  const std::string longest(max_secret_size, 'k');
  EXPECT_EQ(read_secret_file(directory.write("key", longest + "\r\n")).secret, longest);
}

TEST(Secret_File, says_what_is_wrong) {
  EXPECT_EQ(refusal_of(""), "it is empty");
  EXPECT_EQ(refusal_of("\r\n"), "it is empty");
  EXPECT_EQ(refusal_of("k1\nk2\n"), "it is more than one line of printable ASCII");
  EXPECT_EQ(refusal_of("k1\n\n"), "it is more than one line of printable ASCII");
  EXPECT_EQ(refusal_of("k\xc3\xa9"), "it is more than one line of printable ASCII");
  EXPECT_EQ(refusal_of(std::string("k\0", 2)), "it is more than one line of printable ASCII");
  EXPECT_EQ(refusal_of(" k1"), "it begins or ends with a blank");
  EXPECT_EQ(refusal_of("k1 \n"), "it begins or ends with a blank");
  EXPECT_EQ(refusal_of(std::string(max_secret_size + 1, 'k')), "it is longer than 4096 bytes");
  EXPECT_EQ(refusal_of(std::string(1U << 20, 'k')), "it is longer than 4096 bytes");
}

TEST(Secret_File, is_a_file_that_can_be_read) {
  const test::Temp_Directory directory;
  const auto why = [](const std::string& file) -> std::string {
    try {
      read_secret_file(file);
      return "";
    } catch (const std::runtime_error& error) {
      return error.what();
    }
  };
  EXPECT_EQ(why(directory.path("absent")), "No such file or directory");
  EXPECT_EQ(why(directory.path()), "Is a directory");
}

TEST(Secret_File, tells_when_every_user_may_read_or_write_it) {
  const test::Temp_Directory directory;
  const std::string file = directory.write("key", "k1");
  const auto is_open = [&](mode_t mode) {
    EXPECT_EQ(chmod(file.c_str(), mode), 0);
    return read_secret_file(file).open_to_others;
  };
  EXPECT_FALSE(is_open(0600));
  EXPECT_FALSE(is_open(0640));
  EXPECT_TRUE(is_open(0644));
  EXPECT_TRUE(is_open(0602));
}

TEST(Secret_File, may_be_a_pipe) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  ASSERT_EQ(write(ends[1], "k1\n", 3), 3);
  close(ends[1]);
  const Secret_File read = read_secret_file("/dev/fd/" + std::to_string(ends[0]));
  close(ends[0]);
  EXPECT_EQ(read.secret, "k1");
  EXPECT_FALSE(read.open_to_others);
}

}  // namespace
}  // namespace zqpool::text
