// HTTP_Session and JSON_HTTP_Session.

#include "platform/http/http_session.h"

#include <sys/socket.h>

#include "tests/platform/http/http_test.h"

namespace zqpool::test {
namespace {

class HTTP_Session_Test : public HTTP_Test {
 protected:
  static HTTP_Session_Ptr open(const Endpoint& to, bool keep_alive = false, int seconds = 10,
                               int attempts = 1) {
    return HTTP_Session_Factory().create(to.host.c_str(), to.port, to.ssl, nullptr, attempts,
                                         nullptr, keep_alive, seconds, seconds, 0, 0);
  }

  struct Got {
    bool ok = false;
    unsigned status = 0;
    json_spirit::Value answer = "untouched";
  };

  static Got get(JSON_HTTP_Session& session, bool keep_alive = true) {
    HTTP_Request request(HTTP_METHOD_GET, "/zq/r/file_uri/statfs", keep_alive);
    request.headers().put(HTTP_HEAD_X_ACCESS_KEY, "key", true);
    request.query_string("uri=%2fzq%2fdata");
    HTTP_Response response;
    response.status(999);
    Got got;
    got.ok = session.get(request, response, got.answer);
    got.status = response.status();
    return got;
  }

  Scripted_Server server_;
};

TEST_F(HTTP_Session_Test, an_empty_wrapper_holds_no_session) {
  JSON_HTTP_Session session(HTTP_Session_Ptr(), 5, 300);
  EXPECT_FALSE(session);
  const Got got = get(session);
  EXPECT_FALSE(got.ok);
  EXPECT_EQ(got.status, 0U);
  EXPECT_EQ(got.answer, json_spirit::Value("untouched"));
}

TEST_F(HTTP_Session_Test, the_factory_does_the_connecting) {
  const HTTP_Session_Ptr session = open(server_.endpoint());
  EXPECT_TRUE(session.get() != nullptr);
  EXPECT_TRUE(server_.wait_for_connections(1));
  EXPECT_EQ(server_.request_count(), 0U);
  const Refused_Port nobody;
  EXPECT_TRUE(open({"127.0.0.1", nobody.port(), false}).get() == nullptr);
  EXPECT_EQ(last_http_exchange().error, HTTP_Error::connect);
}

TEST_F(HTTP_Session_Test, an_exchange_over_http_and_https) {
  for (const bool ssl : {false, true}) {
    Scripted_Server server(ssl ? tls() : Server_Options());
    server.queue(json_answer(200, R"({"free":1})"));
    JSON_HTTP_Session session(HTTP_Session_Ptr(), 5, 300);
    session.reset(open(server.endpoint()));
    EXPECT_TRUE(session);
    const Got got = get(session);
    EXPECT_TRUE(got.ok) << last_http_exchange().text;
    EXPECT_EQ(got.status, 200U);
    EXPECT_EQ(got.answer, json(R"({"free":1})"));
    EXPECT_EQ(server.request(0).line, "GET /zq/r/file_uri/statfs?uri=%2fzq%2fdata HTTP/1.1");
    EXPECT_EQ(server.request(0).header("X-Access-Key"), "key");
    EXPECT_NE(server.request(0).header("Connection"), "close");
    EXPECT_EQ(server.request(0).header("X-Request-Id"), last_http_exchange().request_id);
  }
}

TEST_F(HTTP_Session_Test, any_status_with_a_good_body_is_an_exchange_that_completed) {
  for (const unsigned status : {200U, 201U, 404U, 500U}) {
    server_.queue(json_answer(status, "[1]"));
    JSON_HTTP_Session session(open(server_.endpoint()), 5, 300);
    const Got got = get(session);
    EXPECT_TRUE(got.ok);
    EXPECT_EQ(got.status, status);
    EXPECT_EQ(got.answer, json("[1]"));
  }
}

TEST_F(HTTP_Session_Test, an_empty_body_leaves_the_answer) {
  server_.queue(http_answer(204, ""));
  JSON_HTTP_Session session(open(server_.endpoint()), 5, 300);
  const Got got = get(session);
  EXPECT_TRUE(got.ok);
  EXPECT_EQ(got.status, 204U);
  EXPECT_EQ(got.answer, json_spirit::Value("untouched"));
}

TEST_F(HTTP_Session_Test, failures_are_not_repeated) {
  const struct {
    Answer answer;
    HTTP_Error error;
    unsigned status;
  } rows[] = {{close_after_request(), HTTP_Error::broken, 0},
              {json_answer(200, "[1]").cut_after(60), HTTP_Error::broken, 0},
              {raw_answer("garbage\r\n"), HTTP_Error::malformed, 0},
              {json_answer(200, "oops"), HTTP_Error::bad_json, 200}};
  for (const auto& row : rows) {
    const std::size_t before = server_.request_count();
    server_.queue(row.answer);
    JSON_HTTP_Session session(open(server_.endpoint()), 5, 300);
    const Got got = get(session);
    EXPECT_FALSE(got.ok);
    EXPECT_EQ(got.status, row.status);
    EXPECT_EQ(got.answer, json_spirit::Value("untouched"));
    EXPECT_STREQ(http_error_name(last_http_exchange().error), http_error_name(row.error));
    EXPECT_EQ(server_.request_count(), before + 1);
  }
  EXPECT_TRUE(sleeps_.pauses().empty());
}

TEST_F(HTTP_Session_Test, only_reads_are_taken) {
  JSON_HTTP_Session session(open(server_.endpoint()), 5, 300);
  HTTP_Request request(HTTP_METHOD_DELETE, "/zq/x", false);
  HTTP_Response response;
  json_spirit::Value answer;
  EXPECT_FALSE(session.get(request, response, answer));
  EXPECT_EQ(last_http_exchange().error, HTTP_Error::refused_request);
  EXPECT_EQ(server_.request_count(), 0U);
}

TEST_F(HTTP_Session_Test, a_kept_session_carries_several_exchanges) {
  server_.otherwise(json_answer(200, "{}"));
  JSON_HTTP_Session session(open(server_.endpoint(), true), 5, 300);
  for (int i = 0; i < 3; ++i) {
    EXPECT_TRUE(session);
    EXPECT_TRUE(get(session).ok);
  }
  EXPECT_EQ(server_.connection_count(), 1U);
}

TEST_F(HTTP_Session_Test, a_session_that_is_not_kept_is_good_for_one_exchange) {
  server_.otherwise(json_answer(200, "{}"));
  JSON_HTTP_Session session(open(server_.endpoint()), 5, 300);
  EXPECT_TRUE(get(session, false).ok);
  EXPECT_EQ(server_.request(0).header("Connection"), "close");
  EXPECT_FALSE(session);
  EXPECT_FALSE(get(session, false).ok);
  EXPECT_EQ(server_.request_count(), 1U);
}

TEST_F(HTTP_Session_Test, a_session_that_the_service_dropped_is_no_session) {
  server_.queue(json_answer(200, "{}").end(Answer::End::close));
  JSON_HTTP_Session session(open(server_.endpoint(), true), 5, 300);
  EXPECT_TRUE(get(session).ok);
  ASSERT_TRUE(server_.wait_for_closes(1));
  EXPECT_FALSE(session);
}

TEST_F(HTTP_Session_Test, a_session_idle_for_no_time_at_all_is_lost) {
  JSON_HTTP_Session session(open(server_.endpoint()), 0, 300);
  EXPECT_FALSE(session);
}

TEST_F(HTTP_Session_Test, exchanges_end_by_the_shorter_of_their_limits) {
  server_.otherwise(silent());
  for (const int io_timeout : {1, 10}) {
    JSON_HTTP_Session session(open(server_.endpoint(), false, io_timeout), 5,
                              io_timeout == 1 ? 300 : 1);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(get(session).ok);
    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(last_http_exchange().error, HTTP_Error::timeout);
    EXPECT_GE(took, 990ms);
    EXPECT_LT(took, 9s);
  }
}

TEST_F(HTTP_Session_Test, the_process_limit_ends_connecting_and_exchanges_too) {
  set_options([](HTTP_Options& options) { options.exchange_timeout = 200ms; });
  JSON_HTTP_Session session(open(server_.queue(silent()).endpoint()), 5, 300);
  EXPECT_FALSE(get(session).ok);
  EXPECT_EQ(last_http_exchange().error, HTTP_Error::timeout);
  Scripted_Server deaf(tls(Test_Certificates::instance().server));
  deaf.queue(ignore_connection());
  EXPECT_TRUE(open(deaf.endpoint()).get() == nullptr);
  EXPECT_EQ(last_http_exchange().error, HTTP_Error::timeout);
}

TEST_F(HTTP_Session_Test, connecting_is_tried_as_often_as_told) {
  const Refused_Port nobody;
  EXPECT_TRUE(open({"127.0.0.1", nobody.port(), false}, false, 10, 3).get() == nullptr);
  EXPECT_EQ(last_http_exchange().attempts, 3);
  EXPECT_EQ(sleeps_.pauses().size(), 2U);
}

TEST_F(HTTP_Session_Test, a_refused_certificate_is_not_tried_again) {
  Scripted_Server stranger(tls(Test_Certificates::instance().foreign));
  EXPECT_TRUE(open(stranger.endpoint(), false, 10, 3).get() == nullptr);
  EXPECT_EQ(last_http_exchange().error, HTTP_Error::tls);
  EXPECT_EQ(last_http_exchange().attempts, 1);
  EXPECT_TRUE(stranger.settle());
  EXPECT_EQ(stranger.bytes_received(), 0U);
}

TEST_F(HTTP_Session_Test, unsupported_options_and_hosts_make_no_session) {
  HTTP_Session_Factory factory;
  EXPECT_TRUE(
      factory.create("127.0.0.1", server_.port(), false, "127.0.0.1", 1, nullptr, false, 5, 5, 0, 0)
          .get() == nullptr);
  EXPECT_EQ(last_http_exchange().error, HTTP_Error::refused_request);
  EXPECT_TRUE(open({"a b", server_.port(), false}).get() == nullptr);
  EXPECT_TRUE(open({"", server_.port(), false}).get() == nullptr);
  EXPECT_EQ(server_.connection_count(), 0U);
}

TEST_F(HTTP_Session_Test, the_connection_ends_with_the_last_reference) {
  HTTP_Session_Ptr held = open(server_.endpoint());
  {
    JSON_HTTP_Session session(held, 5, 300);
    JSON_HTTP_Session other(held, 5, 300);
    EXPECT_TRUE(session);
  }
  JSON_HTTP_Session last(held, 5, 300);
  held.reset();
  EXPECT_TRUE(last);
  last.reset(HTTP_Session_Ptr());
  EXPECT_FALSE(last);
  EXPECT_TRUE(server_.settle());
}

}  // namespace
}  // namespace zqpool::test
