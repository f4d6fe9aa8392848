// The service's HTTP as a client sees it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "tests/service/fixtures/http_client.h"
#include "tests/service/fixtures/protocol_document.h"
#include "tests/service/fixtures/small_lab.h"
#include "tests/support/service_process.h"

namespace zqpool::test {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

const std::string pool_path = "/zq/r/storage/catalog/pool";
const std::string device_path = "/zq/r/storage/catalog/device";
const std::string info_path = "/zq/r/storage/catalog/device/info";
const std::string metadata_path = "/zq/r/storage/catalog/device/metadata";
const std::string rpc_path = "/zq/jr";

std::int64_t error_code(const Http_Answer& answer) {
  const json_spirit::Value body = answer.json();
  return body.get_obj().at("error").get_obj().at("code").get_int64();
}

/// One service for all tests of the suite, which leave its state unchanged. Responses are checked
/// against the protocol document.
class Protocol : public testing::TestWithParam<bool> {
 protected:
  static void SetUpTestSuite() { service_ = new Service_Process({small_lab(), {}}); }
  static void TearDownTestSuite() {
    EXPECT_EQ(service_->stop(), 0) << service_->messages();
    delete service_;
    service_ = nullptr;
  }

  static bool ssl() { return GetParam(); }
  static Endpoint endpoint() { return service_->endpoint(ssl()); }
  static const std::string& key() { return service_->access_key(); }
  static Http_Answer ask(const std::string& method, const std::string& target,
                         const std::string& body = "", const std::string& more = "") {
    Http_Answer answer = test::ask(*service_, method, target, body, more, ssl());
    EXPECT_EQ(Protocol_Document::instance().contradiction(
                  {method, target, body, answer.status, answer.body}),
              "");
    return answer;
  }
  /// The response to these bytes; the service must then close the connection.
  static Http_Answer answer_to(const std::string& bytes, bool to_head = false) {
    Http_Client client(endpoint());
    client.send(bytes);
    const std::optional<Http_Answer> answer = client.read(to_head);
    if (!answer) {
      ADD_FAILURE() << "no answer to " << bytes.substr(0, 200);
      return {};
    }
    EXPECT_EQ(client.ending(), Ending::closed);
    return *answer;
  }
  /// The log's line with this request identifier.
  static std::string log_line(const std::string& id) {
    for (const std::string& line : service_->access_log()) {
      if (line.find(" id=" + id + ' ') != std::string::npos) return line;
    }
    return "";
  }

  static Service_Process* service_;
};
Service_Process* Protocol::service_ = nullptr;

INSTANTIATE_TEST_SUITE_P(Over, Protocol, testing::Bool(), transport_name);

/// Tests that do not depend on the transport.
class Plain_Protocol : public Protocol {};
INSTANTIATE_TEST_SUITE_P(Over, Plain_Protocol, testing::Values(false), transport_name);

TEST_P(Plain_Protocol, every_path_answers) {
  EXPECT_THAT(ask("GET", pool_path + "?uuid=" + pool_uuid(1)).body, HasSubstr(R"("name":"one")"));
  EXPECT_THAT(ask("GET", device_path + "?uuid=" + device_uuid(1)).body,
              HasSubstr(R"("name":"d1")"));
  EXPECT_THAT(ask("GET", device_path + "?url=file%3A%2F%2F%2Fsrv%2Fa").body,
              HasSubstr(R"("name":"d1")"));
  EXPECT_THAT(ask("POST", info_path, R"({"url":"file:///srv/a/z"})").body,
              HasSubstr(R"("path":"/z")"));
  EXPECT_THAT(
      ask("PUT", metadata_path, R"({"pool_uuid":")" + pool_uuid(1) + R"(","path":"/jobs/x"})").body,
      HasSubstr(R"("type":"dir")"));
  const std::string pool_and_path = "?pool_uuid=" + pool_uuid(1) + "&path=%2fnew";
  EXPECT_THAT(ask("POST", metadata_path,
                  R"({"pool_uuid":")" + pool_uuid(1) + R"(","device_uuid":")" + device_uuid(1) +
                      R"(","file":"/new"})")
                  .body,
              HasSubstr(R"("path":"/new")"));
  EXPECT_EQ(ask("DELETE", metadata_path + pool_and_path).body, R"({"removed":1})");
  EXPECT_THAT(ask("GET", info_path + "?pool_uuid=" + pool_uuid(1)).body,
              HasSubstr(R"("name":"d1")"));
  EXPECT_THAT(
      ask("PUT", device_path + "?uuid=" + device_uuid(1), R"({"host_id":"h","sysname":"s"})").body,
      HasSubstr("is not LAN-free"));
  EXPECT_THAT(ask("GET", "/zq/r/storages/pool?uuid=" + pool_uuid(1)).body,
              HasSubstr(R"("storages":[{)"));
  EXPECT_THAT(
      ask("POST", rpc_path,
          R"({"id":"1","jsonrpc":"2.0","method":"pool.replicate.endpoint.query","params":{"uuid":"u"}})")
          .body,
      HasSubstr(R"("code":-404)"));
  EXPECT_THAT(ask("GET", "/zq/r/file_uri/statfs?uri=%2fzq%2fdata").body,
              HasSubstr(R"("read_only":false)"));
  EXPECT_EQ(ask("GET", "/zq/lab/health").status, 200U);
  EXPECT_EQ(ask("GET", "/zq/lab/scenario").status, 200U);
  EXPECT_EQ(ask("GET", "/zq/lab/faults").body, R"({"faults":[]})");
}

