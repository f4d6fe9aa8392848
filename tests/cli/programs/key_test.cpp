#include <gmock/gmock.h>
#include <sys/stat.h>

#include "tests/cli/programs/command_fixture.h"

namespace zqpool::test {
namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class Key : public Command {
 protected:
  Key() { server_.otherwise(json_answer(200, R"({"rows":[{"a":1}]})")); }

  Run_Result with_key_file(const std::string& content, mode_t mode = 0600) {
    const std::string file = directory_.write("another", content);
    chmod(file.c_str(), mode);
    return zqpool({"pool", "show", "p", "--endpoint", url_of(server_), "--access-key-file", file});
  }
};

TEST_F(Key, the_end_of_its_line_is_not_part_of_it) {
  for (const char* const content : {"k ey", "k ey\n", "k ey\r\n"}) {
    EXPECT_EQ(with_key_file(content).exit_code, 0);
  }
  for (const Recorded_Request& request : server_.requests()) {
    EXPECT_EQ(request.header("X-Access-Key"), "k ey");
  }
  EXPECT_EQ(server_.request_count(), 3U);
}

TEST_F(Key, an_invalid_key_is_refused_without_being_shown) {
  for (const std::string& content :
       {std::string(), std::string("\n"), std::string("one-line\nanother-line\n"),
        std::string("k ey\n\n"), std::string("ta\tb"), std::string("schl\xc3\xbcssel"),
        std::string(5000, 'k')}) {
    const Run_Result result = with_key_file(content);
    EXPECT_EQ(result.exit_code, 2);
    EXPECT_THAT(result.err, StartsWith("zqpool: pool show: access key file "));
    EXPECT_THAT(result.err, Not(HasSubstr("-line")));
  }
  EXPECT_EQ(server_.connection_count(), 0U);
}

TEST_F(Key, a_file_that_cannot_be_read_is_named) {
  for (const std::string& file : {directory_.path("nothing"), directory_.path()}) {
    const Run_Result result =
        zqpool({"pool", "show", "p", "--endpoint", url_of(server_), "--access-key-file", file});
    EXPECT_EQ(result.exit_code, 2);
    EXPECT_THAT(result.err, StartsWith("zqpool: pool show: access key file " + file + ": "));
  }
}

TEST_F(Key, a_file_open_to_others_gives_a_warning) {
  EXPECT_THAT(with_key_file("k", 0644).err,
              HasSubstr("every user of this machine may read or write it"));
  EXPECT_EQ(with_key_file("k", 0640).err, "");
  EXPECT_EQ(with_key_file("k", 0600).err, "");
}

TEST_F(Key, is_read_from_a_pipe) {
  const std::string script = std::string("exec ") + ZQPOOL_PROGRAM + " pool show p --endpoint " +
                             url_of(server_) + " --access-key-file <(echo piped-key)";
  EXPECT_EQ(run_program({"/bin/bash", "-c", script}).exit_code, 0);
  EXPECT_EQ(server_.request(0).header("X-Access-Key"), "piped-key");
}

TEST_F(Key, is_asked_for_on_the_terminal_without_echo) {
  Run_Options options;
  options.terminal = true;
  Program program({ZQPOOL_PROGRAM, "pool", "show", "p", "--endpoint", url_of(server_)}, options);
  ASSERT_TRUE(program.wait_for_terminal("Access key for " + url_of(server_) + ": "));
  program.type("typed-key\n");
  const Run_Result result = program.wait();
  EXPECT_EQ(result.exit_code, 0) << result.err;
  EXPECT_EQ(result.out, "a  1\n");
  EXPECT_EQ(server_.request(0).header("X-Access-Key"), "typed-key");
  EXPECT_THAT(result.terminal + result.err + result.out, Not(HasSubstr("typed-key")));
}

TEST_F(Key, a_prompt_takes_its_answer_from_the_terminal_and_the_list_from_standard_input) {
  Run_Options options;
  options.terminal = true;
  options.input = "p-1\np-2\n";
  Program program({ZQPOOL_PROGRAM, "pool", "show", "-", "--endpoint", url_of(server_)}, options);
  ASSERT_TRUE(program.wait_for_terminal("Access key"));
  program.type("typed-key\n");
  EXPECT_EQ(program.wait().exit_code, 0);
  EXPECT_EQ(server_.request_count(), 2U);
}

TEST_F(Key, an_interrupted_or_empty_prompt_ends_without_a_request) {
  Run_Options options;
  options.terminal = true;
  const std::pair<const char*, int> table[] = {{"\n", 2}, {"\x04", 2}, {"\x03", 130}};
  for (const auto& [typed, exit_code] : table) {
    Program program({ZQPOOL_PROGRAM, "pool", "show", "p", "--endpoint", url_of(server_)}, options);
    ASSERT_TRUE(program.wait_for_terminal("Access key"));
    program.type(typed);
    EXPECT_EQ(program.wait().exit_code, exit_code);
  }
  EXPECT_EQ(server_.connection_count(), 0U);
}

TEST_F(Key, without_file_and_terminal_the_command_ends_at_once) {
  const Run_Result result = zqpool({"pool", "show", "p", "--endpoint", url_of(server_)});
  EXPECT_EQ(result.exit_code, 2);
  EXPECT_THAT(result.err, StartsWith("zqpool: pool show: no access key: "));
  EXPECT_EQ(server_.connection_count(), 0U);
}

TEST_F(Key, is_in_no_output) {
  for (const Answer& answer :
       {json_answer(200, R"({"rows":[{"a":1}]})"), json_answer(401, "{}"), json_answer(200, "[]"),
        close_after_request(), raw_answer("garbage\r\n\r\n")}) {
    server_.otherwise(answer);
    for (const std::vector<std::string>& arguments : {std::vector<std::string>{"pool", "show", "p"},
                                                      {"device", "show", "--url", "u"},
                                                      {"device", "located", "p", "/x"},
                                                      {"device", "info", "u"},
                                                      {"config", "show"}}) {
      std::vector<std::string> all = arguments;
      all.insert(all.end(), {"--trace", "--verbose", "--output", "json"});
      const Run_Result result = run(all);
      EXPECT_THAT(result.out + result.err, Not(HasSubstr(key_)));
    }
  }
}

}  // namespace
}  // namespace zqpool::test
