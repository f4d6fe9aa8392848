#include <ace/Log_Msg.h>
#include <ace/Log_Msg_Backend.h>
#include <ace/Log_Record.h>
#include <gtest/gtest.h>

#include <new>
#include <string>

#include "tests/utils/failing_memory.h"
#include "utils/support/log.h"
#include "utils/support/string_sprintf.h"

namespace zqpool::test {
namespace {

using Fail = Failing_Memory::Fail;

TEST(Memory, string_sprintf_append_without_memory_leaves_the_string) {
  const std::string text(1000, 'x');
  for (long number = 1; number <= 2; ++number) {
    std::string out = "start";
    bool thrown = false;
    {
      const Failing_Memory memory(Fail::once, number);
      try {
        string_sprintf_append(out, "%s", text.c_str());
      } catch (const std::bad_alloc&) {
        thrown = true;
      }
    }
    EXPECT_TRUE(thrown) << number;
    EXPECT_EQ(out, "start");
  }
}

TEST(Memory, string_sprintf_without_memory_leaves_an_empty_string) {
  std::string out = "start";
  const std::string text(1000, 'x');
  bool thrown = false;
  {
    const Failing_Memory memory(Fail::once, 1);
    try {
      string_sprintf(out, "%s", text.c_str());
    } catch (const std::bad_alloc&) {
      thrown = true;
    }
  }
  EXPECT_TRUE(thrown);
  EXPECT_EQ(out, "");
}

/// Counts the lines that reach it.
class Counting_Sink : public ACE_Log_Msg_Backend {
 public:
  Counting_Sink() : before_(ACE_Log_Msg::msg_backend(this)) {
    ACE_Log_Msg::instance()->clr_flags(ACE_Log_Msg::STDERR);
    ACE_Log_Msg::instance()->set_flags(ACE_Log_Msg::CUSTOM);
  }
  ~Counting_Sink() override {
    ACE_Log_Msg::instance()->clr_flags(ACE_Log_Msg::CUSTOM);
    ACE_Log_Msg::instance()->set_flags(ACE_Log_Msg::STDERR);
    ACE_Log_Msg::msg_backend(before_);
  }
  int open(const char*) override { return 0; }
  int reset() override { return 0; }
  int close() override { return 0; }
  ssize_t log(ACE_Log_Record& record) override {
    if (record.msg_data() != nullptr) ++lines;
    return 0;
  }

  int lines = 0;

 private:
  ACE_Log_Msg_Backend* before_;
};

TEST(Memory, line_takes_none_but_the_log_s_own) {
  Counting_Sink sink;
  const std::string text(100000, 'x');
  ZQ_ERROR("warm\n");
  const Failing_Memory plain;
  ACE_Log_Msg::instance()->log(LM_ERROR, "%s", "short\n");
  const long of_log = plain.count();
  const Failing_Memory ours;
  ZQ_ERROR("%s %d\n", text.c_str(), 7);
  EXPECT_EQ(ours.count(), of_log);
  EXPECT_EQ(sink.lines, 3);
}

TEST(Memory, line_without_memory_is_lost_and_does_no_harm) {
  Counting_Sink sink;
  ZQ_ERROR("warm\n");
  {
    const Failing_Memory memory(Fail::from_then_on, 1);
    EXPECT_FALSE(ZQ_ERROR("%s\n", "lost"));
    EXPECT_TRUE(memory.failed());
  }
  EXPECT_EQ(sink.lines, 1);
  ZQ_ERROR("again\n");
  EXPECT_EQ(sink.lines, 2);
}

}  // namespace
}  // namespace zqpool::test
