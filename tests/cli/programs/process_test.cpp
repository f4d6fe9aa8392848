#include <gmock/gmock.h>
#include <signal.h>

#include <future>

#include "tests/cli/programs/command_fixture.h"

namespace zqpool::test {
namespace {

using testing::HasSubstr;

class Process : public Command {};

TEST_F(Process, an_interrupt_ends_it_at_once_without_partial_output) {
  server_.queue(json_answer(200, R"({"rows":[{"a":1}]})")).otherwise(silent());
  std::vector<std::string> arguments =
      with_service({"pool", "show", "p-1", "p-2", "--jobs", "1", "-o", "json"});
  arguments.insert(arguments.begin(), ZQPOOL_PROGRAM);
  Program program(arguments);
  ASSERT_TRUE(server_.wait_for_requests(2));
  program.send(SIGINT);
  const Run_Result result = program.wait();
  EXPECT_EQ(result.exit_code, 130);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "");
}

TEST_F(Process, an_interrupt_ignored_by_the_parent_stays_ignored) {
  std::promise<void> signalled;
  const std::shared_future<void> after_signal = signalled.get_future().share();
  server_.otherwise(
      json_answer(200, R"({"rows":[{"a":1}]})").before([after_signal](const Recorded_Request&) {
        after_signal.wait();
      }));
  const std::string script = std::string("trap '' INT; exec ") + ZQPOOL_PROGRAM +
                             " pool show p --endpoint " + url_of(server_) + " --access-key-file " +
                             key_file_;
  Program program({"/bin/bash", "-c", script});
  EXPECT_TRUE(server_.wait_for_requests(1));
  program.send(SIGINT);
  signalled.set_value();
  const Run_Result result = program.wait();
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_EQ(result.out, "a  1\n");
}

TEST_F(Process, a_closed_output_ends_it_quietly) {
  server_.otherwise(json_answer(200, R"({"rows":[{"a":1}]})"));
  std::vector<std::string> arguments = with_service({"pool", "show", "p"});
  arguments.insert(arguments.begin(), ZQPOOL_PROGRAM);
  Program program(arguments);
  program.close_output();
  const Run_Result result = program.wait();
  EXPECT_EQ(result.signal, 0);
  EXPECT_EQ(result.exit_code, 141);
  EXPECT_EQ(result.err, "");
}

TEST_F(Process, a_full_disk_is_an_error) {
  server_.otherwise(json_answer(200, R"({"rows":[{"a":1}]})"));
  Run_Options options;
  options.output_file = "/dev/full";
  for (const std::vector<std::string>& arguments : {std::vector<std::string>{"pool", "show", "p"},
                                                    {"config", "show"},
                                                    {"--help"},
                                                    {"--version"}}) {
    const Run_Result result = run(arguments, options);
    EXPECT_EQ(result.exit_code, 1);
    EXPECT_EQ(result.err, "zqpool: the output cannot be written: No space left on device\n");
  }
}

TEST_F(Process, closed_standard_descriptors_do_not_become_sockets) {
  server_.otherwise(json_answer(200, R"({"rows":[{"a":1}]})"));
  const std::string call = std::string(ZQPOOL_PROGRAM) + " pool show p --endpoint " +
                           url_of(server_) + " --access-key-file " + key_file_;
  EXPECT_EQ(run_program({"/bin/bash", "-c", call + " 2>&-"}).out, "a  1\n");
  EXPECT_EQ(run_program({"/bin/bash", "-c", call + " <&-"}).out, "a  1\n");
  const Run_Result closed = run_program({"/bin/bash", "-c", call + " >&-"});
  EXPECT_EQ(closed.exit_code, 1);
  EXPECT_THAT(closed.err, HasSubstr("the output cannot be written"));
  for (const Recorded_Request& request : server_.requests())
    EXPECT_EQ(request.method, "GET");
}

TEST_F(Process, the_terminals_width_decides_the_layout_of_a_table) {
  server_.otherwise(json_answer(200, R"({"rows":[{"name":"a name","type":"a type"}]})"));
  const std::vector<std::string> arguments = {"pool", "show", "a", "b"};
  EXPECT_EQ(run(arguments).out, "NAME    TYPE\na name  a type\na name  a type\n");
  Run_Options options;
  options.terminal = true;
  options.output_on_terminal = true;
  options.columns = 14;
  EXPECT_EQ(run(arguments, options).terminal,
            "NAME    TYPE\r\na name  a type\r\na name  a type\r\n");
  options.columns = 13;
  EXPECT_EQ(run(arguments, options).terminal,
            "name  a name\r\ntype  a type\r\n\r\nname  a name\r\ntype  a type\r\n");
}

TEST_F(Process, version_and_help_need_no_settings) {
  const Run_Result version = zqpool({"--version"});
  EXPECT_EQ(version.exit_code, 0);
  EXPECT_THAT(version.out, testing::MatchesRegex("zqpool [0-9]+\\.[0-9]+\\.[0-9]+\n"));
  for (const std::vector<std::string>& arguments : {std::vector<std::string>{"--help"},
                                                    {"-h"},
                                                    {"pool", "--help"},
                                                    {"pool", "show", "--help"}}) {
    const Run_Result help = zqpool(arguments);
    EXPECT_EQ(help.exit_code, 0);
    EXPECT_THAT(help.out, HasSubstr("Usage: zqpool"));
    EXPECT_EQ(help.err, "");
  }
  EXPECT_THAT(zqpool({"pool", "show", "--help"}).out, HasSubstr("Examples:\n  zqpool pool show"));
}

}  // namespace
}  // namespace zqpool::test
