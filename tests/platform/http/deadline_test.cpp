// Every call ends at its deadline, whatever it waits for.

#include <poll.h>
#include <sys/socket.h>

#include <csignal>
#include <thread>

#include "tests/platform/http/http_test.h"
#include "tests/support/signal_storm.h"

namespace zqpool::test {
namespace {

constexpr auto limit = 200ms;

struct Stalling {
  std::string name;
  Answer answer;
  HTTP_Phase phase;
  bool large_body = false;
  bool ssl_only = false;
};

std::vector<Stalling> ways_to_stall() {
  const std::string head = json_answer(200, "[1,2,3]").bytes(false);
  const std::size_t body = head.find("\r\n\r\n") + 4;
  std::string text = "[1";
  for (int i = 0; i < 1000; ++i)
    text += ",1";
  return {
      {"says_nothing", silent(), HTTP_Phase::wait},
      {"drips_a_byte_a_second", json_answer(200, text).drip(1000ms), HTTP_Phase::wait},
      {"drips_fast_but_without_end", json_answer(200, text).drip(2ms), HTTP_Phase::body},
      {"drips_its_body", json_answer(200, text).drip(2ms, body), HTTP_Phase::body},
      {"stops_within_the_status_line", raw_answer(head).cut_after(5).end(Answer::End::hold),
       HTTP_Phase::body},
      {"stops_within_a_header", raw_answer(head).cut_after(25).end(Answer::End::hold),
       HTTP_Phase::body},
      {"stops_before_the_body", raw_answer(head).cut_after(body).end(Answer::End::hold),
       HTTP_Phase::body},
      {"stops_within_the_body", raw_answer(head).cut_after(body + 3).end(Answer::End::hold),
       HTTP_Phase::body},
      {"stops_within_a_chunk",
       json_answer(200, text).chunked(100).cut_after(150).end(Answer::End::hold), HTTP_Phase::body},
      {"never_ends_an_answer_without_length",
       raw_answer("HTTP/1.1 200 OK\r\n\r\n[1]").end(Answer::End::hold), HTTP_Phase::body},
      {"stops_after_an_interim_answer",
       raw_answer("HTTP/1.1 100 Continue\r\n\r\n").end(Answer::End::hold), HTTP_Phase::body},
      {"never_reads_a_large_request", ignore_connection(), HTTP_Phase::send, true},
      {"never_answers_the_tls_handshake", ignore_connection(), HTTP_Phase::tls, false, true},
  };
}

void PrintTo(const Stalling& stalling, std::ostream* out) {
  *out << stalling.name;
}

class HTTP_Deadline_Test : public HTTP_Test,
                           public testing::WithParamInterface<std::tuple<Stalling, bool>> {
 protected:
  /// Makes a call that times out in the expected phase.
  void expect_timely_end() {
    const auto& [stalling, ssl] = GetParam();
    Server_Options server_options = ssl ? tls() : Server_Options();
    server_options.receive_buffer = 4096;
    Scripted_Server server(server_options);
    server.otherwise(stalling.answer);
    const json_spirit::Value body(Object{{"a", std::string(4 << 20, 'x')}});
    Call_Options options;
    options.method = stalling.large_body ? HTTP_METHOD_POST : HTTP_METHOD_GET;
    options.body = stalling.large_body ? &body : nullptr;
    const HTTP_Phase phase = ssl && stalling.answer.on_accept() == Answer::On_Accept::ignore
                                 ? HTTP_Phase::tls
                                 : stalling.phase;
    Called called;
    // A busy machine may need longer to reach that phase.
    for (const auto longer : {limit, 5 * limit, 15 * limit}) {
      set_options([longer](HTTP_Options& all) { all.exchange_timeout = longer; });
      log_.take();
      called = call(server.endpoint(), options);
      EXPECT_GE(called.report.total, longer);
      if (called.report.phase == phase) break;
    }
    EXPECT_FALSE(called.ok);
    EXPECT_STREQ(http_error_name(called.report.error), "timeout") << called.report.text;
    EXPECT_STREQ(http_phase_name(called.report.phase), http_phase_name(phase));
    EXPECT_EQ(called.status, 0U);
    EXPECT_EQ(called.answer, json_spirit::Value("untouched"));
    EXPECT_TRUE(sleeps_.pauses().empty());
    EXPECT_EQ(log_.lines().size(), 1U);
  }
};

std::vector<std::tuple<Stalling, bool>> rows() {
  std::vector<std::tuple<Stalling, bool>> all;
  for (const Stalling& stalling : ways_to_stall()) {
    if (!stalling.ssl_only) all.emplace_back(stalling, false);
    if (!stalling.large_body) all.emplace_back(stalling, true);
  }
  return all;
}

std::string row_name(const testing::TestParamInfo<std::tuple<Stalling, bool>>& row) {
  return std::get<0>(row.param).name + (std::get<1>(row.param) ? "_https" : "_http");
}

INSTANTIATE_TEST_SUITE_P(Service, HTTP_Deadline_Test, testing::ValuesIn(rows()), row_name);

TEST_P(HTTP_Deadline_Test, holds) {
  expect_timely_end();
}

using HTTP_Signals_Deadline_Test = HTTP_Deadline_Test;

INSTANTIATE_TEST_SUITE_P(Service, HTTP_Signals_Deadline_Test,
                         testing::Values(rows().front(), rows().back()), row_name);

TEST_P(HTTP_Signals_Deadline_Test, holds_under_a_storm_of_signals) {
  const Signal_Storm storm;
  expect_timely_end();
  EXPECT_GT(storm.count(), 3);
}

/// Sends HelloRequests, which a TLS client that waits for the ServerHello ignores, until the client
/// closes the connection, or for ten seconds.
class Endless_Hello_Requests {
 public:
  Endless_Hello_Requests() {
    listen(listener_.get(), 1);
    thread_ = std::thread([this] { serve(); });
  }
  ~Endless_Hello_Requests() { thread_.join(); }
  Endpoint endpoint() const { return {"127.0.0.1", port_of(listener_), true}; }

