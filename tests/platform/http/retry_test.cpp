// Which failures the client retries.

#include <netdb.h>

#include <tuple>

#include "tests/platform/http/http_test.h"
#include "tests/platform/http/interposed.h"

namespace zqpool::test {
namespace {

/// A way to fail, the same in every attempt.
struct Failing {
  enum class Repeated { always, reads, never };

  std::string name;
  Answer answer;
  Repeated repeated;
  HTTP_Error error;     ///< none: this or that, as the race goes
  bool arrives = true;  ///< the request reaches the server whole
  bool ssl = false;
  const char* host = nullptr;  ///< instead of the server's
  bool refused = false;
  const Identity* identity = nullptr;
};

const Identity& good_identity() {
  return Test_Certificates::instance().server;
}

std::vector<Failing> ways_to_fail() {
  using Repeated = Failing::Repeated;
  const Answer whole = json_answer(200, "[1]");
  const Test_Certificates& certificates = Test_Certificates::instance();
  std::vector<Failing> all = {
      // Nothing of the request was sent.
      {"refused", silent(), Repeated::always, HTTP_Error::connect, false, false, nullptr, true},
      {"unknown_name", silent(), Repeated::always, HTTP_Error::name, false, false, "nowhere.test"},
      {"tls_handshake_closed", close_at_once(), Repeated::always, HTTP_Error::tls, false, true},
      {"connection_reset_at_once", reset_at_once(), Repeated::always, HTTP_Error::none, false,
       true},
      // A retry would fail the same way.
      {"wrong_ca", whole, Repeated::never, HTTP_Error::tls, false, true, nullptr, false,
       &certificates.foreign},
      {"expired", whole, Repeated::never, HTTP_Error::tls, false, true, nullptr, false,
       &certificates.expired},
      // The service may have acted on the request.
      {"cut_off_body", json_answer(200, "[1]").cut_after(70), Repeated::reads, HTTP_Error::broken},
      {"cut_off_head", json_answer(200, "[1]").cut_after(20), Repeated::reads, HTTP_Error::broken},
      {"garbage", raw_answer("garbage\r\n\r\n"), Repeated::reads, HTTP_Error::malformed},
      // The response is complete.
      {"bad_json", json_answer(200, "oops"), Repeated::never, HTTP_Error::bad_json},
  };
  for (const bool ssl : {false, true}) {
    const std::string suffix = ssl ? "_tls" : "";
    all.push_back(
        {"closed" + suffix, close_after_request(), Repeated::reads, HTTP_Error::broken, true, ssl});
    all.push_back(
        {"reset" + suffix, reset_after_request(), Repeated::reads, HTTP_Error::broken, true, ssl});
    all.push_back({"reset_within_request" + suffix, reset_after_reading(10), Repeated::reads,
                   HTTP_Error::broken, false, ssl});
  }
  for (const unsigned status : {429U, 502U, 503U, 504U}) {
    all.push_back({"status_" + std::to_string(status), json_answer(status, ""), Repeated::reads,
                   HTTP_Error::status});
  }
  for (const unsigned status : {301U, 400U, 401U, 403U, 404U, 408U, 409U, 500U, 501U, 505U, 507U}) {
    all.push_back({"status_" + std::to_string(status), json_answer(status, ""), Repeated::never,
                   HTTP_Error::status});
  }
  return all;
}

void PrintTo(const Failing& failing, std::ostream* out) {
  *out << failing.name;
}

using Matrix_Row = std::tuple<Failing, int>;

class HTTP_Retry_Matrix : public HTTP_Test, public testing::WithParamInterface<Matrix_Row> {};

TEST_P(HTTP_Retry_Matrix, repeats_only_what_is_safe) {
  const auto& [failing, method] = GetParam();
  Interposed_Network network;
  network.no_name("nowhere.test", EAI_NONAME);
  const Refused_Port nobody;
  Server_Options server_options;
  if (failing.ssl) {
    server_options.identity = failing.identity != nullptr ? failing.identity : &good_identity();
  }
  Scripted_Server server(server_options);
  server.otherwise(failing.answer);
  Endpoint to = server.endpoint();
  if (failing.host != nullptr) to.host = failing.host;
  if (failing.refused) to.port = nobody.port();

  const json_spirit::Value body(Object{{"a", 1}});
  Call_Options options;
  options.method = method;
  if (method == HTTP_METHOD_POST || method == HTTP_METHOD_PUT) options.body = &body;
  const Called called = call(to, options);

  const bool repeats = failing.repeated == Failing::Repeated::always ||
                       (failing.repeated == Failing::Repeated::reads && method == HTTP_METHOD_GET);
  const int attempts = repeats ? 3 : 1;
  EXPECT_FALSE(called.ok);
  EXPECT_EQ(called.report.attempts, attempts);
  EXPECT_TRUE(server.settle());
  EXPECT_EQ(server.request_count(), failing.arrives ? static_cast<std::size_t>(attempts) : 0U);
  if (!failing.refused && failing.host == nullptr) {
    EXPECT_EQ(server.connection_count(), static_cast<std::size_t>(attempts));
  }
  if (failing.error != HTTP_Error::none) {
    EXPECT_STREQ(http_error_name(called.report.error), http_error_name(failing.error))
        << called.report.text;
  }
  const bool reached = failing.repeated == Failing::Repeated::reads || failing.arrives;
  EXPECT_EQ(called.report.sent, reached);

  const auto pauses = sleeps_.pauses();
  EXPECT_EQ(pauses.size(), static_cast<std::size_t>(attempts - 1));
  for (const auto pause : pauses) {
    EXPECT_GE(pause, 50ms);
    EXPECT_LE(pause, 2000ms);
  }
  // One line for the whole call, however many attempts.
  EXPECT_EQ(log_.lines().size(), 1U);
}

std::string row_name(const testing::TestParamInfo<Matrix_Row>& row) {
  return std::get<0>(row.param).name + '_' + http_method_name(std::get<1>(row.param));
}

INSTANTIATE_TEST_SUITE_P(Failures, HTTP_Retry_Matrix,
                         testing::Combine(testing::ValuesIn(ways_to_fail()),
                                          testing::Values(HTTP_METHOD_GET, HTTP_METHOD_POST,
                                                          HTTP_METHOD_PUT, HTTP_METHOD_DELETE)),
                         row_name);

class HTTP_Retry_Test : public HTTP_Test {
 protected:
  Called call_with(const std::function<void(JSON_RESTful_Client&)>& tune) {
    Call_Options options;
    options.tune = tune;
    return call(server_.endpoint(), options);
  }

