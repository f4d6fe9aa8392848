#include "utils/support/service_call.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/guards.h"
#include "tests/support/log_capture.h"
#include "tests/support/scripted_server.h"
#include "tests/support/wire_table.h"

namespace zqpool::test {
namespace {

using json_spirit::Value;
using zqpool::detail::Service_Call;
using zqpool::detail::Service_Endpoint;

constexpr const char* path = "/zq/r/scsipool/lun";

class Service_Call_Test : public testing::Test {
 public:
  Service_Endpoint endpoint(const char* access_key = "key") const {
    return {server.host().c_str(), server.port(), server.ssl(), access_key};
  }
  static std::string text(const Value& value) { return json_spirit::write(value); }

  Scripted_Server server;
  Sleep_Recorder sleeps;
  Log_Capture log;
};

TEST_F(Service_Call_Test, get_sends_method_path_query_and_access_key) {
  server.queue(json_answer(200, R"({"a":1})"));
  Value answer;
  EXPECT_TRUE(Service_Call(endpoint(), HTTP_METHOD_GET, path)
                  .raw("pool_id", "p")
                  .raw("lun_id", "l")
                  .send(&answer));
  EXPECT_EQ(text(answer), R"({"a":1})");
  const Recorded_Request sent = server.request(0);
  EXPECT_EQ(sent.line, "GET /zq/r/scsipool/lun?pool_id=p&lun_id=l HTTP/1.1");
  EXPECT_EQ(sent.header("X-Access-Key"), "key");
  EXPECT_EQ(sent.body, "");
}

TEST_F(Service_Call_Test, without_query_the_target_is_the_path) {
  server.queue(json_answer(200, "{}"));
  EXPECT_TRUE(Service_Call(endpoint(), HTTP_METHOD_GET, path).send());
  EXPECT_EQ(server.request(0).target, path);
}

TEST_F(Service_Call_Test, fields_are_percent_encoded_in_their_order) {
  server.queue(json_answer(200, "{}"));
  EXPECT_TRUE(Service_Call(endpoint(), HTTP_METHOD_GET, path)
                  .field("uuid", "a b/c")
                  .field("empty", "")
                  .field("path", "\xc3\xa9&=")
                  .send());
  EXPECT_EQ(server.request(0).target, std::string(path) + "?uuid=a+b%2fc&empty=&path=%c3%a9%26%3d");
}

TEST_F(Service_Call_Test, raw_fields_go_out_as_they_stand) {
  server.queue(json_answer(200, "{}"));
  EXPECT_TRUE(Service_Call(endpoint(), HTTP_METHOD_GET, path)
                  .raw("name", "a&b=c%41+'")
                  .raw("empty", "")
                  .flag("force", true)
                  .flag("delete_empty_lun", false)
                  .send());
  EXPECT_EQ(server.request(0).target,
            std::string(path) + "?name=a&b=c%41+'&empty=&force=true&delete_empty_lun=false");
}

TEST_F(Service_Call_Test, field_longer_than_any_buffer_is_sent_whole) {
  server.queue(json_answer(200, "{}"));
  const std::string name(5000, 'n');
  EXPECT_TRUE(Service_Call(endpoint(), HTTP_METHOD_GET, path).raw("name", name).send());
  EXPECT_EQ(server.request(0).target, std::string(path) + "?name=" + name);
}

TEST_F(Service_Call_Test, empty_access_key_sends_no_header) {
  server.queue(json_answer(200, "{}"));
  EXPECT_TRUE(Service_Call(endpoint(""), HTTP_METHOD_GET, path).send());
  EXPECT_EQ(server.request(0).header_count("X-Access-Key"), 0U);
}

TEST_F(Service_Call_Test, post_and_put_carry_the_body) {
  for (const int method : {HTTP_METHOD_POST, HTTP_METHOD_PUT}) {
    server.queue(json_answer(200, R"({"lun_id":"l"})"));
    Value answer;
    EXPECT_TRUE(Service_Call(endpoint(), method, path)
                    .body(Object{{"pool_id", "p"}, {"force", true}})
                    .send(&answer));
    EXPECT_EQ(text(answer), R"({"lun_id":"l"})");
  }
  EXPECT_EQ(server.request(0).method, "POST");
  EXPECT_EQ(server.request(1).method, "PUT");
  for (std::size_t i = 0; i < 2; ++i) {
    EXPECT_EQ(server.request(i).body, R"({"force":true,"pool_id":"p"})");
    EXPECT_EQ(server.request(i).header("X-Access-Key"), "key");
  }
}

TEST_F(Service_Call_Test, put_carries_query_and_body) {
  server.queue(json_answer(200, "{}"));
  EXPECT_TRUE(Service_Call(endpoint(), HTTP_METHOD_PUT, path)
                  .field("uuid", "d")
                  .body(Object{{"host_id", "h"}})
                  .send());
  EXPECT_EQ(server.request(0).target, std::string(path) + "?uuid=d");
  EXPECT_EQ(server.request(0).body, R"({"host_id":"h"})");
}

TEST_F(Service_Call_Test, post_without_body) {
  server.queue(http_answer(204, ""));
  EXPECT_TRUE(Service_Call(endpoint(), HTTP_METHOD_POST, path).send());
  EXPECT_EQ(server.request(0).body, "");
  EXPECT_EQ(server.request(0).header_count("Content-Type"), 0U);
}

TEST_F(Service_Call_Test, delete_sends_no_body) {
  server.queue(http_answer(204, ""));
  EXPECT_TRUE(Service_Call(endpoint(), HTTP_METHOD_DELETE, path)
                  .raw("lun_id", "l")
                  .flag("force", true)
                  .send());
  EXPECT_EQ(server.request(0).line, "DELETE /zq/r/scsipool/lun?lun_id=l&force=true HTTP/1.1");
  EXPECT_EQ(server.request(0).body, "");
}

TEST_F(Service_Call_Test, unwanted_answer_is_dropped) {
  server.queue(json_answer(200, R"({"a":1})"));
  EXPECT_TRUE(Service_Call(endpoint(), HTTP_METHOD_POST, path).body(Object()).send(nullptr));
}

TEST_F(Service_Call_Test, unwanted_answer_must_be_json_too) {
  server.queue(http_answer(200, "<html>"));
  EXPECT_FALSE(Service_Call(endpoint(), HTTP_METHOD_POST, path).body(Object()).send());
}

TEST_F(Service_Call_Test, failed_call_hands_its_body_over) {
  server.queue(json_answer(409, R"({"error":{"code":1}})"));
  Value answer;
  EXPECT_FALSE(Service_Call(endpoint(), HTTP_METHOD_GET, path).send(&answer));
  EXPECT_EQ(text(answer), R"({"error":{"code":1}})");
}

TEST_F(Service_Call_Test, failed_call_without_a_body_leaves_the_answer) {
  server.queue(http_answer(500, ""));
  Value answer("kept");
  EXPECT_FALSE(Service_Call(endpoint(), HTTP_METHOD_GET, path).send(&answer));
  EXPECT_EQ(text(answer), "\"kept\"");
}

TEST_F(Service_Call_Test, status_is_stored_when_the_call_succeeds) {
  server.queue(json_answer(201, "[]")).queue(http_answer(204, ""));
  int status = -1;
  EXPECT_TRUE(Service_Call(endpoint(), HTTP_METHOD_GET, path).status(&status).send());
  EXPECT_EQ(status, 201);
  EXPECT_TRUE(Service_Call(endpoint(), HTTP_METHOD_DELETE, path).status(&status).send());
  EXPECT_EQ(status, 204);
}

TEST_F(Service_Call_Test, status_is_stored_also_when_the_call_failed) {
  server.queue(json_answer(404, "{}")).queue(http_answer(507, "full"));
  int status = -1;
  Value answer;
  EXPECT_FALSE(Service_Call(endpoint(), HTTP_METHOD_GET, path).status(&status).send(&answer));
  EXPECT_EQ(status, 404);
  EXPECT_FALSE(Service_Call(endpoint(), HTTP_METHOD_DELETE, path).status(&status).send());
  EXPECT_EQ(status, 507);
}

TEST_F(Service_Call_Test, status_is_0_when_no_answer_came) {
  const Refused_Port nobody;
  const Service_Endpoint to{"127.0.0.1", nobody.port(), false, "key"};
  for (const int method : {HTTP_METHOD_GET, HTTP_METHOD_DELETE}) {
    int status = -1;
    EXPECT_FALSE(Service_Call(to, method, path).status(&status).send());
    EXPECT_EQ(status, 0);
  }
}

TEST_F(Service_Call_Test, null_status_is_not_wanted) {
  server.queue(json_answer(404, "{}")).queue(json_answer(404, "{}"));
  EXPECT_FALSE(Service_Call(endpoint(), HTTP_METHOD_GET, path).status(nullptr).send());
  EXPECT_FALSE(Service_Call(endpoint(), HTTP_METHOD_DELETE, path).status(nullptr).send());
}

TEST_F(Service_Call_Test, client_repeats_a_get_by_itself) {
  server.queue(http_answer(503, "")).queue(http_answer(503, "")).queue(json_answer(200, "[]"));
  Value answer;
  EXPECT_TRUE(Service_Call(endpoint(), HTTP_METHOD_GET, path).send(&answer));
  EXPECT_EQ(server.request_count(), 3U);
}

TEST_F(Service_Call_Test, retries_0_keeps_the_client_from_repeating) {
  server.queue(http_answer(503, "")).queue(json_answer(200, "[]"));
  EXPECT_FALSE(Service_Call(endpoint(), HTTP_METHOD_GET, path).retries(0).send());
  EXPECT_EQ(server.request_count(), 1U);
}

TEST_F(Service_Call_Test, client_logs_a_failed_call_unless_told_not_to) {
  server.otherwise(json_answer(404, "{}"));
  EXPECT_FALSE(Service_Call(endpoint(), HTTP_METHOD_GET, path).send());
  const std::vector<Log_Line> lines = log.take();
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_TRUE(line_matches(client_error("GET", path).text, lines[0].text, server.port()))
      << lines[0].text;
  EXPECT_EQ(lines[0].text.find("key"), std::string::npos);
  EXPECT_FALSE(Service_Call(endpoint(), HTTP_METHOD_GET, path).logging_error(false).send());
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(Service_Call_Test, call_can_be_sent_again_with_all_it_has) {
  server.otherwise(json_answer(200, "{}"));
  Service_Call call(endpoint(), HTTP_METHOD_PUT, path);
  call.field("uuid", "d").body(Object{{"a", 1}});
  Value answer;
  EXPECT_TRUE(call.send(&answer));
  EXPECT_TRUE(call.send(&answer));
  for (std::size_t i = 0; i < 2; ++i) {
    EXPECT_EQ(server.request(i).target, std::string(path) + "?uuid=d");
    EXPECT_EQ(server.request(i).body, R"({"a":1})");
    EXPECT_EQ(server.request(i).header("X-Access-Key"), "key");
  }
}

TEST_F(Service_Call_Test, given_client_is_used_as_it_is) {
  server.otherwise(json_answer(200, "{}"));
  JSON_RESTful_Client client(server.host().c_str(), server.port(), false, true);
  client.set_header(HTTP_HEAD_X_ACCESS_KEY, "of the client");
  EXPECT_TRUE(Service_Call(client, HTTP_METHOD_GET, path).send());
  EXPECT_TRUE(Service_Call(client, HTTP_METHOD_DELETE, path).send());
  EXPECT_EQ(server.request(0).header("X-Access-Key"), "of the client");
  EXPECT_EQ(server.request(1).header("X-Access-Key"), "of the client");
  EXPECT_EQ(server.connection_count(), 1U) << "it keeps its connection";
}

TEST_F(Service_Call_Test, given_client_without_a_key_sends_none) {
  server.otherwise(json_answer(200, "{}"));
  JSON_RESTful_Client client(server.host().c_str(), server.port(), false, true);
  EXPECT_TRUE(Service_Call(client, HTTP_METHOD_GET, path).send());
  EXPECT_EQ(server.request(0).header_count("X-Access-Key"), 0U);
}

TEST_F(Service_Call_Test, method_without_a_call_is_refused) {
  EXPECT_FALSE(Service_Call(endpoint(), HTTP_METHOD_TRACE, path).send());
  EXPECT_EQ(server.request_count(), 0U);
  const std::vector<Log_Line> lines = log.take();
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0].priority, "LM_EMERGENCY");
  EXPECT_TRUE(line_matches("Unexpected error in {place}, no call for method 10:",
                           lines[0].text.substr(0, lines[0].text.find('\n')), 0))
      << lines[0].text;
}

TEST_F(Service_Call_Test, body_with_invalid_utf8_is_a_failed_call) {
  EXPECT_FALSE(
      Service_Call(endpoint(), HTTP_METHOD_POST, path).body(Object{{"path", "\xff"}}).send());
  EXPECT_EQ(server.request_count(), 0U);
}

TEST_F(Service_Call_Test, access_key_that_could_split_the_request_is_refused) {
  EXPECT_FALSE(Service_Call(endpoint("a\r\nX-Evil: b"), HTTP_METHOD_GET, path).send());
  EXPECT_EQ(server.connection_count(), 0U);
}

}  // namespace
}  // namespace zqpool::test
