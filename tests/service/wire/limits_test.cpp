// Limits of sizes, times and connections.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/service/fixtures/http_client.h"
#include "tests/service/fixtures/small_lab.h"
#include "tests/support/service_process.h"

namespace zqpool::test {
namespace {

using testing::HasSubstr;
using Clock = std::chrono::steady_clock;

const std::string pool_path = "/zq/r/storage/catalog/pool";
const std::string info_path = "/zq/r/storage/catalog/device/info";

// Less than the default deadline for a response.
constexpr std::chrono::seconds max_wait{25};

/// Sends a byte of the text every 50 ms; true when the connection ended before the text did. A text
/// of 200 bytes or so is at its end before the default deadline of a request.
bool cut_off_while_sending(Http_Client& client, const std::string& text) {
  std::string bytes;
  for (const char c : text) {
    if (client.read_to_end(bytes, std::chrono::milliseconds(50)) != Ending::silent) return true;
    if (!client.send(std::string(1, c))) return true;
  }
  return false;
}

/// Waits for a line of the log, which may be written after the client was disconnected.
bool said_in_log(const Service_Process& service, const std::string& text) {
  const auto start = Clock::now();
  while (Clock::now() - start < max_wait) {
    for (const std::string& line : service.access_log()) {
      if (line.find(text) != std::string::npos) return true;
    }
    std::this_thread::yield();
  }
  return false;
}

class Limits : public testing::TestWithParam<bool> {
 protected:
  static bool ssl() { return GetParam(); }
};

INSTANTIATE_TEST_SUITE_P(Over, Limits, testing::Bool(), transport_name);

/// Tests that do not depend on the transport.
class Plain_Limits : public Limits {};
INSTANTIATE_TEST_SUITE_P(Over, Plain_Limits, testing::Values(false), transport_name);

TEST_P(Limits, an_idle_connection_is_closed_cleanly) {
  const Service_Process service({"", {"--idle-timeout", "0.3"}});
  Http_Client fresh(service.endpoint(ssl()));
  EXPECT_EQ(fresh.ending(), Ending::closed);
  Http_Client used(service.endpoint(ssl()));
  used.send(request_text("GET", pool_path, service.access_key()));
  ASSERT_TRUE(used.read());
  EXPECT_EQ(used.ending(), Ending::closed);
}

TEST_P(Limits, slow_headers_are_cut_off) {
  const Service_Process service({"", {"--request-timeout", "0.5"}});
  Http_Client client(service.endpoint(ssl()));
  EXPECT_TRUE(cut_off_while_sending(
      client, request_text("GET", pool_path, service.access_key(), "", std::string(80, 'x'))));
  EXPECT_TRUE(said_in_log(service, "note=\"the request took too long to arrive\""));
}

TEST_P(Plain_Limits, a_slow_body_is_cut_off) {
  const Service_Process service({"", {"--request-timeout", "0.5"}});
  Http_Client client(service.endpoint(ssl()));
  client.send(request_text("POST", info_path, service.access_key(), "", "Content-Length: 300\r\n"));
  EXPECT_TRUE(cut_off_while_sending(client, std::string(200, ' ')));
  EXPECT_TRUE(said_in_log(service, "POST " + info_path + "\" status=0"));
}

TEST_P(Limits, a_client_that_does_not_read_is_cut_off) {
  const Service_Process service({small_lab(), {"--answer-timeout", "0.2"}});
  ask(service, "POST", "/zq/lab/faults",
      R"({"faults":[{"path":")" + pool_path + R"(","kind":"huge","bytes":1000000000}]})");
  Http_Client client(service.endpoint(ssl()));
  client.send(request_text("GET", pool_path, service.access_key()));
  EXPECT_TRUE(said_in_log(service, "note=\"the client did not read the response in time\""));
}

TEST_P(Plain_Limits, too_large_headers_are_431) {
  const Service_Process service({"", {"--max-header", "2000"}});
  for (const std::string& request :
       {request_text("GET", "/" + std::string(3000, 'x'), service.access_key()),
        request_text("GET", pool_path, service.access_key(), "",
                     "X-Large: " + std::string(3000, 'x') + "\r\n"),
        request_text("GET", pool_path, service.access_key(), "", std::string(500000, 'x'))}) {
    Http_Client client(service.endpoint(ssl()));
    client.send(request);
    const auto answer = client.read();
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, 431U);
    EXPECT_THAT(answer->body, HasSubstr("\"code\":-431"));
    EXPECT_NE(client.ending(), Ending::silent);
  }
  EXPECT_EQ(ask(service, "GET", pool_path, "", "X-Fits: " + std::string(1500, 'x') + "\r\n").status,
            200U);
}

TEST_P(Limits, too_large_a_body_is_413) {
  const Service_Process service({"", {"--max-body", "1000"}});
  const std::string fits = R"({"url":")" + std::string(1000 - 10, 'x') + R"("})";
  EXPECT_EQ(ask(service, "POST", info_path, fits).status, 200U);
  {
    Http_Client client(service.endpoint(ssl()));
    client.send(request_text("POST", info_path, service.access_key(), fits + ' '));
    const auto answer = client.read();
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, 413U);
    EXPECT_EQ(client.ending(), Ending::closed);
  }
  {
    // The client must get the response although it still sends two megabytes.
    Http_Client client(service.endpoint(ssl()));
    client.send(request_text("POST", info_path, service.access_key(), std::string(2000000, ' ')));
    const auto answer = client.read();
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, 413U);
  }
  {
    Http_Client client(service.endpoint(ssl()));
    client.send(request_text("POST", info_path, service.access_key(), "",
                             "Transfer-Encoding: chunked\r\n") +
                "3e9\r\n" + std::string(1001, ' ') + "\r\n0\r\n\r\n");
    const auto answer = client.read();
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, 413U);
  }
  {
    Http_Client client(service.endpoint(ssl()));
    client.send(request_text("POST", info_path, service.access_key(), "",
                             "Content-Length: 18446744073709551615\r\n"));
    const auto answer = client.read();
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, 413U);
  }
}

