// How responses are read, and which ones make a call succeed.

#include "tests/platform/http/http_test.h"

namespace zqpool::test {
namespace {

using testing::HasSubstr;

const json_spirit::Value untouched = "untouched";

class HTTP_Answer_Test : public HTTP_Test {
 protected:
  /// Makes one GET, without retries, that gets this answer.
  Called got(const Answer& answer, Call_Options options = {}) {
    server_.queue(answer);
    options.tune = [](JSON_RESTful_Client& client) { client.retries(0); };
    return call(server_.endpoint(), options);
  }

  void expect_good(const Called& called, const json_spirit::Value& value) {
    EXPECT_TRUE(called.ok) << called.report.text;
    EXPECT_EQ(called.answer, value);
    EXPECT_EQ(called.report.phase, HTTP_Phase::done);
  }

  /// Expects that the call failed for this reason and left the answer value alone.
  void expect_failed(const Called& called, HTTP_Error error, unsigned status = 0) {
    EXPECT_FALSE(called.ok);
    EXPECT_EQ(http_error_name(called.report.error), std::string(http_error_name(error)))
        << called.report.text;
    EXPECT_EQ(called.status, status);
    EXPECT_EQ(called.answer, untouched);
    EXPECT_EQ(called.report.attempts, 1);
  }

