// Signals, many threads, child processes, and what the client writes to the log.

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <mutex>
#include <thread>

#include "tests/platform/http/http_test.h"
#include "tests/support/signal_storm.h"

namespace zqpool::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

class HTTP_Robustness_Test : public HTTP_Test, public testing::WithParamInterface<bool> {
 protected:
  static Server_Options options() { return GetParam() ? tls() : Server_Options(); }
};

INSTANTIATE_TEST_SUITE_P(Over, HTTP_Robustness_Test, testing::Bool(),
                         [](const auto& ssl) { return std::string(ssl.param ? "https" : "http"); });

// --- Signals ------------------------------------------------------------------------------------

volatile std::sig_atomic_t pipe_signals = 0;

TEST_P(HTTP_Robustness_Test, a_service_that_breaks_a_large_request_raises_no_sigpipe) {
  struct sigaction counting {};
  struct sigaction before {};
  counting.sa_handler = [](int) { pipe_signals = pipe_signals + 1; };
  sigaction(SIGPIPE, &counting, &before);
  const json_spirit::Value body(Object{{"a", std::string(32 << 20, 'x')}});
  for (const Answer& answer : {reset_after_reading(100000), reset_at_once(), close_at_once()}) {
    Scripted_Server server(options());
    server.otherwise(answer);
    Call_Options call_options;
    call_options.method = HTTP_METHOD_POST;
    call_options.body = &body;
    const Called called = call(server.endpoint(), call_options);
    EXPECT_FALSE(called.ok);
    EXPECT_FALSE(called.report.text.empty());
  }
  EXPECT_EQ(pipe_signals, 0);
  struct sigaction after {};
  sigaction(SIGPIPE, &before, &after);
  EXPECT_EQ(after.sa_handler, counting.sa_handler) << "the transport changed the handler";
}

TEST_P(HTTP_Robustness_Test, a_storm_of_signals_breaks_nothing) {
  Scripted_Server server(options());
  server.otherwise([](const Recorded_Request& request) { return json_answer(200, request.body); });
  const json_spirit::Value body(Object{{"a", std::string(4 << 20, 'x')}});
  Call_Options large;
  large.method = HTTP_METHOD_PUT;
  large.body = &body;
  const Signal_Storm storm;
  for (int i = 0; storm.count() < 20 && i < 10000; ++i) {
    const Called called = call(server.endpoint(), large);
    ASSERT_TRUE(called.ok) << called.report.text;
    EXPECT_EQ(called.report.attempts, 1);
    ASSERT_TRUE(called.answer == body);
  }
  EXPECT_GE(storm.count(), 20);
}

TEST_P(HTTP_Robustness_Test, slow_answers_survive_a_storm_of_signals) {
  Scripted_Server server(options());
  server.otherwise(json_answer(200, "[1,2,3]").drip(2ms));
  const Signal_Storm storm;
  const Called called = call(server.endpoint());
  EXPECT_TRUE(called.ok) << called.report.text;
  EXPECT_GT(storm.count(), 2);
}

// --- Threads ------------------------------------------------------------------------------------