TEST_P(Protocol, a_response_has_its_headers) {
  const Http_Answer answer = ask("GET", pool_path);
  EXPECT_THAT(answer.head, StartsWith("HTTP/1.1 200 OK\r\n"));
  EXPECT_EQ(answer.header("content-type"), "application/json");
  EXPECT_EQ(answer.header("content-length"), std::to_string(answer.body.size()));
  EXPECT_EQ(answer.header("connection"), "close");
  EXPECT_EQ(answer.header("cache-control"), "no-store");
  EXPECT_THAT(answer.header("server"), StartsWith("zqpoold/"));
  EXPECT_THAT(answer.header("date"), EndsWith(" GMT"));
}

TEST_P(Plain_Protocol, no_request_is_accepted_without_the_key) {
  for (const std::string& target :
       {pool_path, std::string("/zq/lab/health"), std::string("/none")}) {
    const Http_Answer missing =
        answer_to("GET " + target + " HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n");
    EXPECT_EQ(missing.status, 401U);
    EXPECT_EQ(error_code(missing), -401);
    EXPECT_THAT(missing.header("www-authenticate"), StartsWith("X-Access-Key"));
    const Http_Answer wrong =
        answer_to(request_text("GET", target, key() + "x", "", "Connection: close\r\n"));
    EXPECT_EQ(wrong.status, 403U);
    EXPECT_EQ(error_code(wrong), -403);
  }
  const Http_Answer empty = answer_to(
      "GET " + pool_path + " HTTP/1.1\r\nHost: x\r\nX-Access-Key:\r\nConnection: close\r\n\r\n");
  EXPECT_EQ(empty.status, 401U);
}

TEST_P(Plain_Protocol, two_keys_count_as_none) {
  const Http_Answer answer = answer_to(request_text(
      "GET", pool_path, key(), "", "X-Access-Key: " + key() + "\r\nConnection: close\r\n"));
  EXPECT_EQ(answer.status, 401U);
}

TEST_P(Plain_Protocol, the_key_header_is_case_insensitive) {
  const Http_Answer answer = answer_to(request_text(
      "GET", pool_path, "", "", "x-ACCESS-key: " + key() + "\r\nConnection: close\r\n"));
  EXPECT_EQ(answer.status, 200U);
}

TEST_P(Protocol, a_body_without_a_key_is_not_read) {
  Http_Client client(endpoint());
  client.send("POST " + info_path +
              " HTTP/1.1\r\nHost: x\r\nContent-Length: 10000000\r\n\r\n{\"url\":");
  const auto answer = client.read();
  ASSERT_TRUE(answer) << "it waited for the body";
  EXPECT_EQ(answer->status, 401U);
  EXPECT_EQ(answer->header("connection"), "close");
  EXPECT_EQ(client.ending(), Ending::closed);
}

TEST_P(Plain_Protocol, an_unknown_path_is_404) {
  for (const std::string& target : {std::string("/"), std::string("/zq/r/none"), pool_path + "/",
                                    "/x" + pool_path, std::string("/zq/r/storage%2fcatalog/pool"),
                                    std::string("/zq/lab/none"), std::string("/?uuid=1")}) {
    const Http_Answer answer = ask("GET", target);
    EXPECT_EQ(answer.status, 404U) << target;
    EXPECT_EQ(error_code(answer), -404);
  }
}

