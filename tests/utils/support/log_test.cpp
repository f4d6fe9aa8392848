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

using zqpool::detail::Place;

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

/// Logs `text` (without its newline) and checks that the line is whole, or is cut as promised.
/// Returns whether it was cut.
bool check_line(const std::string& text) {
  Log_Capture log;
  ZQ_ERROR("%s\n", text.c_str());
  const std::vector<Log_Line> lines = log.take();
  EXPECT_EQ(lines.size(), 1U);
  if (lines.size() != 1) return false;
  const std::string& line = lines[0].text;
  if (line == text + "\n") return false;

  const std::size_t mark = line.rfind("... (");
  EXPECT_NE(mark, std::string::npos) << "cut without a mark at " << line.size();
  if (mark == std::string::npos) return true;
  const std::string kept = line.substr(0, mark);
  EXPECT_EQ(kept, text.substr(0, mark));
  EXPECT_GE(kept.size(), 3000U);
  EXPECT_EQ(line.substr(mark), "... (" + std::to_string(text.size() - mark) + " bytes more)\n");
  EXPECT_TRUE(is_utf8(line));
  return true;
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
  EXPECT_FALSE(ZQ_LOG_AT((Place{"utils/pool/other.cpp", 42}), LM_ERROR, "at %N:%l\n"));
  const Log_Line logged = only_line(log);
  EXPECT_EQ(logged.text, "at utils/pool/other.cpp:42\n");
  EXPECT_EQ(logged.file, "utils/pool/other.cpp");
  EXPECT_EQ(logged.line, 42);
}

TEST(Log, directives) {
  Log_Capture log;
  const std::string text = "text";
  char writable[] = "writable";
  enum Plain { seven = 7 };
  ZQ_ERROR("%s %s %d %d %d %u %Q %%\n", text.c_str(), writable, -2147483647 - 1, true, seven,
           4294967295U, ~std::uint64_t{0});
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
  const char* const null = nullptr;
  ZQ_ERROR("%s %.*s\n", null, 2, null);
  EXPECT_EQ(only_line(log).text, "(null) (n\n");
}

TEST(Log, percent_signs_of_arguments_are_no_directives) {
  Log_Capture log;
  ZQ_ERROR("%s|%s\n", "%s%n%d%N 100%", "%");
  EXPECT_EQ(only_line(log).text, "%s%n%d%N 100%|%\n");
}

TEST(Log, position_in_the_text_is_that_of_the_line) {
  Log_Capture log;
  const int line = __LINE__ + 1;
  ZQ_EMERGENCY("Unexpected error in %N:%l, pool_uuid is NULL or \"\"\n");
  EXPECT_EQ(only_line(log).text, "Unexpected error in " __FILE__ ":" + std::to_string(line) +
                                     ", pool_uuid is NULL or \"\"\n");
}

TEST(Log, position_can_be_part_of_the_format) {
  Log_Capture log;
  ZQ_EMERGENCY("Unexpected error in " __FILE__ ":%d, result is not object!\n", 7);
  EXPECT_EQ(only_line(log).text, "Unexpected error in " __FILE__ ":7, result is not object!\n");
}

