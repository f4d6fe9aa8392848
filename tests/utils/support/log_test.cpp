#include "utils/support/log.h"

#include <ace/Log_Msg.h>
#include <ace/Log_Msg_Backend.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <new>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/log_capture.h"

namespace zqpool::test {
namespace {

using zqpool::detail::Source_Location;

bool is_utf8(const std::string& text) {
  for (std::size_t at = 0; at < text.size();) {
    const auto byte = static_cast<unsigned char>(text[at]);
    const std::size_t length = byte < 0x80 ? 1 : byte < 0xe0 ? 2 : byte < 0xf0 ? 3 : 4;
    if ((byte >= 0x80 && byte < 0xc2) || byte > 0xf4 || at + length > text.size()) return false;
    for (std::size_t i = 1; i < length; ++i) {
      if ((static_cast<unsigned char>(text[at + i]) & 0xc0U) != 0x80U) return false;
    }
    at += length;
  }
  return true;
}

// The longest line that ACE's record holds, the newline and what ACE puts before the text included.
constexpr std::size_t max_line = 4095;

/// Logs `text` (without its newline) on this thread. Returns the line, which must be whole, or cut
/// as promised, with `prefix` before it.
std::string check_line(const std::string& text, const std::string& prefix = "") {
  Log_Capture log;
  ZQ_ERROR("%s\n", text.c_str());
  const std::vector<Log_Line> lines = log.take();
  EXPECT_EQ(lines.size(), 1U);
  if (lines.size() != 1) return "";
  EXPECT_LE(lines[0].text.size(), max_line);
  EXPECT_EQ(lines[0].text.substr(0, prefix.size()), prefix);
  std::string line = lines[0].text.substr(prefix.size());
  if (prefix.size() + text.size() < max_line) {
    EXPECT_EQ(line, text + "\n");
    return line;
  }

  const std::size_t mark = line.rfind("... (");
  EXPECT_NE(mark, std::string::npos) << "cut without a mark at " << line.size();
  if (mark == std::string::npos) return line;
  const std::string kept = line.substr(0, mark);
  EXPECT_EQ(kept, text.substr(0, mark));
  // At most the digits of a larger count and a part of a character are left free.
  EXPECT_GE(prefix.size() + line.size(), max_line - 12);
  EXPECT_EQ(line.substr(mark), "... (" + std::to_string(text.size() - mark) + " bytes more)\n");
  EXPECT_TRUE(is_utf8(line));
  return line;
}

/// The process's priority mask, put back at the end of the scope.
class Only_Priorities {
 public:
  explicit Only_Priorities(unsigned long mask)
      : before_(ACE_Log_Msg::instance()->priority_mask(mask, ACE_Log_Msg::PROCESS)) {}
  ~Only_Priorities() { ACE_Log_Msg::instance()->priority_mask(before_, ACE_Log_Msg::PROCESS); }
  Only_Priorities(const Only_Priorities&) = delete;
  Only_Priorities& operator=(const Only_Priorities&) = delete;

