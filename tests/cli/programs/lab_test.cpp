#include <gmock/gmock.h>

#include "tests/cli/programs/command_fixture.h"

namespace zqpool::test {
namespace {

using testing::EndsWith;
using testing::HasSubstr;

class Lab : public Command {};

TEST_F(Lab, a_fault_is_sent_as_its_options_say) {
  server_.otherwise(json_answer(201, R"({"ids":[7]})"));
  const Run_Result result = run({"lab", "fault", "status", "--path", "/zq/r/*", "--status", "503",
                                 "--times", "2", "--method", "GET"});
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_EQ(result.out, "ids  7\n");
  EXPECT_EQ(server_.request(0).line, "POST /zq/lab/faults HTTP/1.1");
  EXPECT_EQ(server_.request(0).header("X-Access-Key"), key_);
  EXPECT_EQ(
      server_.request(0).body,
      R"({"faults":[{"kind":"status","method":"GET","path":"/zq/r/*","status":503,"times":2}]})");

  const std::vector<std::string> everything = {
      "lab",      "fault",         "garbage",    "--path", "/x",
      "--query",  "a=b",           "--skip",     "1",      "--every",
      "10",       "--probability", "0.5",        "--seed", "3",
      "--body",   "no json",       "--delay",    "1m30s",  "--delay-after-commit",
      "--bytes",  "64KiB",         "--interval", "250ms",  "--whole-answer",
      "--member", "rows",          "--type",     "string"};
  EXPECT_EQ(run(everything).exit_code, 0);
  EXPECT_EQ(server_.request(1).body,
            R"({"faults":[{"body":"no json","bytes":65536,"delay_after_commit":true,)"
            R"("delay_ms":90000,"every":10,"interval_ms":250,"kind":"garbage","member":"rows",)"
            R"("path":"/x","probability":0.5,"query":"a=b","seed":3,"skip":1,"type":"string",)"
            R"("whole_answer":true}]})");
}

TEST_F(Lab, a_scenario_replaces_or_is_merged) {
  server_.otherwise(json_answer(200, R"({"loaded":{"devices":3,"pools":1}})"));
  const std::string file = directory_.write("scenario.json", "{\n \"pools\": []\n}\n");
  const Run_Result result = run({"lab", "scenario", file});
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_EQ(result.out, "loaded.devices  3\nloaded.pools    1\n");
  EXPECT_EQ(server_.request(0).line, "POST /zq/lab/scenario?mode=replace HTTP/1.1");
  EXPECT_EQ(server_.request(0).body, R"({"pools":[]})");
  Run_Options options;
  options.input = R"({"pools":[1]})";
  EXPECT_EQ(run({"lab", "scenario", "--merge", "-"}, options).exit_code, 0);
  EXPECT_EQ(server_.request(1).line, "POST /zq/lab/scenario?mode=merge HTTP/1.1");
  EXPECT_EQ(server_.request(1).body, R"({"pools":[1]})");
}

TEST_F(Lab, an_invalid_scenario_is_not_sent) {
  EXPECT_EQ(run({"lab", "scenario", directory_.path("nothing")}).exit_code, 2);
  EXPECT_EQ(run({"lab", "scenario", directory_.path()}).exit_code, 2);
  EXPECT_EQ(run({"lab", "scenario", directory_.write("bad", "{")}).exit_code, 2);
  EXPECT_EQ(run({"lab", "scenario", "-"}).exit_code, 2);
  EXPECT_EQ(run({"lab", "fault", "status"}).exit_code, 2);
  EXPECT_EQ(run({"lab", "fault", "status", "--path", "/x", "--times", "x"}).exit_code, 2);
  EXPECT_EQ(run({"lab", "fault", "huge", "--path", "/x", "--bytes", "16EiB"}).exit_code, 2);
  EXPECT_EQ(server_.connection_count(), 0U);
}

TEST_F(Lab, faults_are_listed_and_cleared) {
  server_.queue(json_answer(200, R"({"faults":[{"id":1,"kind":"cut","fired":2},{"id":2}]})"))
      .queue(json_answer(200, R"({"removed":2})"));
  EXPECT_EQ(run({"lab", "faults", "-o", "tsv"}).out,
            "1\tfired\t2\n1\tid\t1\n1\tkind\tcut\n2\tid\t2\n");
  EXPECT_EQ(run({"lab", "clear"}).exit_code, 0);
  EXPECT_EQ(server_.request(0).line, "GET /zq/lab/faults HTTP/1.1");
  EXPECT_EQ(server_.request(1).line, "DELETE /zq/lab/faults HTTP/1.1");
}

TEST_F(Lab, a_change_without_an_answer_has_an_unknown_outcome_and_is_sent_once) {
  for (const Answer& answer :
       {close_after_request(), reset_after_request(), raw_answer("nonsense\r\n\r\n"),
        json_answer(200, "{}").cut_after(20).end(Answer::End::close), json_answer(502, "{}"),
        json_answer(504, "{}")}) {
    const std::size_t before = server_.request_count();
    server_.otherwise(answer);
    const Run_Result result = run({"lab", "fault", "delay", "--path", "/x", "--delay", "1"});
    EXPECT_EQ(result.exit_code, 8);
    EXPECT_THAT(result.err, testing::StartsWith("zqpool: lab fault: " + url_of(server_) + ": "));
    EXPECT_THAT(result.err, EndsWith("; it is unknown whether the change was made\n"));
    EXPECT_EQ(server_.request_count(), before + 1);
  }
  server_.otherwise(silent());
  EXPECT_EQ(run({"lab", "clear", "--timeout", "1s"}).exit_code, 8);
}

TEST_F(Lab, a_change_that_was_never_sent_is_unreachable) {
  const Refused_Port port;
  EXPECT_EQ(zqpool({"lab", "clear", "--endpoint", "http://127.0.0.1:" + std::to_string(port.port()),
                    "--access-key-file", key_file_})
                .exit_code,
            7);
}

TEST_F(Lab, a_service_without_lab_is_reported) {
  server_.otherwise(json_answer(404, R"({"error":{"code":-1,"message":"no such path"}})"));
  const Run_Result result = run({"lab", "faults"});
  EXPECT_EQ(result.exit_code, 3);
  EXPECT_THAT(result.err, HasSubstr("HTTP status 404: no such path"));
}

}  // namespace
}  // namespace zqpool::test