// Visible, so that a call stack can name it.
}  // namespace
[[gnu::noinline, gnu::visibility("default")]] bool the_one_that_complains() {
  return ZQ_EMERGENCY("client_ is NULL:\n%?\n");
}
namespace {

TEST(Log, call_stack_is_written) {
  Log_Capture log;
  EXPECT_FALSE(the_one_that_complains());
  const std::string text = only_line(log).text;
  EXPECT_EQ(text.substr(0, 17), "client_ is NULL:\n");
  EXPECT_NE(text.find("the_one_that_complains"), std::string::npos) << text;
  EXPECT_EQ(text.back(), '\n');
}

// What the compiler refuses, asked at run time.
TEST(Log, only_arguments_that_fit_the_directives_are_taken) {
  using zqpool::detail::Log_Arguments;
  for (const char* const fits : {"%d %s\n", "%N:%l %d%% of %s %?", "%d%s", "%.*s"}) {
    EXPECT_TRUE((Log_Arguments<int, const char*>::fit(fits))) << fits;
  }
  for (const char* const unfit : {"", "%d", "%s %d", "%d %s %s", "%u %s", "%Q %s", "%d %d", "%d %p",
                                  "%d %.3s", "%s %.*s", "%d %.*s", "%d %s %"}) {
    EXPECT_FALSE((Log_Arguments<int, const char*>::fit(unfit))) << unfit;
  }
  EXPECT_TRUE((Log_Arguments<unsigned, std::uint64_t>::fit("%u %Q")));
  EXPECT_FALSE((Log_Arguments<double>::fit("%d")));
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
  bool cut_before = false;
  for (std::size_t length = 2900; length < 4300; ++length) {
    const bool cut = check_line(std::string(length, 'x'));
    EXPECT_TRUE(cut || !cut_before) << "cut again whole at " << length;
    cut_before = cut;
  }
  EXPECT_TRUE(cut_before);
}

TEST(Log, long_text_is_cut_at_the_end_of_a_character) {
  const std::vector<std::string> characters = {"\xc3\xa9", "\xe2\x82\xac", "\xf0\x9f\x92\xbe"};
  for (const std::string& character : characters) {
    for (std::size_t shift = 0; shift < 8; ++shift) {
      std::string text(shift, 'a');
      while (text.size() < 6000)
        text += character;
      EXPECT_TRUE(check_line(text)) << character << " after " << shift;
    }
  }
}

TEST(Log, text_of_a_megabyte_says_how_much_is_missing) {
  EXPECT_TRUE(check_line(std::string(1 << 20, 'x')));
  std::string text;
  while (text.size() < (1 << 20))
    text += "\xf0\x9f\x92\xbe";
  EXPECT_TRUE(check_line(text));
}

TEST(Log, what_is_no_utf8_is_cut_all_the_same) {
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

TEST(Log, program_name_and_time_in_front_take_nothing_of_the_text) {
  Log_Capture log;
  ACE_Log_Msg* const ace = ACE_Log_Msg::instance();
  const std::string before =
      ACE_Log_Msg::program_name() != nullptr ? ACE_Log_Msg::program_name() : "";
  const std::string program(300, 'p');
  ace->sync(program.c_str());
  ace->set_flags(ACE_Log_Msg::VERBOSE);
  ZQ_ERROR("%s\n", std::string(5000, 'x').c_str());
  ace->clr_flags(ACE_Log_Msg::VERBOSE);
  ace->sync(before.c_str());
  const std::string line = only_line(log).text;
  EXPECT_EQ(line.substr(0, 302), program + "|x");
  EXPECT_EQ(line.substr(line.size() - 13), " bytes more)\n");
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
  for (int i = 0; i < threads; ++i) {
    running.emplace_back([i] {
      for (int line = 0; line < lines_each; ++line) {
        const std::string filler(static_cast<std::size_t>(line) * 25, static_cast<char>('a' + i));
        ZQ_LOG_AT((Place{"thread.cpp", i + 1}), LM_ERROR, "%d %d %N:%l %s\n", i, line,
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
    const std::string whole = std::to_string(thread) + " " + std::to_string(number) +
                              " thread.cpp:" + std::to_string(thread + 1) + " " + filler + "\n";
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

// The check that the compiler makes for every line.
template <typename... Args>
constexpr bool fits(const char* format) {
  return zqpool::detail::Log_Arguments<Args...>::fit(format);
}
using Text = const char*;
static_assert(fits<>("plain %% %N:%l %?\n"));
static_assert(fits<Text, int, unsigned, std::uint64_t, unsigned long long>("%s%d%u%Q%Q"));
static_assert(fits<bool, short, unsigned short, char[5], char*>("%d%d%d%s%s"));
static_assert(fits<int, Text>("%.*s"));
static_assert(!fits<>("%s"));
static_assert(!fits<Text>("none"));
static_assert(!fits<Text, Text>("%s"));
static_assert(!fits<int>("%s"));
static_assert(!fits<Text>("%d"));
static_assert(!fits<unsigned>("%d"));
static_assert(!fits<int>("%u"));
static_assert(!fits<long>("%d"));
static_assert(!fits<unsigned>("%Q"));
static_assert(!fits<std::string>("%s"));
static_assert(!fits<Text>("%.*s"));
static_assert(!fits<Text, int>("%.*s"));
static_assert(!fits<long>("%ld"), "ACE takes %l for the line number");
static_assert(!fits<std::size_t>("%zu"));
static_assert(!fits<int>("%5d"));
static_assert(!fits<>("%"));

}  // namespace
}  // namespace zqpool::test