TEST_P(Plain_Protocol, a_wrong_method_is_405_and_lists_the_allowed_ones) {
  for (const char* method : {"POST", "PUT", "DELETE", "PATCH", "BREW", "TRACE", "get"}) {
    const Http_Answer answer = ask(method, pool_path);
    EXPECT_EQ(answer.status, 405U) << method;
    EXPECT_EQ(answer.header("allow"), "GET, HEAD, OPTIONS");
    EXPECT_EQ(error_code(answer), -405);
  }
  EXPECT_EQ(ask("GET", rpc_path).header("allow"), "POST, OPTIONS");
  EXPECT_EQ(ask("PUT", info_path).header("allow"), "GET, HEAD, POST, OPTIONS");
  EXPECT_EQ(answer_to("HEAD " + rpc_path + " HTTP/1.1\r\nHost: x\r\nX-Access-Key: " + key() +
                          "\r\nConnection: close\r\n\r\n",
                      true)
                .status,
            405U);
}

TEST_P(Plain_Protocol, head_is_get_without_the_body) {
  const Http_Answer get = ask("GET", pool_path);
  const Http_Answer head = ask("HEAD", pool_path);
  EXPECT_EQ(head.status, 200U);
  EXPECT_EQ(head.header("content-length"), std::to_string(get.body.size()));
  const Http_Answer none = ask("HEAD", "/none");
  EXPECT_EQ(none.status, 404U);
}

TEST_P(Plain_Protocol, options_lists_the_methods) {
  const Http_Answer answer = ask("OPTIONS", metadata_path);
  EXPECT_EQ(answer.status, 204U);
  EXPECT_EQ(answer.header("allow"), "POST, PUT, DELETE, OPTIONS");
  EXPECT_EQ(answer.headers.count("content-length"), 0U);
  EXPECT_EQ(ask("OPTIONS", "*").status, 204U);
  EXPECT_EQ(ask("OPTIONS", "/none").status, 404U);
}

TEST_P(Plain_Protocol, malformed_queries_and_bodies_are_400_invalid_values_422) {
  EXPECT_EQ(ask("GET", pool_path + "?uuid=%zz").status, 400U);
  EXPECT_EQ(ask("GET", pool_path + "?limit=-1").status, 400U);
  EXPECT_EQ(ask("POST", info_path).status, 400U) << "no body";
  EXPECT_EQ(ask("POST", info_path, "{").status, 400U);
  EXPECT_EQ(ask("POST", info_path, "[]").status, 400U);
  EXPECT_EQ(ask("POST", info_path, R"({"url":"a"} x)").status, 400U);
  EXPECT_EQ(ask("POST", info_path, "{\"url\":\"\xff\"}").status, 400U);
  EXPECT_EQ(ask("POST", info_path, R"({"url":""})").status, 422U);
  EXPECT_EQ(error_code(ask("POST", info_path, "{")), -400);
}

TEST_P(Plain_Protocol, another_content_type_is_415) {
  const std::string body = "{\"url\":\"x\"}";
  EXPECT_EQ(answer_to("POST " + info_path + " HTTP/1.1\r\nHost: x\r\nX-Access-Key: " + key() +
                      "\r\nContent-Type: text/plain\r\nConnection: close\r\nContent-Length: " +
                      std::to_string(body.size()) + "\r\n\r\n" + body)
                .status,
            415U);
}

TEST_P(Protocol, a_body_may_come_in_chunks) {
  const Http_Answer answer = answer_to(
      request_text("POST", info_path, key(), "",
                   "Transfer-Encoding: chunked\r\nConnection: close\r\n") +
      "8\r\n{\"url\":\"\r\n5;x=y\r\nfile:\r\nA\r\n///srv/a\"}\r\n0\r\nTrailer: x\r\n\r\n");
  EXPECT_EQ(answer.status, 200U) << answer.body;
  EXPECT_THAT(answer.body, HasSubstr(R"("name":"d1")"));
}

TEST_P(Protocol, expect_100_continue_is_answered) {
  const std::string body = R"({"url":"file:///srv/a"})";
  Http_Client client(endpoint());
  client.send(request_text(
      "POST", info_path, key(), "",
      "Expect: 100-continue\r\nContent-Length: " + std::to_string(body.size()) + "\r\n"));
  const auto interim = client.read();
  ASSERT_TRUE(interim);
  EXPECT_EQ(interim->status, 100U);
  client.send(body);
  const auto answer = client.read();
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->status, 200U);
}