  Scripted_Server server_;
};

// --- Success and the answer value ---------------------------------------------------------------

TEST_F(HTTP_Answer_Test, every_2xx_status_is_a_success) {
  for (const unsigned status : {200U, 201U, 202U, 206U, 226U, 299U}) {
    const Called called = got(json_answer(status, R"({"a":1})"));
    expect_good(called, json(R"({"a":1})"));
    EXPECT_EQ(called.status, status);
  }
}

TEST_F(HTTP_Answer_Test, every_other_status_is_a_failure) {
  for (const unsigned status :
       {300U, 301U, 304U, 400U, 401U, 403U, 404U, 409U, 422U, 500U, 502U, 503U, 507U, 599U, 999U}) {
    expect_failed(got(http_answer(status, "")), HTTP_Error::status, status);
    EXPECT_THAT(last_http_exchange().text, HasSubstr(std::to_string(status)));
  }
}

TEST_F(HTTP_Answer_Test, any_json_value_is_a_good_body) {
  for (const char* text : {"null", "true", "[]", "{}", "\"text\"", "7", "1.5", " {} \r\n"}) {
    expect_good(got(json_answer(200, text)), json(text));
  }
}

TEST_F(HTTP_Answer_Test, an_empty_body_is_good_and_leaves_the_value) {
  expect_good(got(json_answer(200, "")), untouched);
  expect_good(got(http_answer(204, "")), untouched);
  expect_good(got(http_answer(200, "").chunked(10)), untouched);
}

TEST_F(HTTP_Answer_Test, the_content_type_does_not_matter) {
  expect_good(got(http_answer(200, "[1]", {{"Content-Type", "text/plain"}})), json("[1]"));
  expect_good(got(http_answer(200, "[1]")), json("[1]"));
}

TEST_F(HTTP_Answer_Test, a_2xx_whose_body_is_not_json_is_a_failure) {
  for (const char* text : {"<html></html>", "{\"a\":", "{} {}", "{a:1}", "nul", "\"\xff\""}) {
    expect_failed(got(json_answer(200, text)), HTTP_Error::bad_json, 200);
  }
}

TEST_F(HTTP_Answer_Test, a_2xx_whose_body_is_not_json_is_a_failure_also_when_nobody_wants_it) {
  Call_Options options;
  options.want_answer = false;
  expect_failed(got(json_answer(200, "oops"), options), HTTP_Error::bad_json, 200);
  options.method = HTTP_METHOD_POST;
  expect_failed(got(json_answer(200, "oops"), options), HTTP_Error::bad_json, 200);
  options.method = HTTP_METHOD_DELETE;
  expect_failed(got(json_answer(200, "oops"), options), HTTP_Error::bad_json, 200);
  expect_good(got(json_answer(200, "{}"), options), untouched);
}

TEST_F(HTTP_Answer_Test, the_body_of_a_failure_reaches_the_value) {
  const Called called = got(json_answer(404, R"({"error":{"code":-1,"message":"not here"}})"));
  EXPECT_FALSE(called.ok);
  EXPECT_EQ(called.status, 404U);
  EXPECT_EQ(called.answer, json(R"({"error":{"code":-1,"message":"not here"}})"));
  EXPECT_EQ(called.report.service_message, "not here");
}

TEST_F(HTTP_Answer_Test, the_body_of_a_failure_stays_out_where_it_is_not_to_be_kept) {
  Call_Options options;
  options.keep_error_body = false;
  expect_failed(got(json_answer(404, R"({"error":{"message":"no"}})"), options), HTTP_Error::status,
                404);
  EXPECT_EQ(last_http_exchange().service_message, "no");
}

TEST_F(HTTP_Answer_Test, the_body_of_a_failure_that_is_not_json_leaves_the_value) {
  expect_failed(got(http_answer(500, "<html>Oops</html>")), HTTP_Error::status, 500);
  expect_failed(got(http_answer(500, "{\"a\"")), HTTP_Error::status, 500);
}

TEST_F(HTTP_Answer_Test, a_service_message_is_bounded_and_stays_text) {
  std::string umlauts = "x";
  for (int i = 0; i < 2000; ++i)
    umlauts += "\xc3\xa4";
  got(json_answer(500, R"({"error":{"message":")" + umlauts + "\"}}"));
  const std::string message = last_http_exchange().service_message;
  EXPECT_LE(message.size(), 1000U);
  EXPECT_GE(message.size(), 990U);
  EXPECT_TRUE(json_spirit::read('"' + message + '"', *std::make_unique<json_spirit::Value>()))
      << "cut in the middle of a character";
  for (const char* body : {R"({"error":{"message":7}})", R"({"error":"no"})", R"([])", "\"no\""}) {
    got(json_answer(500, body));
    EXPECT_EQ(last_http_exchange().service_message, "");
  }
}

TEST_F(HTTP_Answer_Test, headers_of_the_answer_reach_the_response) {
  server_.queue(json_answer(503, "{}").header("Retry-After", "7").header("x-Unknown", "1"));
  JSON_RESTful_Client client("127.0.0.1", server_.port(), false, true);
  client.retries(0);
  HTTP_Request request(HTTP_METHOD_GET, "/zq/x", false);
  HTTP_Response response;
  json_spirit::Value answer;
  EXPECT_FALSE(client.get(request, response, &answer));
  EXPECT_EQ(response.status(), 503U);
  EXPECT_STREQ(response.headers().get(HTTP_HEAD_RETRY_AFTER), "7");
  EXPECT_STREQ(response.headers().get(HTTP_HEAD_CONTENT_TYPE), "application/json");
  EXPECT_EQ(response.headers().get(HTTP_HEAD_LOCATION), nullptr);
}

TEST_F(HTTP_Answer_Test, the_status_is_0_when_no_http_answer_came) {
  const Refused_Port nobody;
  HTTP_Response response;
  response.status(200);
  JSON_RESTful_Client client("127.0.0.1", nobody.port(), false, true);
  HTTP_Request request(HTTP_METHOD_DELETE, "/zq/x", false);
  EXPECT_FALSE(client.del(request, response));
  EXPECT_EQ(response.status(), 0U);
}

TEST_F(HTTP_Answer_Test, redirects_are_not_followed) {
  Scripted_Server elsewhere;
  const std::string target = "http://127.0.0.1:" + std::to_string(elsewhere.port()) + "/zq/y";
  for (const unsigned status : {301U, 302U, 303U, 307U, 308U}) {
    expect_failed(got(http_answer(status, "", {{"Location", target}})), HTTP_Error::status, status);
  }
  EXPECT_EQ(elsewhere.connection_count(), 0U);
  EXPECT_EQ(server_.request_count(), 5U);
}

// --- Forms of an answer -------------------------------------------------------------------------

TEST_F(HTTP_Answer_Test, a_chunked_body_byte_by_byte) {
  const std::string head = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
  const auto answer = [&head](const char* body) {
    return raw_answer(head + body).drip(std::chrono::milliseconds(1), head.size());
  };
  expect_good(got(answer("0\r\n\r\n")), untouched);
  expect_good(got(answer("0;x\r\nT: t\r\n\r\n")), untouched);
  expect_good(got(answer("3\r\n[5]\r\n0\r\n\r\n")), json("[5]"));
  expect_failed(got(answer("0\r\n\r")), HTTP_Error::broken);
}

TEST_F(HTTP_Answer_Test, a_chunked_body) {
  const std::string text = R"({"rows":[1,2,3]})";
  for (const std::size_t chunk : {std::size_t{1}, std::size_t{7}, std::size_t{1000}}) {
    expect_good(got(json_answer(200, text).chunked(chunk)), json(text));
  }
  expect_good(got(raw_answer("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
                             "2;ext=\"a\"\r\n[1\r\n1\r\n]\r\n0\r\nX-Trailer: t\r\n\r\n")),
              json("[1]"));
}

TEST_F(HTTP_Answer_Test, a_body_that_the_end_of_the_connection_ends) {
  expect_good(got(json_answer(200, "[1,2]").until_end()), json("[1,2]"));
  expect_good(got(raw_answer("HTTP/1.0 200 OK\r\n\r\n[1]")), json("[1]"));
  expect_failed(got(json_answer(200, "[1,2").until_end()), HTTP_Error::bad_json, 200);
}

TEST_F(HTTP_Answer_Test, a_body_that_comes_byte_by_byte) {
  const Answer drip = json_answer(200, "[1,2,3]").drip(1ms);
  expect_good(got(drip), json("[1,2,3]"));
}

TEST_F(HTTP_Answer_Test, a_reset_after_the_whole_answer_does_no_harm) {
  expect_good(got(json_answer(200, "[1]").end(Answer::End::reset)), json("[1]"));
}

TEST_F(HTTP_Answer_Test, interim_answers_are_passed_over) {
  expect_good(got(json_answer(200, "[1]").after("HTTP/1.1 100 Continue\r\n\r\n")), json("[1]"));
  expect_good(got(json_answer(200, "[2]")
                      .after("HTTP/1.1 103 Early Hints\r\nLink: </a>\r\n\r\n")
                      .after("HTTP/1.1 102 Processing\r\n\r\n")
                      .drip(1ms)),
              json("[2]"));
  EXPECT_EQ(last_http_exchange().status, 200U);
}

TEST_F(HTTP_Answer_Test, endless_interim_answers_end_the_exchange) {
  std::string interim;
  for (int i = 0; i < 1000; ++i)
    interim += "HTTP/1.1 100 Continue\r\n\r\n";
  expect_failed(got(json_answer(200, "[1]").after(interim)), HTTP_Error::malformed);
}

TEST_F(HTTP_Answer_Test, a_switch_of_protocols_is_no_answer) {
  expect_failed(got(raw_answer("HTTP/1.1 101 Switching Protocols\r\nUpgrade: x\r\n\r\n")),
                HTTP_Error::malformed);
}

TEST_F(HTTP_Answer_Test, statuses_without_a_body_need_no_length) {
  // The connection stays open, so waiting for a body would never end.
  expect_good(got(raw_answer("HTTP/1.1 204 No Content\r\n\r\n").end(Answer::End::hold)), untouched);
  expect_failed(got(raw_answer("HTTP/1.1 304 Not Modified\r\nContent-Length: 7\r\n\r\n")
                        .end(Answer::End::hold)),
                HTTP_Error::status, 304);
}

TEST_F(HTTP_Answer_Test, a_service_that_does_not_close_costs_a_moment_only) {
  for (const char* headers : {"", "Connection: close\r\n"}) {
    const std::string head = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n";
    const Called called = got(raw_answer(head + headers + "\r\n{}").end(Answer::End::hold));
    expect_good(called, json("{}"));
    EXPECT_LT(called.took, soon);
  }
  EXPECT_TRUE(server_.settle()) << "the client left a connection open";
}

TEST_F(HTTP_Answer_Test, bytes_after_the_answer_are_dropped) {
  expect_good(
      got(raw_answer("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\n[]HTTP/1.1 500 No\r\n\r\n")),
      json("[]"));
}

// --- What is no answer --------------------------------------------------------------------------

TEST_F(HTTP_Answer_Test, garbage_instead_of_http) {
  for (const char* bytes :
       {"SSH-2.0-OpenSSH_9.2\r\n", "garbage\r\n", "{\"rows\":[]}\r\n", "HTTP/1.1 2x0 OK\r\n\r\n",
        "HTTP/1.1\r\n\r\n", "HTTP/9.9 200 OK\r\n\r\n", "http/1.1 200 OK\r\n\r\n",
        "HTTP/1.1 200 OK\r\nNo colon\r\n\r\n", "HTTP/1.1 200 OK\r\nContent-Length: x\r\n\r\n",
        "HTTP/1.1 200 OK\r\nContent-Length: -1\r\n\r\n",
        "HTTP/1.1 200 OK\r\nContent-Length: 2\r\nContent-Length: 3\r\n\r\n[1]",
        "HTTP/1.1 200 OK\r\nContent-Length: 99999999999999999999999\r\n\r\n",
        "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\n[]",
        "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n2\r\n[]x0\r\n\r\n"}) {
    SCOPED_TRACE(bytes);
    const Called called = got(raw_answer(bytes).end(Answer::End::hold));
    expect_failed(called, HTTP_Error::malformed, called.status);
    EXPECT_EQ(called.status, 0U);
  }
}

TEST_F(HTTP_Answer_Test, garbage_that_ends_before_it_shows_what_it_is) {
  for (const char* bytes : {"garbage", "\r\n\r\n", "\n", "HTTP"}) {
    expect_failed(got(raw_answer(bytes)), HTTP_Error::broken);
  }
}

TEST_F(HTTP_Answer_Test, a_connection_that_ends_within_the_head) {
  const std::string whole = json_answer(200, "[1]").bytes(false);
  const std::size_t head = whole.find("\r\n\r\n") + 4;
  for (std::size_t cut = 1; cut < head; ++cut) {
    const Called called = got(raw_answer(whole).cut_after(cut));
    expect_failed(called, HTTP_Error::broken);
    EXPECT_EQ(called.report.phase, HTTP_Phase::body);
    EXPECT_TRUE(called.report.sent);
    EXPECT_TRUE(called.report.outcome_unknown());
  }
}

TEST_F(HTTP_Answer_Test, a_connection_that_ends_within_the_body) {
  const std::string text = R"({"rows":[1,2,3]})";
  for (const Answer& answer : {json_answer(200, text), json_answer(200, text).chunked(5)}) {
    const std::string whole = answer.bytes(false);
    for (std::size_t cut = whole.find("\r\n\r\n") + 4; cut < whole.size(); ++cut) {
      for (const Answer::End end : {Answer::End::close, Answer::End::reset}) {
        const Called called = got(Answer(answer).cut_after(cut).end(end));
        expect_failed(called, HTTP_Error::broken);
        EXPECT_EQ(called.report.phase, HTTP_Phase::body);
      }
    }
  }
}

TEST_F(HTTP_Answer_Test, a_connection_that_ends_before_the_answer) {
  for (const Answer& answer : {close_after_request(), reset_after_request(), close_at_once()}) {
    const Called called = got(answer);
    expect_failed(called, HTTP_Error::broken);
    EXPECT_NE(called.report.text, "");
  }
}

TEST_F(HTTP_Answer_Test, an_early_refusal_is_heard_although_the_request_broke) {
  const json_spirit::Value body(Object{{"a", std::string(8 << 20, 'x')}});
  Call_Options options;
  options.method = HTTP_METHOD_POST;
  options.body = &body;
  const Called called =
      got(reset_after_reading(1000,
                              json_answer(413, R"({"error":{"message":"too much"}})").bytes(true)),
          options);
  EXPECT_FALSE(called.ok);
  EXPECT_EQ(called.status, 413U);
  EXPECT_EQ(called.report.service_message, "too much");
  EXPECT_FALSE(called.report.connection_reused);
}

// --- Limits -------------------------------------------------------------------------------------

TEST_F(HTTP_Answer_Test, the_largest_answer_is_taken_and_one_byte_more_is_not) {
  set_options([](HTTP_Options& options) { options.largest_answer = 1000; });
  const std::string fits = '"' + std::string(998, 'x') + '"';
  const std::string too_large = '"' + std::string(999, 'x') + '"';
  expect_good(got(json_answer(200, fits)), json(fits));
  expect_good(got(json_answer(200, fits).chunked(100)), json(fits));
  expect_good(got(json_answer(200, fits).until_end()), json(fits));
  expect_failed(got(json_answer(200, too_large)), HTTP_Error::too_large);
  expect_failed(got(json_answer(200, too_large).chunked(100)), HTTP_Error::too_large);
  expect_failed(got(json_answer(200, too_large).until_end()), HTTP_Error::too_large);
  expect_failed(got(json_answer(500, too_large)), HTTP_Error::too_large);
}

TEST_F(HTTP_Answer_Test, a_length_that_is_too_large_is_refused_before_the_body_comes) {
  set_options([](HTTP_Options& options) { options.largest_answer = 1000; });
  expect_failed(
      got(raw_answer("HTTP/1.1 200 OK\r\nContent-Length: 1001\r\n\r\n").end(Answer::End::hold)),
      HTTP_Error::too_large);
  expect_failed(got(raw_answer("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3e9\r\n")
                        .end(Answer::End::hold)),
                HTTP_Error::too_large);
}

TEST_F(HTTP_Answer_Test, a_length_beyond_all_memory_takes_none) {
  set_options([](HTTP_Options& options) { options.largest_answer = std::size_t{1} << 50; });
  expect_failed(got(raw_answer("HTTP/1.1 200 OK\r\nContent-Length: 1000000000000000\r\n\r\n[")),
                HTTP_Error::broken);
}

TEST_F(HTTP_Answer_Test, a_large_answer) {
  std::string text = "[0";
  for (int i = 1; i < 300000; ++i)
    text += ',' + std::to_string(i);
  text += ']';
  const Called called = got(json_answer(200, text).chunked(10000));
  ASSERT_TRUE(called.ok);
  EXPECT_EQ(called.answer.get_array().size(), 300000U);
  EXPECT_GT(called.report.bytes_received, text.size());
}

TEST_F(HTTP_Answer_Test, a_header_section_that_is_too_large) {
  expect_failed(got(json_answer(200, "{}").header("X-Long", std::string(100000, 'x'))),
                HTTP_Error::too_large);
  Answer many = json_answer(200, "{}");
  for (int i = 0; i < 5000; ++i)
    many.header("X-" + std::to_string(i), "some value or other");
  expect_failed(got(many), HTTP_Error::too_large);
}

TEST_F(HTTP_Answer_Test, an_endless_header_section_ends_the_exchange) {
  const Called called =
      got(raw_answer("HTTP/1.1 200 OK\r\nX: " + std::string(1 << 20, 'x')).end(Answer::End::hold));
  expect_failed(called, HTTP_Error::too_large);
}

TEST_F(HTTP_Answer_Test, an_endless_chunk_extension_or_trailer_ends_the_exchange) {
  const std::string head = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
  for (const char* start : {"2;ext=", "0\r\nX-Trailer: "}) {
    const Called called =
        got(raw_answer(head + start + std::string(1 << 20, 'x')).end(Answer::End::hold));
    expect_failed(called, HTTP_Error::too_large);
  }
}

// --- The report ---------------------------------------------------------------------------------

TEST_F(HTTP_Answer_Test, the_report_of_a_good_call) {
  server_.queue(json_answer(200, R"({"a":1})"));
  Call_Options options;
  options.path = "/zq/r/x y";
  options.query = "secret=1";
  const HTTP_Exchange_Report report = call(server_.endpoint(), options).report;
  EXPECT_TRUE(report.ok());
  EXPECT_EQ(report.method, HTTP_METHOD_GET);
  EXPECT_FALSE(report.ssl);
  EXPECT_EQ(report.host, "127.0.0.1");
  EXPECT_EQ(report.address, "127.0.0.1");
  EXPECT_EQ(report.port, server_.port());
  EXPECT_EQ(report.path, "/zq/r/x%20y");
  EXPECT_EQ(report.status, 200U);
  EXPECT_EQ(report.error, HTTP_Error::none);
  EXPECT_EQ(report.phase, HTTP_Phase::done);
  EXPECT_EQ(report.text, "");
  EXPECT_EQ(report.service_message, "");
  EXPECT_EQ(report.attempts, 1);
  EXPECT_TRUE(report.sent);
  EXPECT_FALSE(report.connection_reused);
  EXPECT_FALSE(report.tls_resumed);
  EXPECT_FALSE(report.outcome_unknown());
  EXPECT_EQ(report.bytes_sent, server_.request(0).raw.size());
  EXPECT_EQ(report.bytes_received, json_answer(200, R"({"a":1})").bytes(true).size());
  EXPECT_GT(report.connect_time.count(), 0);
  EXPECT_EQ(report.tls_time.count(), 0);
  EXPECT_GT(report.first_byte_time.count(), 0);
  EXPECT_GE(report.total, report.name_time + report.connect_time + report.first_byte_time);
}

TEST_F(HTTP_Answer_Test, the_report_times_the_wait_for_the_first_byte) {
  const HTTP_Exchange_Report report = got(json_answer(200, "[]").drip(40ms, 0).cut_after(1)).report;
  EXPECT_GE(report.first_byte_time, 39ms);
  EXPECT_GE(report.total, report.first_byte_time);
}

}  // namespace
}  // namespace zqpool::test