TEST(Limits_Of_All, a_slow_handshake_is_cut_off) {
  const Service_Process service({"", {"--request-timeout", "0.3"}});
  Endpoint tls = service.https();
  tls.ssl = false;  // connect without a handshake
  Http_Client client(tls);
  std::string bytes;
  EXPECT_EQ(client.read_to_end(bytes, std::chrono::seconds(12)), Ending::closed);
  Http_Client slow(tls);
  EXPECT_TRUE(cut_off_while_sending(
      slow, std::string("\x16\x03\x01\x02\x00\x01\x00\x01\xfc", 9) + std::string(200, '\x03')));
}

TEST(Limits_Of_All, connections_beyond_the_limit_wait) {
  const Service_Process service({small_lab(), {"--max-connections", "4"}});
  std::vector<std::unique_ptr<Http_Client>> open;
  for (int i = 0; i < 4; ++i) {
    open.push_back(std::make_unique<Http_Client>(service.http()));
    open.back()->send(request_text("GET", pool_path, service.access_key()));
    ASSERT_TRUE(open.back()->read());
  }
  Http_Client waiting(service.http());
  waiting.send(request_text("GET", pool_path, service.access_key()));
  std::string bytes;
  EXPECT_EQ(waiting.read_to_end(bytes, std::chrono::milliseconds(200)), Ending::silent);
  EXPECT_EQ(bytes, "");
  // While others wait, a connection is closed after its response.
  open.front()->send(request_text("GET", pool_path, service.access_key()));
  const auto last = open.front()->read();
  ASSERT_TRUE(last);
  EXPECT_EQ(last->header("connection"), "close");
  open.erase(open.begin());
  EXPECT_TRUE(waiting.read());
}

TEST(Limits_Of_All, many_more_clients_than_connections_are_all_served) {
  const Service_Process service({small_lab(), {"--max-connections", "8"}});
  std::atomic<int> right{0};
  std::vector<std::thread> threads;
  threads.reserve(64);
  for (int t = 0; t < 64; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 3; ++i) {
        if (ask(service, "GET", pool_path, "", "", i % 2 == 1).status == 200) ++right;
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(right, 64 * 3);
}

}  // namespace
}  // namespace zqpool::test