TEST_P(Protocol, a_connection_is_kept_alive_until_close) {
  Http_Client client(endpoint());
  for (int i = 0; i < 20; ++i) {
    client.send(request_text("GET", pool_path, key()));
    const auto answer = client.read();
    ASSERT_TRUE(answer) << i;
    EXPECT_EQ(answer->status, 200U);
    EXPECT_EQ(answer->headers.count("connection"), 0U);
    // Nor does an error close it.
    client.send(request_text("GET", "/none", key()));
    ASSERT_TRUE(client.read()) << i;
  }
  client.send(request_text("GET", pool_path, key(), "", "Connection: close\r\n"));
  ASSERT_TRUE(client.read());
  EXPECT_EQ(client.ending(), Ending::closed);
}

TEST_P(Protocol, close_does_not_wait_for_the_client) {
  // If the service waited for the client's end first, each request would take two seconds.
  auto fastest = std::chrono::steady_clock::duration::max();
  for (int i = 0; i < 10; ++i) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(ask("GET", pool_path).header("connection"), "close");
    fastest = std::min(fastest, std::chrono::steady_clock::now() - start);
  }
  EXPECT_LT(fastest, std::chrono::milliseconds(1900));
}

TEST_P(Plain_Protocol, http_1_0_is_served_and_closed) {
  const Http_Answer plain =
      answer_to("GET " + pool_path + " HTTP/1.0\r\nX-Access-Key: " + key() + "\r\n\r\n");
  EXPECT_EQ(plain.status, 200U);
  EXPECT_EQ(plain.header("connection"), "close");
  Http_Client client(endpoint());
  for (int i = 0; i < 2; ++i) {
    client.send("GET " + pool_path +
                " HTTP/1.0\r\nConnection: keep-alive\r\nX-Access-Key: " + key() + "\r\n\r\n");
    const auto answer = client.read();
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->header("connection"), "keep-alive");
  }
}

TEST_P(Protocol, pipelined_requests_are_answered_in_order) {
  std::string all;
  for (int i = 0; i < 50; ++i) {
    all += request_text("GET", pool_path + "?limit=1&offset=" + std::to_string(i % 3), key(), "",
                        "X-Request-Id: ahead-" + std::to_string(i) + "\r\n");
    all += request_text("POST", info_path, key(), R"({"url":"file:///srv/a"})",
                        "X-Request-Id: body-" + std::to_string(i) + "\r\n");
  }
  Http_Client client(endpoint());
  client.send(all);
  const char* const names[] = {"one", "two", "three"};
  for (int i = 0; i < 50; ++i) {
    const auto answer = client.read();
    ASSERT_TRUE(answer) << i;
    EXPECT_EQ(answer->header("x-request-id"), "ahead-" + std::to_string(i));
    EXPECT_THAT(answer->body, HasSubstr("\"name\":\"" + std::string(names[i % 3]) + '"'));
    const auto info = client.read();
    ASSERT_TRUE(info) << i;
    EXPECT_EQ(info->header("x-request-id"), "body-" + std::to_string(i));
  }
}

TEST_P(Protocol, a_request_may_come_byte_by_byte) {
  Http_Client client(endpoint());
  for (const char c : request_text("POST", info_path, key(), R"({"url":"file:///srv/a"})")) {
    ASSERT_TRUE(client.send(std::string(1, c)));
  }
  const auto answer = client.read();
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->status, 200U);
}

TEST_P(Plain_Protocol, the_request_line_may_have_an_absolute_url) {
  EXPECT_EQ(ask("GET", "http://other.host:1" + pool_path + "?limit=1").status, 200U);
  EXPECT_EQ(ask("GET", "http://other.host").status, 404U);
  EXPECT_EQ(ask("GET", "/none?url=http://other.host" + pool_path).status, 404U);
}

TEST_P(Plain_Protocol, the_request_id_is_returned) {
  const std::string longest(128, 'i');
  EXPECT_EQ(ask("GET", pool_path, "", "X-Request-Id: 7-of-9/\"x\r\n").header("x-request-id"),
            "7-of-9/\"x");
  EXPECT_EQ(ask("GET", "/none", "", "x-request-id: " + longest + "\r\n").header("x-request-id"),
            longest);
  EXPECT_EQ(answer_to(request_text("GET", pool_path, "wrong", "",
                                   "X-Request-Id: refused\r\nConnection: close\r\n"))
                .header("x-request-id"),
            "refused");
}