 private:
  unsigned long before_;
};

Log_Line only_line(Log_Capture& log) {
  const std::vector<Log_Line> lines = log.take();
  EXPECT_EQ(lines.size(), 1U);
  return lines.empty() ? Log_Line() : lines[0];
}

TEST(Log, records_priority_file_and_line_and_yields_false) {
  Log_Capture log;
  const int line = __LINE__ + 1;
  const bool result = ZQ_ERROR("Failed to get lun '%s' info.\n", "l1");
  EXPECT_FALSE(result);
  const Log_Line logged = only_line(log);
  EXPECT_EQ(logged.priority, "LM_ERROR");
  EXPECT_EQ(logged.text, "Failed to get lun 'l1' info.\n");
  EXPECT_EQ(logged.file, __FILE__);
  EXPECT_EQ(logged.line, line);
}

TEST(Log, or_keeps_a_good_result_silent) {
  Log_Capture log;
  const auto operation = [](bool ok) { return ok || ZQ_ERROR("Failed.\n"); };
  EXPECT_TRUE(operation(true));
  EXPECT_TRUE(log.lines().empty());
  EXPECT_FALSE(operation(false));
  EXPECT_EQ(only_line(log).text, "Failed.\n");
}

TEST(Log, each_priority_has_its_word) {
  Log_Capture log;
  ZQ_EMERGENCY("a\n");
  ZQ_ERROR("b\n");
  ZQ_WARNING("c\n");
  ZQ_INFO("d\n");
  std::vector<std::string> priorities;
  for (const Log_Line& line : log.take())
    priorities.push_back(line.priority + " " + line.text);
  EXPECT_EQ(priorities, (std::vector<std::string>{"LM_EMERGENCY a\n", "LM_ERROR b\n",
                                                  "LM_WARNING c\n", "LM_INFO d\n"}));
}

TEST(Log, place_can_be_handed_in) {
  Log_Capture log;
  EXPECT_FALSE(ZQ_LOG_AT((Source_Location{"utils/pool/other.cpp", 42}), LM_ERROR, "text\n"));
  const Log_Line logged = only_line(log);
  EXPECT_EQ(logged.text, "text\n");
  EXPECT_EQ(logged.file, "utils/pool/other.cpp");
  EXPECT_EQ(logged.line, 42);
}

TEST(Log, directives) {
  Log_Capture log;
  const std::string text = "text";
  char writable[] = "writable";
  enum Plain { seven = 7 };
  ZQ_ERROR("%s %s %d %d %d %u %llu %%\n", text.c_str(), writable, -2147483647 - 1, true, seven,
           4294967295U, ~0ULL);
  EXPECT_EQ(only_line(log).text,
            "text writable -2147483648 1 7 4294967295 18446744073709551615 %\n");
}

TEST(Log, precision_bounds_a_text_that_need_not_end) {
  Log_Capture log;
  const char unended[3] = {'a', 'b', 'c'};
  const char* const part = unended;
  ZQ_ERROR("[%.*s] [%.*s] [%.*s] [%.*s] [%.*s]\n", 3, part, 0, part, 10, "short", 2, "long", -1,
           "all");
  EXPECT_EQ(only_line(log).text, "[abc] [] [short] [lo] [all]\n");
}

TEST(Log, null_text_is_written_as_such) {
  Log_Capture log;
  const char* volatile null = nullptr;  // the compiler refuses one that it can see
  ZQ_ERROR("%s\n", null);
  EXPECT_EQ(only_line(log).text, "(null)\n");
}

TEST(Log, percent_signs_of_arguments_are_no_directives) {
  Log_Capture log;
  ZQ_ERROR("%s|%s\n", "%s%n%d%N 100%", "%");
  EXPECT_EQ(only_line(log).text, "%s%n%d%N 100%|%\n");
}

TEST(Log, position_in_the_text_is_that_of_the_line) {
  Log_Capture log;
  ZQ_EMERGENCY("Unexpected error in %s:%d, i is not object!\n", __FILE__, __LINE__);
  const Log_Line logged = only_line(log);
  EXPECT_EQ(logged.text, "Unexpected error in " __FILE__ ":" + std::to_string(logged.line) +
                             ", i is not object!\n");
}

// Visible, so that a call stack can name it.
}  // namespace
[[gnu::noinline, gnu::visibility("default")]] bool log_the_call_stack() {
  return ZQ_EMERGENCY("client_ is NULL:\n%s\n", zqpool::detail::call_stack().c_str());
}
namespace {

TEST(Log, call_stack_is_written) {
  Log_Capture log;
  EXPECT_FALSE(log_the_call_stack());
  const std::string text = only_line(log).text;
  EXPECT_EQ(text.substr(0, 17), "client_ is NULL:\n");
  EXPECT_NE(text.find("log_the_call_stack"), std::string::npos) << text;
  EXPECT_EQ(text.back(), '\n');
}

TEST(Log, format_that_fails_is_logged_unformatted) {
  Log_Capture log;
  const wchar_t unwritable[] = {0x110000, 0};
  ZQ_ERROR("Failed to get '%ls'.\n", unwritable);
  EXPECT_EQ(only_line(log).text, "Failed to get '%ls'.\n");
}

TEST(Log, errno_is_preserved_and_recorded) {
  Log_Capture log;
  errno = EXDEV;
  ZQ_ERROR("%s\n", std::string(100000, 'x').c_str());
  EXPECT_EQ(errno, EXDEV);
  EXPECT_EQ(ACE_Log_Msg::instance()->errnum(), EXDEV);
  EXPECT_EQ(log.lines().size(), 1U);
  const Only_Priorities none(0);
  errno = EXDEV;
  ZQ_ERROR("masked\n");
  EXPECT_EQ(errno, EXDEV);
}

TEST(Log, errno_is_preserved_also_from_the_arguments) {
  Log_Capture log;
  const auto failing = [] {
    errno = ENOENT;
    return "text";
  };
  errno = EXDEV;
  ZQ_ERROR("%s\n", failing());
  EXPECT_EQ(errno, EXDEV);
  EXPECT_EQ(log.lines().size(), 1U);
}

TEST(Log, arguments_are_not_evaluated_when_the_priority_is_off) {
  Log_Capture log;
  const Only_Priorities errors_only(LM_ERROR);
  int rendered = 0;
  const auto costly = [&rendered] {
    ++rendered;
    return "text";
  };
  EXPECT_FALSE(ZQ_WARNING("%s\n", costly()));
  EXPECT_FALSE(ZQ_INFO("%s\n", costly()));
  EXPECT_EQ(rendered, 0);
  EXPECT_TRUE(log.lines().empty());
  EXPECT_FALSE(ZQ_ERROR("%s\n", costly()));
  EXPECT_EQ(rendered, 1);
  EXPECT_EQ(log.lines().size(), 1U);
}

TEST(Log, every_length_around_the_limit_is_whole_or_cut_as_promised) {
  for (std::size_t length = 3900; length < 4300; ++length)
    check_line(std::string(length, 'x'));
}

TEST(Log, long_text_is_cut_at_the_end_of_a_character) {
  const std::vector<std::string> characters = {"\xc3\xa9", "\xe2\x82\xac", "\xf0\x9f\x92\xbe"};
  for (const std::string& character : characters) {
    for (std::size_t shift = 0; shift < 8; ++shift) {
      std::string text(shift, 'a');
      while (text.size() < 6000)
        text += character;
      const testing::ScopedTrace trace(__FILE__, __LINE__,
                                       character + " after " + std::to_string(shift));
      check_line(text);
    }
  }
}

TEST(Log, text_of_a_megabyte_says_how_much_is_missing) {
  check_line(std::string(1 << 20, 'x'));
  std::string text;
  while (text.size() < (1 << 20))
    text += "\xf0\x9f\x92\xbe";
  check_line(text);
}

TEST(Log, invalid_utf8_is_cut_too) {
  Log_Capture log;
  ZQ_ERROR("%s\n", std::string(5000, '\x80').c_str());
  const std::string line = only_line(log).text;
  EXPECT_GE(line.size(), 3000U);
  EXPECT_EQ(line.substr(line.size() - 13), " bytes more)\n");
}

TEST(Log, cut_text_without_a_newline_gets_none) {
  Log_Capture log;
  ZQ_ERROR("%s", std::string(5000, 'x').c_str());
  const std::string line = only_line(log).text;
  const std::size_t mark = line.rfind("... (");
  ASSERT_NE(mark, std::string::npos);
  EXPECT_EQ(line.substr(mark), "... (" + std::to_string(5000 - mark) + " bytes more)");
}

TEST(Log, arguments_after_a_long_one_count_as_missing) {
  Log_Capture log;
  ZQ_ERROR("%s of %s.\n", std::string(5000, 'x').c_str(), "y");
  const std::string line = only_line(log).text;
  const std::size_t mark = line.rfind("... (");
  ASSERT_NE(mark, std::string::npos);
  EXPECT_EQ(line.substr(mark), "... (" + std::to_string(5006 - mark) + " bytes more)\n");
}

/// Has ACE put the program's name before each line, for the length of a scope.
class With_Program_Name {
 public:
  explicit With_Program_Name(const std::string& name)
      : before_(ACE_Log_Msg::program_name() != nullptr ? ACE_Log_Msg::program_name() : "") {
    ACE_Log_Msg::instance()->sync(name.c_str());
    ACE_Log_Msg::instance()->set_flags(ACE_Log_Msg::VERBOSE);
  }
  ~With_Program_Name() {
    ACE_Log_Msg::instance()->clr_flags(ACE_Log_Msg::VERBOSE);
    ACE_Log_Msg::instance()->sync(before_.c_str());
  }
  With_Program_Name(const With_Program_Name&) = delete;
  With_Program_Name& operator=(const With_Program_Name&) = delete;

