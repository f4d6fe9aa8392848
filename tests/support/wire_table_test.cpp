#include "tests/support/wire_table.h"

#include <ace/Log_Msg.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <set>

#include "platform/http/rest_client.h"
#include "tests/support/any_answer.h"
#include "tests/support/guards.h"

namespace zqpool::test {
namespace {

using namespace std::chrono_literals;

// An operation such as the rows are about.
Outcome put_thing(const Endpoint& to) {
  HTTP_Request request(HTTP_METHOD_PUT, "/zq/thing", false);
  request.query_string("id=7");
  request.headers().put(HTTP_HEAD_X_ACCESS_KEY, "secret", true);
  JSON_RESTful_Client client(to.host.c_str(), to.port, to.ssl, true);
  const json_spirit::Value body(Object{{"name", "a"}});
  json_spirit::Value answer;
  if (!client.put(request, &body, &answer)) {
    ACE_ERROR((LM_ERROR, "Failed to put '%s'.\n", "a"));
    return {false, {}};
  }
  return {true, {{"answer", answer}}};
}

Wire_Row good_row() {
  Wire_Row row;
  row.name = "good";
  row.call = put_thing;
  row.requests = {{"PUT", "/zq/thing?id=7", R"({"name":"a"})", "secret", {}}};
  row.answers = {json_answer(200, R"({"n":1})")};
  row.result = true;
  row.outputs = R"({"answer":{"n":1}})";
  return row;
}

Wire_Row failing_row() {
  Wire_Row row = good_row();
  row.name = "failing";
  row.answers = {json_answer(404, "{}")};
  row.result = false;
  row.outputs = "{}";
  row.lines = {client_error("PUT", "/zq/thing"), {"LM_ERROR", "Failed to put 'a'.\n"}};
  return row;
}

TEST_P(Wire_Table, row_holds) {
  play();
}

INSTANTIATE_TEST_SUITE_P(Kit, Wire_Table, testing::ValuesIn(plays({good_row(), failing_row()})),
                         Wire_Table::name);

std::vector<std::string> names(const std::vector<Play>& plays) {
  std::vector<std::string> all;
  for (const Play& play : plays)
    all.push_back(testing::PrintToString(play));
  return all;
}

TEST(Wire_Table_Harness, plays_first_row_over_https_and_first_that_logs_in_silence) {
  const std::vector<Wire_Row> rows = {good_row(), failing_row(), failing_row()};
  const std::vector<std::string> wanted = {"good_http", "failing_http", "failing_http",
                                           "good_https", "failing_silent"};
  EXPECT_EQ(names(plays(rows)), wanted);
  std::vector<std::string> both = wanted;
  both.insert(both.end(), 2, "failing_https");
  EXPECT_EQ(names(plays_over_both(rows)), both);
}

// Each difference between a row and what happened fails the test.
void finds(const Wire_Row& row, const char* complaint) {
  static const Wire_Row* played = nullptr;
  played = &row;
  EXPECT_NONFATAL_FAILURE(play(*played, false), complaint);
}

TEST(Wire_Table_Harness, finds_another_target) {
  Wire_Row row = good_row();
  row.requests[0].target = "/zq/thing?id=8";
  finds(row, "/zq/thing?id=8");
}

TEST(Wire_Table_Harness, finds_another_method) {
  Wire_Row row = good_row();
  row.requests[0].method = "POST";
  finds(row, "POST");
}

TEST(Wire_Table_Harness, finds_another_body) {
  Wire_Row row = good_row();
  row.requests[0].body = R"({"name": "a"})";
  finds(row, "body");
}

TEST(Wire_Table_Harness, finds_a_missing_header) {
  Wire_Row row = good_row();
  row.requests[0].headers = {{"User-Agent", "zqpool"}};
  play(row, false);
  row.requests[0].headers = {{"User-Agent", "somebody"}};
  finds(row, "User-Agent");
}

TEST(Wire_Table_Harness, finds_another_result) {
  Wire_Row row = good_row();
  row.result = false;
  finds(row, "outcome.result");
}

TEST(Wire_Table_Harness, finds_other_outputs) {
  Wire_Row row = good_row();
  row.outputs = R"({"answer":{"n":2}})";
  finds(row, "brought: {\"answer\":{\"n\":1}}");
}

TEST(Wire_Table_Harness, finds_a_line_too_few) {
  Wire_Row row = good_row();
  row.lines = {{"LM_ERROR", "Never said.\n"}};
  finds(row, "not logged: LM_ERROR Never said.");
}

TEST(Wire_Table_Harness, finds_a_line_too_many) {
  Wire_Row row = failing_row();
  row.lines.pop_back();
  finds(row, "logged, too: LM_ERROR \"Failed to put 'a'.");
}

TEST(Wire_Table_Harness, finds_another_source_file) {
  Wire_Row row = failing_row();
  row.lines[1].file = __FILE__;
  play(row, false);
  row.lines[1].file = "utils/pool/another.cpp";
  finds(row, "wire_table_test.cpp");
}

TEST(Wire_Table_Harness, finds_a_connection_that_is_not_kept) {
  Wire_Row row = good_row();
  row.call = [](const Endpoint& to) {
    JSON_RESTful_Client client(to.host.c_str(), to.port, to.ssl, true);
    client.set_header(HTTP_HEAD_X_ACCESS_KEY, "secret");
    json_spirit::Value answer;
    HTTP_Request request(HTTP_METHOD_GET, "/zq/thing", false);
    return Outcome{client.get(request, &answer), {{"answer", answer}}};
  };
  row.requests = {{"GET", "/zq/thing", "", "secret", {}}};
  row.keeps_connection = true;
  play(row, false);
  row = good_row();
  row.keeps_connection = true;
  finds(row, "Connection");
}

TEST(Wire_Table_Harness, finds_another_priority) {
  Wire_Row row = failing_row();
  row.lines[1].priority = "LM_WARNING";
  finds(row, "LM_WARNING");
}

TEST(Wire_Table_Harness, finds_another_text) {
  Wire_Row row = failing_row();
  row.lines[1].text = "Failed to put 'b'.\n";
  finds(row, "wanted: Failed to put 'b'.");
}

TEST(Wire_Table_Harness, finds_an_answer_that_nobody_fetched) {
  Wire_Row row = good_row();
  row.answers.push_back(json_answer(200, "{}"));
  finds(row, "unused_answers");
}

TEST(Wire_Table_Harness, finds_a_missing_pause) {
  Wire_Row row = good_row();
  row.pauses = {1000ms};
  finds(row, "pauses");
}

TEST(Wire_Table_Harness, line_patterns) {
  EXPECT_TRUE(line_matches("Retry(1) {place} at 5 s.\n", "Retry(1) dir/a_b.cpp:123 at 5 s.\n", 1));
  EXPECT_FALSE(line_matches("Retry(1) {place} at 5 s.\n", "Retry(1) a.cpp at 5 s.\n", 1));
  EXPECT_TRUE(line_matches("{number}% of [x]*: {any}\n", "10% of [x]*: all \xc3\xa4\n", 1));
  EXPECT_FALSE(line_matches("a.b", "axb", 1));
  EXPECT_FALSE(line_matches("{any}\n", "two\nlines\n", 1));
  EXPECT_TRUE(line_matches("h:{port}/", "h:80/", 80));
  EXPECT_FALSE(line_matches("h:{port}/", "h:81/", 80));
  EXPECT_FALSE(line_matches("same\n", "same", 80));
}

TEST(Any_Answer, holds_every_kind_and_every_change_once) {
  const auto all = any_answers(R"({"rows":[{"id":1}],"type":"x"})");
  std::set<std::string> names;
  std::set<Any_Answer::Kind> kinds;
  std::set<std::string> bodies;
  for (const Any_Answer& answer : all) {
    EXPECT_TRUE(names.insert(answer.name).second) << answer.name;
    kinds.insert(answer.kind);
    if (answer.kind != Any_Answer::Kind::json) continue;
    EXPECT_FALSE(answer.value == all[0].value) << answer.name;
    EXPECT_TRUE(bodies.insert(json_spirit::write(answer.value)).second) << answer.name;
  }
  EXPECT_EQ(kinds.size(), 6U);
  for (const char* name :
       {"answer is null", "answer is []", "answer is \"text\"", "answer.rows left out",
        "answer.rows is {}", "answer.rows[0] left out", "answer.rows[0] doubled",
        "answer.rows[0].id is \"text\"", "answer.type is 7"}) {
    EXPECT_EQ(names.count(name), 1U) << name;
  }
  EXPECT_EQ(names.count("answer.type is \"text\""), 0U);
}

TEST(Any_Answer, reaches_the_client_as_its_kind_says) {
  std::size_t calls = 0;
  for_any_answer(R"({"rows":[1]})", [&calls](const Endpoint& to, const Any_Answer& answer) {
    ++calls;
    HTTP_Request request(HTTP_METHOD_GET, "/zq/any", false);
    JSON_RESTful_Client client(to.host.c_str(), to.port, to.ssl, true);
    json_spirit::Value got;
    EXPECT_EQ(client.get(request, &got), answer.exchange_succeeds());
    EXPECT_TRUE(got == answer.value || answer.kind != Any_Answer::Kind::json);
  });
  EXPECT_EQ(calls, any_answers(R"({"rows":[1]})").size());
}

TEST(Sleep_Recorder, records_the_pauses_of_client_and_operations_without_sleeping) {
  const auto start = std::chrono::steady_clock::now();
  {
    const Sleep_Recorder recorder;
    detail::sleep_between_attempts(1h);
    detail::sleep_before_retry(7ms);
    EXPECT_EQ(recorder.pauses(), (std::vector<std::chrono::milliseconds>{1h, 7ms}));
  }
  EXPECT_LT(std::chrono::steady_clock::now() - start, 30min);
}

TEST(Options_Guard, puts_the_options_back) {
  const std::string before = HTTP_Options::get().user_agent;
  {
    HTTP_Options options;
    options.user_agent = "somebody";
    const Options_Guard guard(options);
    EXPECT_EQ(HTTP_Options::get().user_agent, "somebody");
  }
  EXPECT_EQ(HTTP_Options::get().user_agent, before);
}

}  // namespace
}  // namespace zqpool::test