TEST_P(Plain_Protocol, an_invalid_request_id_is_replaced) {
  for (const std::string& id : {std::string(), std::string(129, 'i'), std::string("two words"),
                                std::string("\xc3\xa9"), std::string("tab\there")}) {
    const std::string given =
        ask("GET", pool_path, "", id.empty() ? "" : "X-Request-Id: " + id + "\r\n")
            .header("x-request-id");
    EXPECT_EQ(given.size(), 36U) << id;
  }
}

TEST_P(Plain_Protocol, malformed_http_is_refused) {
  for (const std::string& bytes : {
           std::string("nonsense\r\n\r\n"),
           std::string("GET\r\n\r\n"),
           std::string("GET / HTTP/1.1\nHost: x\n\n"),
           std::string("GET / HTTP/x.y\r\n\r\n"),
           std::string("GET / HTTP/2.0\r\nHost: x\r\n\r\n"),
           std::string("GET / HTTP/0.9\r\nHost: x\r\n\r\n"),
           std::string("GET / HTTP/1.1\r\nno colon\r\n\r\n"),
           std::string("GET / HTTP/1.1\r\nHost: a\x01z\r\n\r\n"),
           std::string("GET / HTTP/1.1\r\nHost : a\r\n\r\n"),
           std::string("GET /a b HTTP/1.1\r\nHost: x\r\n\r\n"),
           std::string("GET /\x01 HTTP/1.1\r\nHost: x\r\n\r\n"),
           std::string("\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03\r\n\r\n", 15),
           "GET " + pool_path + " HTTP/1.1\r\nX-Access-Key: " + key() + "\r\n\r\n",
           "GET " + pool_path + " HTTP/1.1\r\nHost: a\r\nHost: b\r\nX-Access-Key: " + key() +
               "\r\n\r\n",
           request_text("POST", info_path, key(), "", "Content-Length: x\r\n"),
           request_text("POST", info_path, key(), "", "Content-Length: -1\r\n"),
           request_text("POST", info_path, key(), "", "Content-Length: 1\r\nContent-Length: 2\r\n"),
           request_text("POST", info_path, key(), "",
                        "Content-Length: 1\r\nTransfer-Encoding: chunked\r\n"),
           request_text("POST", info_path, key(), "", "Transfer-Encoding: chunked\r\n") + "zz\r\n",
       }) {
    const Http_Answer answer = answer_to(bytes);
    EXPECT_EQ(answer.status, 400U) << bytes;
    EXPECT_EQ(answer.header("connection"), "close");
    EXPECT_EQ(error_code(answer), -400);
  }
}

TEST_P(Plain_Protocol, a_transfer_coding_other_than_chunked_is_400) {
  const std::string smuggled = request_text("GET", pool_path, key());
  EXPECT_EQ(answer_to("POST / HTTP/1.0\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n").status,
            400U);
  for (const char* coding :
       {"identity", "xchunked", "chunkedx", "chunked, identity", "gzip, chunked", "chunked,chunked",
        "chunked;q=1", "deflate", "", ",", ",chunked", "chunked\r\nTransfer-Encoding: chunked",
        "identity\r\nTransfer-Encoding: chunked"}) {
    const Http_Answer answer =
        answer_to(request_text("POST", info_path, key(), "",
                               "Transfer-Encoding: " + std::string(coding) + "\r\n") +
                  smuggled);
    EXPECT_EQ(answer.status, 400U) << coding;
    EXPECT_EQ(answer.header("connection"), "close");
    EXPECT_EQ(error_code(answer), -400);
  }
}

TEST_P(Plain_Protocol, a_bare_line_feed_in_a_chunked_body_is_400) {
  const std::string head =
      request_text("POST", info_path, key(), "", "Transfer-Encoding: chunked\r\n");
  for (const char* body : {"\n", "2\n{}\r\n0\r\n\r\n", "2;x=y\n{}\r\n0\r\n\r\n",
                           "2;x=\ny\r\n{}\r\n0\r\n\r\n", "2\r\n{}\n", "2\r\n{}\r\n0\n\n",
                           "2\r\n{}\r\n0\r\n\n", "2\r\n{}\r\n0\r\nTrailer: x\n\r\n", "2\r{}\r\n"}) {
    const Http_Answer answer = answer_to(head + body);
    EXPECT_EQ(answer.status, 400U) << body;
    EXPECT_EQ(answer.header("connection"), "close");
  }
}