 private:
  const std::string before_;
};

TEST(Log, program_name_takes_its_room_of_the_record) {
  const std::string name(300, 'p');
  const With_Program_Name with_name(name);
  for (const std::size_t length : {3000U, 3793U, 3794U, 3795U, 5000U})
    check_line(std::string(length, 'x'), name + "|");
}

TEST(Log, program_name_longer_than_the_record_does_no_harm) {
  for (const std::size_t length : {4060U, 4075U, 4095U, 4096U, 5000U}) {
    const With_Program_Name with_name(std::string(length, 'p'));
    Log_Capture log;
    for (const char byte : {'x', '\x80'}) {
      ZQ_ERROR("%s\n", std::string(1 << 20, byte).c_str());
      EXPECT_EQ(only_line(log).text.substr(0, 4000), std::string(4000, 'p'));
    }
  }
}

TEST(Log, time_stamp_takes_its_room_of_the_record) {
  for (const std::string stamp : {"TIME", "DATE"}) {
    ::setenv("ACE_LOG_TIMESTAMP", stamp.c_str(), 1);
    // ACE looks at the variable when a thread logs for the first time.
    std::thread([] {
      for (const std::size_t length : {4067U, 4068U, 5000U}) {
        Log_Capture log;
        ZQ_ERROR("%s\n", std::string(length, 'x').c_str());
        const std::string line = only_line(log).text;
        const std::string text = line.substr(line.find('|') + 1);
        EXPECT_GE(line.size(), max_line - 23);
        EXPECT_LE(line.size(), max_line);
        EXPECT_EQ(text.back(), '\n');
        EXPECT_EQ(text.substr(0, 4000), std::string(4000, 'x'));
        EXPECT_EQ(text.size() == length + 1, length == 4067) << length;
      }
    }).join();
    ::unsetenv("ACE_LOG_TIMESTAMP");
  }
}

TEST(Log, sink_that_throws_does_not_reach_the_caller) {
  class Throwing_Sink : public ACE_Log_Msg_Backend {
   public:
    int open(const char*) override { return 0; }
    int reset() override { return 0; }
    int close() override { return 0; }
    ssize_t log(ACE_Log_Record&) override { throw std::bad_alloc(); }
  } sink;
  Log_Capture log;  // puts everything back
  ACE_Log_Msg_Backend* const before = ACE_Log_Msg::msg_backend(&sink);
  EXPECT_FALSE(ZQ_ERROR("lost\n"));
  ACE_Log_Msg::msg_backend(before);
  ZQ_ERROR("the next one\n");
  EXPECT_EQ(only_line(log).text, "the next one\n");
}

TEST(Log, sixteen_threads_log_whole_lines) {
  constexpr int threads = 16;
  constexpr int lines_each = 200;
  Log_Capture log;
  std::vector<std::thread> running;
  running.reserve(threads);
  for (int i = 0; i < threads; ++i) {
    running.emplace_back([i] {
      for (int line = 0; line < lines_each; ++line) {
        const std::string filler(static_cast<std::size_t>(line) * 25, static_cast<char>('a' + i));
        ZQ_LOG_AT((Source_Location{"thread.cpp", i + 1}), LM_ERROR, "%d %d %s\n", i, line,
                  filler.c_str());
      }
    });
  }
  for (std::thread& thread : running)
    thread.join();

  std::set<std::pair<int, int>> seen;
  for (const Log_Line& line : log.take()) {
    char* at = nullptr;
    const int thread = static_cast<int>(std::strtol(line.text.c_str(), &at, 10));
    const int number = static_cast<int>(std::strtol(at, &at, 10));
    const std::string filler(static_cast<std::size_t>(number) * 25,
                             static_cast<char>('a' + thread));
    const std::string whole =
        std::to_string(thread) + " " + std::to_string(number) + " " + filler + "\n";
    if (line.text != whole) {
      const std::size_t mark = line.text.rfind("... (");
      ASSERT_NE(mark, std::string::npos) << line.text;
      EXPECT_EQ(line.text.substr(0, mark), whole.substr(0, mark));
      EXPECT_EQ(line.text.substr(mark),
                "... (" + std::to_string(whole.size() - 1 - mark) + " bytes more)\n");
    }
    EXPECT_EQ(line.line, thread + 1);
    EXPECT_TRUE(seen.insert({thread, number}).second) << line.text;
  }
  EXPECT_EQ(seen.size(), static_cast<std::size_t>(threads * lines_each));
}

}  // namespace
}  // namespace zqpool::test
