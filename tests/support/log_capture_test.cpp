#include "tests/support/log_capture.h"

#include <ace/Log_Msg.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

namespace zqpool::test {
namespace {

using testing::ElementsAre;
using testing::EndsWith;

TEST(Log_Capture, collects_priority_text_and_place) {
  Log_Capture log;
  ACE_ERROR((LM_ERROR, "bad %d\n", 7));
  ACE_DEBUG((LM_INFO, "fine\n"));
  const std::vector<Log_Line> lines = log.take();
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines[0].priority, "LM_ERROR");
  EXPECT_EQ(lines[0].text, "bad 7\n");
  EXPECT_TRUE(lines[0].has_place());
  EXPECT_THAT(lines[0].file, EndsWith("log_capture_test.cpp"));
  EXPECT_EQ(lines[1].priority, "LM_INFO");
  EXPECT_TRUE(log.lines().empty());
}

TEST(Log_Capture, a_line_without_a_place_does_not_get_the_one_before) {
  Log_Capture log;
  ACE_ERROR((LM_ERROR, "with\n"));
  ACE_LOG_MSG->log(LM_ERROR, "without\n");
  const std::vector<Log_Line> lines = log.lines();
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_TRUE(lines[0].has_place());
  EXPECT_FALSE(lines[1].has_place());
}

TEST(Log_Capture, collects_from_every_thread) {
  Log_Capture log;
  std::thread other([] { ACE_ERROR((LM_WARNING, "from another thread\n")); });
  other.join();
  EXPECT_THAT(log.texts("LM_WARNING"), ElementsAre("from another thread\n"));
  EXPECT_EQ(log.all(), "from another thread\n");
}

TEST(Log_Capture, puts_the_log_back_as_it_was) {
  const unsigned long before = ACE_LOG_MSG->flags();
  ACE_Log_Msg_Backend* const backend = ACE_Log_Msg::msg_backend();
  {
    Log_Capture outer;
    {
      Log_Capture inner;
      ACE_ERROR((LM_ERROR, "inner\n"));
      EXPECT_EQ(inner.lines().size(), 1U);
    }
    ACE_ERROR((LM_ERROR, "outer\n"));
    EXPECT_THAT(outer.texts("LM_ERROR"), ElementsAre("outer\n"));
  }
  EXPECT_EQ(ACE_LOG_MSG->flags(), before);
  EXPECT_EQ(ACE_Log_Msg::msg_backend(), backend);
}

}  // namespace
}  // namespace zqpool::test