TEST_P(Protocol, sixty_four_concurrent_connections_get_their_responses) {
  std::atomic<int> right{0};
  std::vector<std::thread> threads;
  threads.reserve(64);
  for (int t = 0; t < 64; ++t) {
    threads.emplace_back([&, t] {
      Http_Client client(endpoint());
      for (int i = 0; i < 5; ++i) {
        const std::string id = "t" + std::to_string(t) + '-' + std::to_string(i);
        const int number = 1 + (t + i) % 4;
        client.send(request_text("GET", device_path + "?uuid=" + device_uuid(number), key(), "",
                                 "X-Request-Id: " + id + "\r\n"));
        const auto answer = client.read();
        if (answer && answer->status == 200 && answer->header("x-request-id") == id &&
            answer->body.find("\"name\":\"d" + std::to_string(number) + '"') != std::string::npos) {
          ++right;
        }
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(right, 64 * 5);
}

// ---- the access log

TEST_P(Protocol, a_request_is_one_log_line) {
  const std::string id = ssl() ? "line-tls" : "line";
  Http_Client client(endpoint());
  client.send(request_text("GET", pool_path + "?limit=1", key(), "",
                           "Connection: close\r\nX-Request-Id: " + id + "\r\n"));
  const auto answer = client.read();
  ASSERT_TRUE(answer);
  EXPECT_EQ(client.ending(), Ending::closed);
  const std::string line = log_line(id);
  EXPECT_THAT(line,
              testing::MatchesRegex("20..-..-..T..:..:..[.]...Z peer=127[.]0[.]0[.]1:" +
                                    std::to_string(client.local_port()) + " id=" + id + " \"GET " +
                                    "/zq/r/storage/catalog/pool[?]limit=1\" status=200 bytes=" +
                                    std::to_string(answer->head.size() + 2 + answer->body.size()) +
                                    " ms=[0-9]+[.][0-9]+ fault=-"));
}

TEST_P(Plain_Protocol, secrets_are_not_logged) {
  const std::string id = ssl() ? "secret-tls" : "secret";
  ask("GET", pool_path + "?access_key=hidden-1&uuid=7&client%5Fsecret=hidden-2", "",
      "X-Request-Id: " + id + "\r\nAuthorization: hidden-3\r\n");
  const std::string line = log_line(id);
  EXPECT_THAT(line, HasSubstr("pool?access_key=***&uuid=7&client%5Fsecret=***\" status=400"));
  for (const std::string& each : service_->access_log()) {
    EXPECT_THAT(each, Not(HasSubstr("hidden-")));
    EXPECT_THAT(each, Not(HasSubstr(key())));
  }
  EXPECT_THAT(service_->messages(), Not(HasSubstr(key())));
}

TEST_P(Plain_Protocol, a_request_cannot_forge_a_log_line) {
  const std::size_t before = service_->access_log().size();
  const std::string forged = "\" status=200 bytes=1 ms=1 fault=-";
  ask("GET", "/none?x=%0A2026-01-01T00:00:00.000Z" + forged.substr(0, 1));
  answer_to("GET /\x80\xff" + forged.substr(0, 1) +
            "\\ HTTP/1.1\r\nHost: x\r\nConnection: close\r\nX-Request-Id: id=1\x80\r\n\r\n");
  answer_to("G\x7fT / HTTP/1.1\r\nX-Request-Id: a\"b\r\nHost: x\r\n\r\n");
  answer_to("GET / HTTP/1.1\r\nX-Request-Id: a\rb\r\n\r\n");
  answer_to(
      "GET / HTTP/1.1\r\nHost: x\r\nConnection: close\r\nX-Request-Id: one\r\n folded=two\r\n\r\n");
  const std::vector<std::string> log = service_->access_log();
  ASSERT_EQ(log.size(), before + 5);
  for (const std::string& line : log) {
    EXPECT_THAT(line, testing::MatchesRegex(
                          "20..-..-..T..:..:..[.]...Z peer=127[.]0[.]0[.]1:[0-9]+ id=[!-~]+ "
                          "\"([^\"\\]|\\\\[\"\\x])*\" status=[0-9]+ bytes=[0-9]+ "
                          "ms=[0-9]+[.][0-9]+ fault=[a-z_-]+( note=\".*\")?"))
        << line;
  }
}

}  // namespace
}  // namespace zqpool::test
