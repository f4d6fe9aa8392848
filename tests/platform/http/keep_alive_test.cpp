// Clients that keep their connections between calls.

#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "tests/platform/http/http_test.h"

namespace zqpool::test {
namespace {

/// A client with a header of its own, which therefore keeps its connections.
class Kept_Client : public JSON_RESTful_Client {
 public:
  explicit Kept_Client(const Endpoint& to)
      : JSON_RESTful_Client(to.host.c_str(), to.port, to.ssl, true) {
    set_header(HTTP_HEAD_X_ACCESS_KEY, "kept-key");
  }
};

class HTTP_Keep_Alive_Test : public HTTP_Test, public testing::WithParamInterface<bool> {
 protected:
  HTTP_Keep_Alive_Test() { server_.otherwise(json_answer(200, "{}")); }

  static Called post(JSON_RESTful_Client& client) {
    static const json_spirit::Value body(Object{{"a", 1}});
    Call_Options options;
    options.method = HTTP_METHOD_POST;
    options.body = &body;
    return call(client, options);
  }

  Scripted_Server server_{GetParam() ? tls() : Server_Options()};
};

INSTANTIATE_TEST_SUITE_P(Over, HTTP_Keep_Alive_Test, testing::Bool(),
                         [](const auto& ssl) { return std::string(ssl.param ? "https" : "http"); });

TEST_P(HTTP_Keep_Alive_Test, two_calls_share_one_connection) {
  Kept_Client client(server_.endpoint());
  const Called first = call(client);
  const Called second = post(client);
  EXPECT_TRUE(first.ok);
  EXPECT_TRUE(second.ok);
  EXPECT_EQ(server_.connection_count(), 1U);
  EXPECT_EQ(server_.request(1).on_connection, 1U);
  EXPECT_FALSE(first.report.connection_reused);
  EXPECT_TRUE(second.report.connection_reused);
  EXPECT_EQ(second.report.address, "127.0.0.1");
  EXPECT_EQ(second.report.connect_time.count(), 0);
  for (const Recorded_Request& request : server_.requests()) {
    EXPECT_EQ(request.header_count("Connection"), 0U);
    EXPECT_EQ(request.header("X-Access-Key"), "kept-key");
  }
}

TEST_P(HTTP_Keep_Alive_Test, the_connection_ends_with_its_client) {
  { EXPECT_TRUE(call(*std::make_unique<Kept_Client>(server_.endpoint())).ok); }
  EXPECT_TRUE(server_.settle());
}

TEST_P(HTTP_Keep_Alive_Test, failures_keep_the_connection_too) {
  server_.queue(json_answer(404, "{}")).queue(json_answer(200, "oops"));
  Kept_Client client(server_.endpoint());
  EXPECT_FALSE(call(client).ok);
  EXPECT_FALSE(call(client).ok);
  EXPECT_TRUE(call(client).ok);
  EXPECT_EQ(server_.connection_count(), 1U);
}

TEST_P(HTTP_Keep_Alive_Test, a_service_that_says_close_gets_a_fresh_connection_next) {
  server_.queue(json_answer(200, "{}").header("Connection", "close").end(Answer::End::close));
  Kept_Client client(server_.endpoint());
  EXPECT_TRUE(post(client).ok);
  const Called second = post(client);
  EXPECT_TRUE(second.ok);
  EXPECT_FALSE(second.report.connection_reused);
  EXPECT_EQ(server_.connection_count(), 2U);
  EXPECT_EQ(server_.request_count(), 2U);
}

TEST_P(HTTP_Keep_Alive_Test, a_change_after_the_service_dropped_the_idle_connection_goes_out_once) {
  for (const Answer::End end : {Answer::End::close, Answer::End::abrupt}) {
    server_.queue(json_answer(200, "{}").end(end));
  }
  Kept_Client client(server_.endpoint());
  EXPECT_TRUE(post(client).ok);
  ASSERT_TRUE(server_.wait_for_closes(1));
  EXPECT_TRUE(post(client).ok);
  ASSERT_TRUE(server_.wait_for_closes(2));
  const Called third = post(client);
  EXPECT_TRUE(third.ok) << third.report.text;
  EXPECT_EQ(third.report.attempts, 1);
  EXPECT_FALSE(third.report.connection_reused);
  EXPECT_EQ(server_.request_count(), 3U);
  EXPECT_EQ(server_.connection_count(), 3U);
}

TEST_P(HTTP_Keep_Alive_Test, a_change_that_broke_on_a_kept_connection_is_not_repeated) {
  server_.queue(json_answer(200, "{}")).queue(close_after_request());
  Kept_Client client(server_.endpoint());
  EXPECT_TRUE(post(client).ok);
  const Called second = post(client);
  EXPECT_FALSE(second.ok);
  EXPECT_TRUE(second.report.connection_reused);
  EXPECT_TRUE(second.report.outcome_unknown());
  EXPECT_EQ(second.report.attempts, 1);
  EXPECT_EQ(server_.request_count(), 2U);
  EXPECT_TRUE(post(client).ok);
}

TEST_P(HTTP_Keep_Alive_Test, a_read_that_broke_on_a_kept_connection_is_repeated_on_a_fresh_one) {
  server_.queue(json_answer(200, "{}")).queue(close_after_request());
  Kept_Client client(server_.endpoint());
  EXPECT_TRUE(call(client).ok);
  const Called second = call(client);
  EXPECT_TRUE(second.ok);
  EXPECT_EQ(second.report.attempts, 2);
  EXPECT_FALSE(second.report.connection_reused);
  EXPECT_EQ(server_.connection_count(), 2U);
}

TEST_P(HTTP_Keep_Alive_Test, a_connection_with_unasked_bytes_in_it_is_not_used_again) {
  server_.queue(raw_answer("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\n{}"
                           "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\n\"smuggled\"")
                    .end(Answer::End::hold));
  Kept_Client client(server_.endpoint());
  EXPECT_TRUE(call(client).ok);
  const Called second = call(client);
  EXPECT_TRUE(second.ok);
  EXPECT_EQ(second.answer, json("{}"));
  EXPECT_EQ(server_.connection_count(), 2U);
}

TEST_P(HTTP_Keep_Alive_Test, a_connection_that_failed_is_not_used_again) {
  set_options([](HTTP_Options& options) { options.exchange_timeout = 600ms; });
  server_.queue(json_answer(200, "[1,2,3]").cut_after(60).end(Answer::End::hold));
  Kept_Client client(server_.endpoint());
  EXPECT_EQ(call(client).report.error, HTTP_Error::timeout);
  EXPECT_TRUE(call(client).ok);
  EXPECT_EQ(server_.connection_count(), 2U);
}

TEST_P(HTTP_Keep_Alive_Test, new_options_mean_a_new_connection) {
  Kept_Client client(server_.endpoint());
  EXPECT_TRUE(call(client).ok);
  set_options([](HTTP_Options& options) { options.user_agent = "changed"; });
  const Called second = call(client);
  EXPECT_TRUE(second.ok);
  EXPECT_FALSE(second.report.connection_reused);
  EXPECT_EQ(server_.connection_count(), 2U);
  EXPECT_EQ(server_.request(1).header("User-Agent"), "changed");
}

TEST_P(HTTP_Keep_Alive_Test, a_connection_made_without_verifying_does_not_outlive_that) {
  if (!GetParam()) return;  // Nothing is verified without TLS.
  Scripted_Server stranger(tls(Test_Certificates::instance().foreign));
  stranger.otherwise(json_answer(200, "{}"));
  Kept_Client client(stranger.endpoint());
  set_options([](HTTP_Options& options) { options.verify = false; });
  EXPECT_TRUE(call(client).ok);
  set_options([](HTTP_Options& options) { options.verify = true; });
  const Called second = call(client);
  EXPECT_EQ(second.report.error, HTTP_Error::tls);
  EXPECT_EQ(stranger.request_count(), 1U);
}

TEST_P(HTTP_Keep_Alive_Test, many_threads_share_one_client) {
  server_.otherwise(
      [](const Recorded_Request& request) { return json_answer(200, '"' + request.target + '"'); });
  Kept_Client client(server_.endpoint());
  std::atomic<int> good{0};
  std::vector<std::thread> threads;
  threads.reserve(8);
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([&client, &good, t] {
      for (int i = 0; i < 20; ++i) {
        Call_Options options;
        options.path = "/zq/" + std::to_string(t) + '/' + std::to_string(i);
        if (call(client, options).answer == json_spirit::Value(options.path)) ++good;
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(good, 160);
  EXPECT_EQ(server_.request_count(), 160U);
  EXPECT_LE(server_.connection_count(), 160U);
}

TEST_P(HTTP_Keep_Alive_Test, idle_connections_are_bounded) {
  constexpr std::size_t many = 20;
  constexpr std::size_t kept = 16;
  Kept_Client client(server_.endpoint());
  for (std::size_t round = 1; round <= 2; ++round) {
    // Answers only when all requests have come, so each needs a connection of its own.
    server_.otherwise([this, round](const Recorded_Request&) {
      return json_answer(server_.wait_for_requests(many * round) ? 200 : 500, "{}");
    });
    std::atomic<int> good{0};
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < many; ++i) {
      threads.emplace_back([&] { good += call(client).ok ? 1 : 0; });
    }
    for (std::thread& thread : threads)
      thread.join();
    EXPECT_EQ(good, static_cast<int>(many));
  }
  EXPECT_EQ(server_.connection_count(), many + (many - kept));
}

TEST_P(HTTP_Keep_Alive_Test, a_child_process_takes_a_connection_of_its_own) {
  Kept_Client client(server_.endpoint());
  EXPECT_TRUE(call(client).ok);
  const pid_t child = fork();
  if (child == 0) {
    const Called called = call(client);
    _exit(called.ok && !called.report.connection_reused ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  const Called after = call(client);
  EXPECT_TRUE(after.ok);
  EXPECT_TRUE(after.report.connection_reused);
  EXPECT_EQ(server_.connection_count(), 2U);
}

}  // namespace
}  // namespace zqpool::test