  Scripted_Server server_;
};

TEST_F(HTTP_Retry_Test, a_repetition_that_succeeds_is_a_success) {
  server_.queue(json_answer(503, R"({"error":{"message":"busy"}})")).queue(json_answer(200, "[1]"));
  const Called called = call(server_.endpoint());
  EXPECT_TRUE(called.ok);
  EXPECT_EQ(called.answer, json("[1]"));
  EXPECT_EQ(called.status, 200U);
  EXPECT_EQ(called.report.attempts, 2);
  EXPECT_EQ(called.report.service_message, "");
  EXPECT_TRUE(log_.lines().empty()) << log_.all();
}

TEST_F(HTTP_Retry_Test, the_last_attempt_is_what_is_reported) {
  server_.queue(reset_after_request()).queue(json_answer(404, "[4]"));
  const Called called = call(server_.endpoint());
  EXPECT_FALSE(called.ok);
  EXPECT_EQ(called.status, 404U);
  EXPECT_EQ(called.answer, json("[4]"));
  EXPECT_EQ(called.report.error, HTTP_Error::status);
  EXPECT_EQ(called.report.attempts, 2);
}

TEST_F(HTTP_Retry_Test, a_status_of_an_earlier_attempt_is_not_the_last_ones) {
  server_.queue(json_answer(503, "[5]")).otherwise(close_after_request());
  const Called called = call(server_.endpoint());
  EXPECT_FALSE(called.ok);
  EXPECT_EQ(called.status, 0U);
  EXPECT_EQ(called.report.error, HTTP_Error::broken);
}

TEST_F(HTTP_Retry_Test, a_change_goes_out_once_whole_after_attempts_that_did_not_connect) {
  Scripted_Server secure(tls());
  secure.queue(close_at_once()).queue(reset_at_once()).otherwise(json_answer(200, "{}"));
  const json_spirit::Value body(Object{{"a", 1}});
  Call_Options options;
  options.method = HTTP_METHOD_POST;
  options.body = &body;
  const Called called = call(secure.endpoint(), options);
  EXPECT_TRUE(called.ok) << called.report.text;
  EXPECT_EQ(called.report.attempts, 3);
  EXPECT_TRUE(secure.settle());
  ASSERT_EQ(secure.request_count(), 1U);
  EXPECT_EQ(secure.request(0).body, R"({"a":1})");
  EXPECT_EQ(secure.bytes_received(), secure.request(0).raw.size());
}

TEST_F(HTTP_Retry_Test, retries_0_and_below_make_one_attempt) {
  server_.otherwise(json_answer(503, ""));
  for (const int count : {0, -1, -2147483647}) {
    const Called called =
        call_with([count](JSON_RESTful_Client& client) { client.retries(count); });
    EXPECT_EQ(called.report.attempts, 1);
  }
  EXPECT_EQ(server_.request_count(), 3U);
  EXPECT_TRUE(sleeps_.pauses().empty());
}

TEST_F(HTTP_Retry_Test, as_many_repetitions_as_set_with_growing_bounded_pauses) {
  server_.otherwise(json_answer(503, ""));
  const Called called = call_with([](JSON_RESTful_Client& client) { client.retries(9); });
  EXPECT_EQ(called.report.attempts, 10);
  EXPECT_EQ(server_.request_count(), 10U);
  const auto pauses = sleeps_.pauses();
  ASSERT_EQ(pauses.size(), 9U);
  for (std::size_t i = 0; i < pauses.size(); ++i) {
    const auto slot = std::min(100ms * (1 << i), 2000ms);
    EXPECT_GE(pauses[i], slot / 2) << i;
    EXPECT_LE(pauses[i], slot) << i;
  }
}

TEST_F(HTTP_Retry_Test, pauses_vary) {
  server_.otherwise(json_answer(503, ""));
  call_with([](JSON_RESTful_Client& client) { client.retries(40); });
  const auto pauses = sleeps_.pauses();
  ASSERT_EQ(pauses.size(), 40U);
  // The last 30 have the longest slot; without jitter they would be equal.
  EXPECT_FALSE(std::equal(pauses.end() - 29, pauses.end(), pauses.end() - 30));
}

TEST_F(HTTP_Retry_Test, no_repetition_starts_after_the_retry_timeout) {
  server_.otherwise(json_answer(503, ""));
  for (const int seconds : {0, -1}) {
    const Called called =
        call_with([seconds](JSON_RESTful_Client& client) { client.retry_timeout(seconds); });
    EXPECT_EQ(called.report.attempts, 1);
  }
  EXPECT_TRUE(sleeps_.pauses().empty());
  // Pauses grow to two seconds, which do not fit into one. The recorder does not sleep.
  call_with([](JSON_RESTful_Client& client) {
    client.retries(1000);
    client.retry_timeout(1);
  });
  for (const auto pause : sleeps_.pauses())
    EXPECT_LT(pause, 1000ms);
  EXPECT_LT(server_.request_count(), 100U);
}

TEST_F(HTTP_Retry_Test, no_repetition_starts_after_the_end_of_the_exchange) {
  set_options([](HTTP_Options& options) { options.exchange_timeout = 900ms; });
  server_.otherwise(json_answer(503, ""));
  const Called called = call_with([](JSON_RESTful_Client& client) { client.retries(1000); });
  EXPECT_EQ(called.report.error, HTTP_Error::status);
  // The recorder does not sleep, but from the sixth on every pause is longer than a second.
  EXPECT_LE(called.report.attempts, 6);
  for (const auto pause : sleeps_.pauses())
    EXPECT_LT(pause, 900ms);
}

TEST_F(HTTP_Retry_Test, a_timeout_is_not_repeated) {
  set_options([](HTTP_Options& options) { options.exchange_timeout = 300ms; });
  server_.otherwise(silent());
  const Called called = call(server_.endpoint());
  EXPECT_EQ(called.report.error, HTTP_Error::timeout);
  EXPECT_EQ(called.report.attempts, 1);
  EXPECT_EQ(server_.request_count(), 1U);
}

TEST_F(HTTP_Retry_Test, an_answer_that_is_too_large_is_not_repeated) {
  set_options([](HTTP_Options& options) { options.largest_answer = 10; });
  server_.otherwise(json_answer(200, "[1,2,3,4,5,6]"));
  EXPECT_EQ(call(server_.endpoint()).report.attempts, 1);
  EXPECT_EQ(server_.request_count(), 1U);
}

TEST_F(HTTP_Retry_Test, connecting_that_took_too_long_is_repeated_with_a_limit_of_its_own) {
  set_options([](HTTP_Options& options) { options.connect_timeout = 500ms; });
  Scripted_Server secure(tls());
  secure.queue(ignore_connection()).otherwise(json_answer(200, "{}"));
  Call_Options options;
  options.method = HTTP_METHOD_POST;
  const Called called = call(secure.endpoint(), options);
  EXPECT_TRUE(called.ok) << called.report.text;
  EXPECT_EQ(called.report.attempts, 2);
  EXPECT_EQ(secure.request_count(), 1U);
}

}  // namespace
}  // namespace zqpool::test
