#include <gmock/gmock.h>

#include "tests/cli/programs/command_fixture.h"

namespace zqpool::test {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

class Space : public Command {};

TEST_F(Space, is_shown_with_and_without_the_verb) {
  server_.otherwise(
      json_answer(200, R"({"size":10737418240,"free":1073741824,"files_free":2000})"));
  const Run_Result result = run({"space"});
  EXPECT_EQ(result.exit_code, 0) << result.err;
  EXPECT_EQ(result.out,
            "size        10737418240 (10 GiB)\nfree        1073741824 (1 GiB)\nfiles_free  2000\n");
  EXPECT_EQ(run({"space", "show"}).out, result.out);
  EXPECT_THAT(run({"space", "-o", "tsv"}).out,
              StartsWith(url_of(server_) + "\tfiles_free\t2000\n"));
  EXPECT_EQ(server_.request(0).line, "GET /zq/r/file_uri/statfs?uri=%2fzq%2fdata HTTP/1.1");
  EXPECT_EQ(server_.request(0).header("X-Access-Key"), key_);
}

TEST_F(Space, each_status_has_its_exit_code_and_shows_the_services_message) {
  const std::pair<unsigned, int> table[] = {{401, 6}, {404, 3}, {503, 7}, {500, 1}};
  for (const auto& [status, exit_code] : table) {
    server_.otherwise(json_answer(status, R"({"error":{"code":-1,"message":"so it is"}})"));
    const Run_Result result = run({"space", "--trace"});
    EXPECT_EQ(result.exit_code, exit_code);
    EXPECT_THAT(result.err, HasSubstr(" status=" + std::to_string(status) + " error="));
    EXPECT_THAT(result.err, HasSubstr("zqpool: space: " + url_of(server_) + ": HTTP status " +
                                      std::to_string(status) + ": so it is\n"));
  }
  server_.otherwise(http_answer(404, ""));
  EXPECT_EQ(run({"space"}).err, "zqpool: space: " + url_of(server_) + ": HTTP status 404\n");
}

TEST_F(Space, only_200_with_an_object_is_accepted) {
  for (const Answer& answer : {json_answer(204, ""), json_answer(201, "{}"),
                               json_answer(200, "[1]"), json_answer(200, "{")}) {
    server_.otherwise(answer);
    const Run_Result result = run({"space"});
    EXPECT_EQ(result.exit_code, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, StartsWith("zqpool: space: " + url_of(server_) + ": the answer"));
  }
}

TEST_F(Space, unreachable_and_timed_out_have_one_exit_code) {
  server_.otherwise(silent());
  EXPECT_EQ(run({"space", "--timeout", "300ms"}).exit_code, 7);
  const Refused_Port port;
  EXPECT_EQ(zqpool({"space", "--endpoint", "http://127.0.0.1:" + std::to_string(port.port()),
                    "--access-key-file", key_file_})
                .exit_code,
            7);
  EXPECT_EQ(run({"space", "nonsense"}).exit_code, 2);
}

}  // namespace
}  // namespace zqpool::test