TEST_P(HTTP_Robustness_Test, sixty_four_threads_at_once) {
  Scripted_Server server(options());
  server.otherwise([](const Recorded_Request& request) {
    return json_answer(200, '"' + request.target + ' ' + request.header("X-Request-Id") + '"');
  });
  constexpr int many = 64;
  constexpr int calls = 4;
  std::mutex mutex;
  std::vector<std::string> wrong;
  std::vector<std::thread> threads;
  threads.reserve(many);
  for (int t = 0; t < many; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < calls; ++i) {
        Call_Options call_options;
        call_options.path = "/zq/" + std::to_string(t);
        call_options.query = "i=" + std::to_string(i);
        const Called called = call(server.endpoint(), call_options);
        const std::string wanted =
            call_options.path + '?' + call_options.query + ' ' + called.report.request_id;
        if (called.ok && called.answer == json_spirit::Value(wanted)) continue;
        const std::lock_guard lock(mutex);
        wrong.push_back(wanted + ": " + called.report.text);
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_THAT(wrong, ElementsAre());
  EXPECT_EQ(server.request_count(), static_cast<std::size_t>(many * calls));
  EXPECT_EQ(server.connection_count(), static_cast<std::size_t>(many * calls));
}

TEST_P(HTTP_Robustness_Test, every_thread_has_a_report_of_its_own) {
  Scripted_Server server(options());
  server.queue(json_answer(200, "{}")).queue(json_answer(404, "{}"));
  EXPECT_TRUE(call(server.endpoint()).ok);
  const std::string mine = last_http_exchange().request_id;
  std::thread other([&] {
    EXPECT_EQ(last_http_exchange().attempts, 0);
    EXPECT_FALSE(call(server.endpoint()).ok);
    EXPECT_EQ(last_http_exchange().status, 404U);
  });
  other.join();
  EXPECT_EQ(last_http_exchange().status, 200U);
  EXPECT_EQ(last_http_exchange().request_id, mine);
}

TEST_P(HTTP_Robustness_Test, options_may_change_while_calls_run) {
  Scripted_Server server(options());
  server.otherwise(json_answer(200, "{}"));
  std::atomic<bool> done{false};
  std::thread setter([&done] {
    while (!done)
      HTTP_Options::set(test_options());
  });
  for (int i = 0; i < 50; ++i)
    EXPECT_TRUE(call(server.endpoint()).ok) << last_http_exchange().text;
  done = true;
  setter.join();
}

// --- Child processes ----------------------------------------------------------------------------

TEST_P(HTTP_Robustness_Test, a_child_process_may_use_clients) {
  Scripted_Server server(options());
  server.otherwise(json_answer(200, "{}"));
  // The parent has made what is made once: TLS context, sessions, random generators.
  EXPECT_TRUE(call(server.endpoint()).ok);
  EXPECT_TRUE(call(server.endpoint()).ok);
  const pid_t child = fork();
  if (child == 0) _exit(call(server.endpoint()).ok && call(server.endpoint()).ok ? 0 : 1);
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(call(server.endpoint()).ok);
  // Parent and child never send the same request id.
  std::vector<std::string> ids;
  for (const Recorded_Request& request : server.requests()) {
    EXPECT_THAT(ids, Not(testing::Contains(request.header("X-Request-Id"))));
    ids.push_back(request.header("X-Request-Id"));
  }
  EXPECT_EQ(ids.size(), 5U);
}

// --- The log ------------------------------------------------------------------------------------

class HTTP_Log_Test : public HTTP_Test {
 protected:
  static Call_Options secret(int method = HTTP_METHOD_GET) {
    static const json_spirit::Value body(Object{{"password", "body-secret"}});
    Call_Options options;
    options.method = method;
    options.path = "/zq/r/pool";
    options.query = "token=query-secret";
    options.access_key = "key-secret";
    options.body = method == HTTP_METHOD_POST ? &body : nullptr;
    return options;
  }

  std::string url(const Scripted_Server& server) const {
    return (server.ssl() ? "https://127.0.0.1:" : "http://127.0.0.1:") +
           std::to_string(server.port()) + "/zq/r/pool";
  }
};

TEST_F(HTTP_Log_Test, a_refusal_is_one_line_with_its_status) {
  Scripted_Server server;
  server.otherwise(json_answer(404, R"({"error":{"message":"answer-secret"}})"));
  call(server.endpoint(), secret());
  call(server.endpoint(), secret(HTTP_METHOD_POST));
  call(server.endpoint(), secret(HTTP_METHOD_DELETE));
  EXPECT_THAT(log_.texts("LM_ERROR"),
              ElementsAre("GET " + url(server) + " failed: HTTP status 404.\n",
                          "POST " + url(server) + " failed: HTTP status 404.\n",
                          "DELETE " + url(server) + " failed: HTTP status 404.\n"));
  EXPECT_EQ(log_.lines().size(), 3U);
  for (const Log_Line& line : log_.lines())
    EXPECT_TRUE(line.has_place());
}

TEST_F(HTTP_Log_Test, a_transport_error_is_one_line_with_phase_and_words) {
  const Refused_Port nobody;
  call({"127.0.0.1", nobody.port(), true}, secret());
  EXPECT_THAT(log_.texts("LM_ERROR"),
              ElementsAre("GET https://127.0.0.1:" + std::to_string(nobody.port()) +
                          "/zq/r/pool failed: connect: Connection refused.\n"));
}

TEST_F(HTTP_Log_Test, a_body_that_is_not_json_is_one_line_without_the_body) {
  Scripted_Server server;
  server.otherwise(json_answer(200, "answer-secret"));
  call(server.endpoint(), secret());
  const auto lines = log_.texts("LM_ERROR");
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_THAT(lines[0], testing::StartsWith("GET " + url(server) +
                                            " failed: the answer's body is not JSON: "));
}

TEST_F(HTTP_Log_Test, a_default_port_is_named_too) {
  call({"127.0.0.1", 80, false}, [] {
    Call_Options options;
    options.path = "x";  // Refused before connecting.
    return options;
  }());
  EXPECT_THAT(log_.texts("LM_ERROR"),
              ElementsAre(testing::StartsWith("GET http://127.0.0.1:80 failed: ")));
}

TEST_F(HTTP_Log_Test, no_secret_is_ever_logged) {
  Scripted_Server server;
  Scripted_Server secure(tls(Test_Certificates::instance().expired));
  const Refused_Port nobody;
  set_options([](HTTP_Options& options) { options.largest_answer = 100; });
  const std::string answer = R"({"error":{"message":"answer-secret"}})";
  for (const Answer& failing :
       {json_answer(500, answer), json_answer(503, answer), json_answer(200, "answer-secret"),
        raw_answer("answer-secret"), raw_answer("answer-secret\r\n\r\n"), close_after_request(),
        json_answer(200, answer).cut_after(90), json_answer(200, std::string(200, 's')),
        reset_after_reading(10), json_answer(302, answer).header("Location", "/answer-secret")}) {
    for (const int method : {HTTP_METHOD_GET, HTTP_METHOD_POST, HTTP_METHOD_DELETE}) {
      server.otherwise(failing);
      EXPECT_FALSE(call(server.endpoint(), secret(method)).ok);
    }
  }
  EXPECT_FALSE(call(secure.endpoint(), secret()).ok);
  EXPECT_FALSE(call({"127.0.0.1", nobody.port(), false}, secret()).ok);
  Call_Options bad_key = secret();
  bad_key.access_key += "\n";
  EXPECT_FALSE(call(server.endpoint(), bad_key).ok);
  EXPECT_EQ(log_.lines().size(), 33U);
  EXPECT_THAT(log_.all(), Not(HasSubstr("secret")));
}

TEST_F(HTTP_Log_Test, success_says_nothing) {
  Scripted_Server server;
  server.otherwise(json_answer(200, "{}"));
  call(server.endpoint(), secret());
  EXPECT_TRUE(log_.lines().empty()) << log_.all();
}

TEST_F(HTTP_Log_Test, can_be_switched_off_and_on) {
  Scripted_Server server;
  server.otherwise(json_answer(500, "{}"));
  JSON_RESTful_Client client("127.0.0.1", server.port(), false, true);
  client.logging_error(false);
  EXPECT_FALSE(call(client).ok);
  EXPECT_TRUE(log_.lines().empty()) << log_.all();
  client.logging_error(true);
  EXPECT_FALSE(call(client).ok);
  EXPECT_EQ(log_.lines().size(), 1U);
}

TEST_F(HTTP_Log_Test, a_long_path_is_cut_but_the_line_is_whole) {
  Scripted_Server server;
  server.otherwise(json_answer(500, "{}"));
  Call_Options options;
  options.path = "/" + std::string(20000, 'p');
  EXPECT_FALSE(call(server.endpoint(), options).ok);
  const auto lines = log_.texts("LM_ERROR");
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_THAT(lines[0], testing::EndsWith("ppp failed: HTTP status 500.\n"));
  EXPECT_LT(lines[0].size(), 4000U);
}

}  // namespace
}  // namespace zqpool::test
