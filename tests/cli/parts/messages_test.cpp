#include "cli/support/messages.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <future>
#include <string>

#include "tests/support/sockets.h"

namespace zqpool::cli {
namespace {

using test::File_Descriptor;

TEST(Write_All, waits_for_the_reader_of_a_non_blocking_pipe) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  const File_Descriptor reader(ends[0]);
  File_Descriptor writer(ends[1]);
  ASSERT_EQ(fcntl(writer.get(), F_SETFL, O_NONBLOCK), 0);
  // Far more than a pipe holds.
  const std::string text(4 << 20, 'x');
  auto read_all = std::async(std::launch::async, [&reader] {
    std::string got;
    char buffer[4096];
    for (ssize_t n = 0; (n = read(reader.get(), buffer, sizeof buffer)) > 0;) {
      got.append(buffer, static_cast<std::size_t>(n));
    }
    return got;
  });
  EXPECT_TRUE(write_all(writer.get(), text));
  writer.close();
  EXPECT_TRUE(read_all.get() == text);
}

TEST(Write_All, reports_an_error) {
  const File_Descriptor full(open("/dev/full", O_WRONLY | O_CLOEXEC));
  errno = 0;
  EXPECT_FALSE(write_all(full.get(), "x"));
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_TRUE(write_all(full.get(), ""));
}

}  // namespace
}  // namespace zqpool::cli