 private:
  void serve() {
    pollfd waiting{listener_.get(), POLLIN, 0};
    poll(&waiting, 1, 10000);
    const File_Descriptor client(accept(listener_.get(), nullptr, nullptr));
    std::string records;
    for (int i = 0; i < 10000; ++i)
      records.append("\x16\x03\x03\x00\x04\x00\x00\x00\x00", 9);
    const auto end = std::chrono::steady_clock::now() + 10s;
    while (send(client.get(), records.data(), records.size(), MSG_NOSIGNAL) > 0 &&
           std::chrono::steady_clock::now() < end) {
    }
  }

  File_Descriptor listener_ = bound_socket("127.0.0.1");
  std::thread thread_;
};

using HTTP_Deadline_Flood_Test = HTTP_Test;

TEST_F(HTTP_Deadline_Flood_Test, ends_a_handshake_whose_peer_never_stops_sending) {
  set_options([](HTTP_Options& options) { options.exchange_timeout = limit; });
  Endless_Hello_Requests service;
  const Called called = call(service.endpoint());
  EXPECT_EQ(called.report.error, HTTP_Error::timeout) << called.report.text;
  EXPECT_EQ(called.report.phase, HTTP_Phase::tls);
}

class HTTP_Connect_Limit_Test : public HTTP_Test {};

TEST_F(HTTP_Connect_Limit_Test, covers_the_tls_handshake) {
  set_options([](HTTP_Options& options) { options.connect_timeout = limit; });
  Scripted_Server server(tls());
  server.otherwise(ignore_connection());
  Call_Options options;
  options.tune = [](JSON_RESTful_Client& client) { client.retries(0); };
  const Called called = call(server.endpoint(), options);
  EXPECT_EQ(called.report.error, HTTP_Error::timeout);
  EXPECT_EQ(called.report.phase, HTTP_Phase::tls);
  EXPECT_GE(called.report.total, limit);
  EXPECT_LT(called.took, soon);
}

TEST_F(HTTP_Connect_Limit_Test, covers_connecting) {
  set_options([](HTTP_Options& options) { options.connect_timeout = limit; });
  const Black_Hole hole;
  Call_Options options;
  options.tune = [](JSON_RESTful_Client& client) { client.retries(0); };
  const Called called = call({"127.0.0.1", hole.port(), false}, options);
  EXPECT_EQ(called.report.error, HTTP_Error::timeout);
  EXPECT_EQ(called.report.phase, HTTP_Phase::connect);
  EXPECT_GE(called.report.total, limit);
  EXPECT_LT(called.took, soon);
}

TEST_F(HTTP_Connect_Limit_Test, ends_with_the_exchange_over_all_attempts) {
  set_options([](HTTP_Options& options) {
    options.connect_timeout = 200ms;
    options.exchange_timeout = 500ms;
  });
  const Black_Hole hole;
  Call_Options options;
  options.tune = [](JSON_RESTful_Client& client) { client.retries(100); };
  const Called called = call({"127.0.0.1", hole.port(), false}, options);
  EXPECT_EQ(called.report.error, HTTP_Error::timeout);
  EXPECT_GT(called.report.attempts, 1);
  EXPECT_LT(called.took, soon);
}

TEST_F(HTTP_Connect_Limit_Test, does_not_cover_the_answer) {
  set_options([](HTTP_Options& options) { options.connect_timeout = 200ms; });
  Scripted_Server server;
  server.queue(json_answer(200, "[1]").drip(5ms));
  const Called called = call(server.endpoint());
  EXPECT_TRUE(called.ok);
  EXPECT_GT(called.took, 200ms);
}

TEST_F(HTTP_Connect_Limit_Test, no_time_at_all_ends_at_once) {
  set_options([](HTTP_Options& options) { options.exchange_timeout = 0ms; });
  Scripted_Server server(tls());
  const Called called = call(server.endpoint());
  EXPECT_EQ(called.report.error, HTTP_Error::timeout);
}

TEST_F(HTTP_Connect_Limit_Test, the_longest_times_do_not_overflow) {
  set_options([](HTTP_Options& options) {
    options.exchange_timeout = std::chrono::milliseconds::max();
    options.connect_timeout = std::chrono::milliseconds::max();
  });
  Scripted_Server server;
  server.otherwise(json_answer(200, "{}"));
  Call_Options options;
  options.tune = [](JSON_RESTful_Client& client) { client.retry_timeout(2147483647); };
  EXPECT_TRUE(call(server.endpoint(), options).ok) << last_http_exchange().text;
}

}  // namespace
}  // namespace zqpool::test
