#include "tests/support/scripted_server.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <thread>

#include "tests/support/raw_client.h"

namespace zqpool::test {
namespace {

using namespace std::chrono_literals;
using testing::EndsWith;
using testing::StartsWith;

const std::string get_close = "GET /a?b=c HTTP/1.1\r\nHost: h\r\nConnection: close\r\n\r\n";
const std::string get_keep = "GET /a HTTP/1.1\r\nHost: h\r\n\r\n";

TEST(Scripted_Server, records_a_request_exactly_as_it_came) {
  Scripted_Server server;
  server.queue(json_answer(200, "{}"));
  const std::string bytes =
      "POST /p?q HTTP/1.1\r\nHOST: h\r\nX-Two:  padded \r\nX-Two: b\r\nContent-Length: 5\r\n"
      "Connection: close\r\n\r\nhello";
  const Raw_Reply reply = raw_exchange(server.endpoint(), bytes);
  EXPECT_EQ(reply.bytes,
            "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nConnection: close\r\n"
            "Content-Length: 2\r\n\r\n{}");
  ASSERT_EQ(server.request_count(), 1U);
  const Recorded_Request request = server.request(0);
  EXPECT_EQ(request.raw, bytes);
  EXPECT_EQ(request.line, "POST /p?q HTTP/1.1");
  EXPECT_EQ(request.method, "POST");
  EXPECT_EQ(request.target, "/p?q");
  EXPECT_EQ(request.body, "hello");
  EXPECT_EQ(request.first_piece, bytes.size());
  EXPECT_EQ(request.header("host"), "h");
  EXPECT_EQ(request.header_count("x-two"), 2U);
  EXPECT_EQ(request.header("x-two"), "padded ");
  EXPECT_EQ(request.header("absent"), "");
  EXPECT_EQ(server.bytes_received(), bytes.size());
  EXPECT_TRUE(server.settle());
}

TEST(Scripted_Server, gives_queued_answers_in_order_then_the_standing_one) {
  Scripted_Server server;
  server.queue(http_answer(201, "one")).queue(http_answer(404, "two"));
  server.otherwise(
      [](const Recorded_Request& request) { return http_answer(200, request.target); });
  EXPECT_THAT(raw_exchange(server.endpoint(), get_close).bytes, EndsWith("\r\n\r\none"));
  EXPECT_EQ(server.unused_answers(), 1U);
  EXPECT_THAT(raw_exchange(server.endpoint(), get_close).bytes, StartsWith("HTTP/1.1 404 "));
  EXPECT_THAT(raw_exchange(server.endpoint(), get_close).bytes, EndsWith("\r\n\r\n/a?b=c"));
  EXPECT_EQ(server.connection_count(), 3U);
}

TEST(Scripted_Server, a_request_without_a_script_is_told_and_counted) {
  Scripted_Server server;
  EXPECT_THAT(raw_exchange(server.endpoint(), get_close).bytes, StartsWith("HTTP/1.1 599 "));
  EXPECT_EQ(server.unscripted_requests(), 1U);
}

TEST(Scripted_Server, keeps_a_connection_that_did_not_ask_to_be_closed) {
  Scripted_Server server;
  server.otherwise(http_answer(204, ""));
  const Raw_Reply reply = raw_exchange(server.endpoint(), get_keep + get_keep + get_close);
  const std::string kept = "HTTP/1.1 204 No Content\r\n\r\n";
  EXPECT_EQ(reply.bytes, kept + kept + "HTTP/1.1 204 No Content\r\nConnection: close\r\n\r\n");
  EXPECT_EQ(server.connection_count(), 1U);
  EXPECT_EQ(server.request(2).on_connection, 2U);
}

TEST(Scripted_Server, shapes_of_an_answer) {
  EXPECT_EQ(
      http_answer(200, "abcde").chunked(3).bytes(false),
      "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n2\r\nde\r\n0\r\n\r\n");
  EXPECT_EQ(http_answer(200, "abc").until_end().bytes(false), "HTTP/1.1 200 OK\r\n\r\nabc");
  EXPECT_EQ(http_answer(304, "").after("HTTP/1.1 100 Continue\r\n\r\n").bytes(false),
            "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 304 Not Modified\r\n\r\n");
  EXPECT_EQ(raw_answer("anything").bytes(true), "anything");
}

TEST(Scripted_Server, cuts_an_answer_and_ends_as_told) {
  Scripted_Server server;
  server.queue(raw_answer("0123456789").cut_after(4));
  server.queue(raw_answer("0123456789").cut_after(4).end(Answer::End::reset));
  server.queue(raw_answer("0123456789").cut_after(4).end(Answer::End::hold));
  const Raw_Reply closed = raw_exchange(server.endpoint(), get_close);
  EXPECT_EQ(closed.bytes, "0123");
  EXPECT_FALSE(closed.reset);
  const Raw_Reply reset = raw_exchange(server.endpoint(), get_close);
  EXPECT_EQ(reset.bytes, "0123");
  EXPECT_TRUE(reset.reset);
  const Raw_Reply held = raw_exchange(server.endpoint(), get_close, 30ms, 4);
  EXPECT_EQ(held.bytes, "0123");
  EXPECT_TRUE(held.timed_out);
}

TEST(Scripted_Server, drips) {
  Scripted_Server server;
  server.queue(raw_answer("abcdef").drip(5ms, 2));
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(raw_exchange(server.endpoint(), get_close).bytes, "abcdef");
  EXPECT_GE(std::chrono::steady_clock::now() - start, 20ms);
}

TEST(Scripted_Server, deals_with_connections_before_any_request) {
  Scripted_Server server;
  server.queue(ignore_connection()).queue(reset_at_once()).queue(close_at_once());
  EXPECT_TRUE(raw_exchange(server.endpoint(), get_close, 30ms).timed_out);
  EXPECT_TRUE(raw_exchange(server.endpoint(), get_close).reset);
  EXPECT_EQ(raw_exchange(server.endpoint(), "").bytes, "");
  EXPECT_EQ(server.request_count(), 0U);
  EXPECT_EQ(server.bytes_received(), 0U);
  EXPECT_EQ(server.connection_count(), 3U);
}

TEST(Scripted_Server, resets_within_a_request_with_or_without_an_early_answer) {
  Scripted_Server server;
  server.queue(reset_after_reading(10)).queue(reset_after_reading(10, "no"));
  EXPECT_TRUE(raw_exchange(server.endpoint(), get_close).reset);
  const Raw_Reply early = raw_exchange(server.endpoint(), get_close);
  EXPECT_TRUE(early.reset);
  EXPECT_EQ(early.bytes, "no");
  EXPECT_TRUE(server.settle());
  EXPECT_EQ(server.bytes_received(), 20U);
}

TEST(Scripted_Server, serves_many_connections_at_once) {
  constexpr std::size_t many = 32;
  Scripted_Server server;
  // No answer leaves before all requests are there, so they really are served side by side.
  server.otherwise([&server](const Recorded_Request&) {
    return http_answer(200, server.wait_for_requests(many) ? "all" : "some");
  });
  std::vector<std::thread> clients;
  std::atomic<int> good{0};
  for (std::size_t i = 0; i < many; ++i) {
    clients.emplace_back([&] {
      const std::string bytes = raw_exchange(server.endpoint(), get_close).bytes;
      if (bytes.find("\r\n\r\nall") != std::string::npos) ++good;
    });
  }
  for (std::thread& client : clients)
    client.join();
  EXPECT_EQ(good, static_cast<int>(many));
}

TEST(Scripted_Server, listens_on_the_ipv6_loopback_when_asked) {
  if (!has_ipv6()) GTEST_SKIP() << "this machine has no ::1";
  Server_Options options;
  options.ipv6 = true;
  Scripted_Server server(options);
  server.queue(http_answer(200, "six"));
  EXPECT_EQ(server.host(), "::1");
  EXPECT_THAT(raw_exchange(server.endpoint(), get_close).bytes, EndsWith("six"));
}

TEST(Scripted_Server, stop_ends_what_is_held_and_refuses_further_connections) {
  Scripted_Server server;
  server.queue(silent().before([](const Recorded_Request&) {}));
  std::thread stopper([&server] {
    server.wait_for_requests(1);
    server.stop();
  });
  EXPECT_FALSE(raw_exchange(server.endpoint(), get_close).timed_out);
  stopper.join();
  EXPECT_TRUE(server.settle());
  EXPECT_FALSE(connects_within(connected_socket(server.host(), server.port()), 1000));
}

TEST(Sockets, a_refused_port_refuses) {
  const Refused_Port nobody;
  EXPECT_FALSE(connects_within(connected_socket("127.0.0.1", nobody.port()), 1000));
}

TEST(Sockets, a_black_hole_neither_takes_nor_refuses) {
  const Black_Hole hole;
  const File_Descriptor socket = connected_socket("127.0.0.1", hole.port());
  EXPECT_FALSE(connects_within(socket, 100));
  int error = 0;
  socklen_t size = sizeof error;
  getsockopt(socket.get(), SOL_SOCKET, SO_ERROR, &error, &size);
  EXPECT_EQ(error, 0);
}

}  // namespace
}  // namespace zqpool::test
