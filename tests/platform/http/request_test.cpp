// Requests as they are sent.

#include <cctype>

#include "platform/json/json_spirit.h"
#include "tests/platform/http/http_test.h"
#include "tests/platform/http/interposed.h"

namespace zqpool::test {
namespace {

class HTTP_Request_Test : public HTTP_Test {
 protected:
  HTTP_Request_Test() { server_.otherwise(json_answer(200, "{}")); }

  /// Makes one good call and returns what the server saw.
  Recorded_Request sent(const Call_Options& options) {
    const std::size_t before = server_.request_count();
    EXPECT_TRUE(call(server_.endpoint(), options).ok) << log_.all();
    EXPECT_EQ(server_.request_count(), before + 1);
    return server_.request(before);
  }

  void expect_refused(const Called& called) {
    EXPECT_FALSE(called.ok);
    EXPECT_EQ(called.report.error, HTTP_Error::refused_request);
    EXPECT_EQ(called.report.phase, HTTP_Phase::none);
    EXPECT_EQ(called.report.attempts, 0);
    EXPECT_FALSE(called.report.sent);
    EXPECT_EQ(called.status, 0U);
    EXPECT_EQ(server_.connection_count(), 0U);
    EXPECT_TRUE(sleeps_.pauses().empty());
  }

  Scripted_Server server_;
};

TEST_F(HTTP_Request_Test, get_to_the_byte) {
  Call_Options options;
  options.path = "/zq/r/pool";
  options.query = "uuid=a%2fb+c";
  options.access_key = "secret-key";
  const Recorded_Request request = sent(options);
  EXPECT_EQ(request.raw,
            "GET /zq/r/pool?uuid=a%2fb+c HTTP/1.1\r\n"
            "Host: 127.0.0.1:" +
                std::to_string(server_.port()) +
                "\r\n"
                "User-Agent: zqpool\r\n"
                "Accept: application/json\r\n"
                "X-Access-Key: secret-key\r\n"
                "X-Request-Id: " +
                last_http_exchange().request_id +
                "\r\n"
                "Connection: close\r\n"
                "\r\n");
}

TEST_F(HTTP_Request_Test, the_process_may_hold_a_request_back_and_see_it_whole) {
  std::vector<std::string> asked;
  bool may = false;
  set_options([&](HTTP_Options& options) {
    options.may_send = [&](std::string_view request) {
      asked.emplace_back(request);
      return may;
    };
  });
  Call_Options options;
  options.path = "/zq/r/pool";
  options.access_key = "secret-key";
  expect_refused(call(server_.endpoint(), options));
  ASSERT_EQ(asked.size(), 1U);
  EXPECT_NE(asked[0].find("X-Access-Key: secret-key\r\n"), std::string::npos);
  may = true;
  const std::string raw = sent(options).raw;
  EXPECT_EQ(raw, asked.back());
}

TEST_F(HTTP_Request_Test, post_to_the_byte) {
  const json_spirit::Value body = json(R"({"b":[1,2],"a":"\u00e4"})");
  Call_Options options;
  options.method = HTTP_METHOD_POST;
  options.body = &body;
  const Recorded_Request request = sent(options);
  EXPECT_EQ(request.line, "POST /zq/x HTTP/1.1");
  EXPECT_EQ(request.body, "{\"a\":\"\xc3\xa4\",\"b\":[1,2]}");
  EXPECT_EQ(request.header_count("Content-Type"), 1U);
  EXPECT_EQ(request.header("Content-Type"), "application/json");
  EXPECT_EQ(request.header_count("Content-Length"), 1U);
  EXPECT_EQ(request.header("Content-Length"), std::to_string(request.body.size()));
  EXPECT_EQ(request.header_count("Transfer-Encoding"), 0U);
  EXPECT_EQ(request.header("Connection"), "close");
}

TEST_F(HTTP_Request_Test, put_has_its_body_too) {
  const json_spirit::Value body(Object{{"pool_uuid", "p"}});
  Call_Options options;
  options.method = HTTP_METHOD_PUT;
  options.body = &body;
  const Recorded_Request request = sent(options);
  EXPECT_EQ(request.method, "PUT");
  EXPECT_EQ(request.body, R"({"pool_uuid":"p"})");
}

TEST_F(HTTP_Request_Test, del_has_no_body) {
  Call_Options options;
  options.method = HTTP_METHOD_DELETE;
  options.query = "id=7";
  const Recorded_Request request = sent(options);
  EXPECT_EQ(request.line, "DELETE /zq/x?id=7 HTTP/1.1");
  EXPECT_EQ(request.header_count("Content-Length"), 0U);
  EXPECT_EQ(request.header_count("Content-Type"), 0U);
}

TEST_F(HTTP_Request_Test, post_without_a_body_says_so) {
  Call_Options options;
  options.method = HTTP_METHOD_POST;
  const Recorded_Request request = sent(options);
  EXPECT_EQ(request.body, "");
  EXPECT_EQ(request.header("Content-Length"), "0");
  EXPECT_EQ(request.header_count("Content-Type"), 0U);
}

TEST_F(HTTP_Request_Test, a_bare_path_posts) {
  JSON_RESTful_Client client("127.0.0.1", server_.port(), false, true);
  const json_spirit::Value body(Array{1});
  json_spirit::Value answer;
  EXPECT_TRUE(client.post("/zq/jr", &body, &answer));
  EXPECT_EQ(server_.request(0).line, "POST /zq/jr HTTP/1.1");
  EXPECT_EQ(server_.request(0).body, "[1]");
  EXPECT_TRUE(client.post(nullptr, &body, &answer));
  EXPECT_EQ(server_.request(1).target, "/");
}

TEST_F(HTTP_Request_Test, every_form_of_call_sends_its_method) {
  JSON_RESTful_Client client("127.0.0.1", server_.port(), false, true);
  json_spirit::Value answer;
  HTTP_Request get(HTTP_METHOD_GET, "/a", false);
  HTTP_Request del(HTTP_METHOD_DELETE, "/b", false);
  EXPECT_TRUE(client.get(get, &answer));
  EXPECT_TRUE(client.get(get, nullptr));
  EXPECT_TRUE(client.del(del));
  EXPECT_EQ(server_.request(0).method, "GET");
  EXPECT_EQ(server_.request(1).method, "GET");
  EXPECT_EQ(server_.request(2).method, "DELETE");
}

TEST_F(HTTP_Request_Test, head_and_body_leave_in_one_piece) {
  const json_spirit::Value small(Object{{"a", 1}});
  const json_spirit::Value larger(Object{{"a", std::string(20000, 'x')}});
  for (const json_spirit::Value* body : {&small, &larger}) {
    Call_Options options;
    options.method = HTTP_METHOD_POST;
    options.body = body;
    const Recorded_Request request = sent(options);
    EXPECT_EQ(request.first_piece, request.raw.size());
  }
}

TEST_F(HTTP_Request_Test, every_call_of_a_client_has_a_connection_of_its_own) {
  JSON_RESTful_Client client("127.0.0.1", server_.port(), false, true);
  for (std::size_t i = 0; i < 3; ++i) {
    const Called called = call(client);
    EXPECT_TRUE(called.ok);
    EXPECT_FALSE(called.report.connection_reused);
    EXPECT_EQ(server_.request(i).connection, i);
    EXPECT_EQ(server_.request(i).header("Connection"), "close");
  }
  EXPECT_TRUE(server_.settle());
}

TEST_F(HTTP_Request_Test, an_empty_access_key_sends_no_header) {
  EXPECT_EQ(sent({}).header_count("X-Access-Key"), 0U);
}

TEST_F(HTTP_Request_Test, headers_of_a_request_win_over_those_of_the_client) {
  JSON_RESTful_Client client("127.0.0.1", server_.port(), false, true);
  client.set_header(HTTP_HEAD_X_ACCESS_KEY, "of the client");
  Call_Options options;
  EXPECT_TRUE(call(client, options).ok);
  EXPECT_EQ(server_.request(0).header("X-Access-Key"), "of the client");
  options.access_key = "key of this request";
  EXPECT_TRUE(call(client, options).ok);
  EXPECT_EQ(server_.request(1).header("X-Access-Key"), "key of this request");
  EXPECT_EQ(server_.request(1).header_count("X-Access-Key"), 1U);
  client.set_header(HTTP_HEAD_X_ACCESS_KEY, nullptr);
  EXPECT_TRUE(call(client).ok);
  EXPECT_EQ(server_.request(2).header_count("X-Access-Key"), 0U);
}

TEST_F(HTTP_Request_Test, framing_headers_are_the_transports_own) {
  Call_Options options;
  options.method = HTTP_METHOD_POST;
  const json_spirit::Value body(Array{});
  options.body = &body;
  options.tune_request = [](HTTP_Request& request) {
    request.headers().put(HTTP_HEAD_CONTENT_LENGTH, "999", true);
    request.headers().put(HTTP_HEAD_TRANSFER_ENCODING, "chunked", true);
    request.headers().put(HTTP_HEAD_CONNECTION, "keep-alive", true);
    request.headers().put(HTTP_HEAD_EXPECT, "100-continue", true);
    request.headers().put(HTTP_HEAD_X_REQUEST_ID, "mine", true);
  };
  const Recorded_Request request = sent(options);
  EXPECT_EQ(request.header("Content-Length"), "2");
  EXPECT_EQ(request.header_count("Transfer-Encoding"), 0U);
  EXPECT_EQ(request.header("Connection"), "close");
  EXPECT_EQ(request.header_count("Expect"), 0U);
  EXPECT_NE(request.header("X-Request-Id"), "mine");
}

TEST_F(HTTP_Request_Test, user_agent_can_be_set_and_left_out) {
  set_options([](HTTP_Options& options) { options.user_agent = "tester/1"; });
  EXPECT_EQ(sent({}).header("User-Agent"), "tester/1");
  set_options([](HTTP_Options& options) { options.user_agent.clear(); });
  EXPECT_EQ(sent({}).header_count("User-Agent"), 0U);
}

TEST_F(HTTP_Request_Test, request_ids_differ_between_calls_and_are_reported) {
  const std::string first = sent({}).header("X-Request-Id");
  EXPECT_EQ(first, last_http_exchange().request_id);
  const std::string second = sent({}).header("X-Request-Id");
  EXPECT_EQ(second, last_http_exchange().request_id);
  EXPECT_NE(first, "");
  EXPECT_NE(first, second);
}

TEST_F(HTTP_Request_Test, request_id_stays_over_the_retries_of_one_call) {
  server_.queue(http_answer(503, "")).queue(close_after_request());
  EXPECT_TRUE(call(server_.endpoint()).ok);
  ASSERT_EQ(server_.request_count(), 3U);
  EXPECT_EQ(server_.request(0).header("X-Request-Id"), server_.request(1).header("X-Request-Id"));
  EXPECT_EQ(server_.request(0).header("X-Request-Id"), server_.request(2).header("X-Request-Id"));
  EXPECT_EQ(server_.request(0).header("X-Request-Id"), last_http_exchange().request_id);
}

// --- Host ---------------------------------------------------------------------------------------

TEST_F(HTTP_Request_Test, host_leaves_out_the_default_port_and_only_that) {
  Interposed_Network network;
  network.name("pool.test", {"127.0.0.1"});
  network.redirect(80, server_.port());
  network.redirect(443, server_.port());
  EXPECT_TRUE(call({"pool.test", 80, false}).ok);
  EXPECT_EQ(server_.request(0).header("Host"), "pool.test");
  EXPECT_TRUE(call({"pool.test", 443, false}).ok);
  EXPECT_EQ(server_.request(1).header("Host"), "pool.test:443");

  Scripted_Server secure(tls());
  secure.otherwise(json_answer(200, "{}"));
  network.redirect(80, secure.port());
  network.redirect(443, secure.port());
  EXPECT_TRUE(call({"pool.test", 443, true}).ok) << log_.all();
  EXPECT_EQ(secure.request(0).header("Host"), "pool.test");
  EXPECT_TRUE(call({"pool.test", 80, true}).ok) << log_.all();
  EXPECT_EQ(secure.request(1).header("Host"), "pool.test:80");
}

TEST_F(HTTP_Request_Test, host_has_an_ipv6_address_in_brackets) {
  if (!has_ipv6()) GTEST_SKIP() << "this machine has no ::1";
  Server_Options options;
  options.ipv6 = true;
  Scripted_Server server(options);
  server.otherwise(json_answer(200, "{}"));
  const std::string wanted = "[::1]:" + std::to_string(server.port());
  EXPECT_TRUE(call({"::1", server.port(), false}).ok);
  EXPECT_EQ(server.request(0).header("Host"), wanted);
  const Called called = call({"[::1]", server.port(), false});
  EXPECT_TRUE(called.ok);
  EXPECT_EQ(server.request(1).header("Host"), wanted);
  EXPECT_EQ(called.report.address, "::1");
  EXPECT_EQ(called.report.host, "::1");
}

// --- Percent-encoding ---------------------------------------------------------------------------

bool is_encoded(unsigned char c) {
  if (c <= 0x20 || c >= 0x7f) return true;
  switch (c) {
    case '"':
    case '<':
    case '>':
    case '\\':
    case '^':
    case '`':
    case '{':
    case '|':
    case '}':
    case '#':
      return true;
    default:
      return false;
  }
}

std::string encoded(unsigned char c) {
  if (!is_encoded(c)) return std::string(1, static_cast<char>(c));
  char text[4];
  snprintf(text, sizeof text, "%%%02X", c);
  return text;
}

TEST_F(HTTP_Request_Test, all_bytes_of_a_query) {
  std::string query = "q=";
  std::string wanted = "/zq/x?q=";
  for (unsigned c = 1; c < 256; ++c) {
    query += static_cast<char>(c);
    wanted += encoded(static_cast<unsigned char>(c));
  }
  Call_Options options;
  options.query = query;
  EXPECT_EQ(sent(options).target, wanted);
}

TEST_F(HTTP_Request_Test, all_bytes_of_a_path) {
  std::string path = "/zq/";
  std::string wanted = "/zq/";
  for (unsigned c = 0x20; c < 256; ++c) {
    if (c == 0x7f) continue;
    path += static_cast<char>(c);
    wanted += encoded(static_cast<unsigned char>(c));
  }
  Call_Options options;
  options.path = path;
  EXPECT_EQ(sent(options).target, wanted);
}

TEST_F(HTTP_Request_Test, what_is_encoded_already_stays_as_the_caller_wrote_it) {
  Call_Options options;
  options.path = "/zq/%41%zz%";
  options.query = "a=%2f%2F&b=c+d&e";
  EXPECT_EQ(sent(options).target, "/zq/%41%zz%?a=%2f%2F&b=c+d&e");
}

TEST_F(HTTP_Request_Test, a_query_cannot_split_the_request) {
  Call_Options options;
  options.query = "a=b HTTP/1.1\r\nX-Evil: 1\r\n\r\nGET /evil HTTP/1.1\r\n";
  const Recorded_Request request = sent(options);
  EXPECT_EQ(request.target,
            "/zq/x?a=b%20HTTP/1.1%0D%0AX-Evil:%201%0D%0A%0D%0AGET%20/evil%20HTTP/1.1%0D%0A");
  EXPECT_EQ(request.header_count("X-Evil"), 0U);
  EXPECT_TRUE(server_.settle());
  EXPECT_EQ(server_.request_count(), 1U);
}

// --- Refused before anything is sent ------------------------------------------------------------

TEST_F(HTTP_Request_Test, a_path_with_a_control_byte_is_refused) {
  for (int c = 1; c < 0x80; c = c == 0x1f ? 0x7f : c + 1) {
    Call_Options options;
    options.path = std::string("/zq/") + static_cast<char>(c) + "x";
    expect_refused(call(server_.endpoint(), options));
  }
}

TEST_F(HTTP_Request_Test, a_path_that_is_not_absolute_is_refused) {
  for (const char* path : {"", "zq/x", "http://elsewhere/zq", "*", "?q"}) {
    Call_Options options;
    options.path = path;
    expect_refused(call(server_.endpoint(), options));
  }
}

TEST_F(HTTP_Request_Test, a_header_value_with_a_control_byte_is_refused) {
  for (int c = 1; c < 0x80; c = c == 0x1f ? 0x7f : c + 1) {
    if (c == '\t') continue;
    Call_Options options;
    options.access_key = std::string("key") + static_cast<char>(c) + "X-Evil: 1";
    expect_refused(call(server_.endpoint(), options));
  }
  Call_Options of_the_client;
  of_the_client.tune = [](JSON_RESTful_Client& client) {
    client.set_header(HTTP_HEAD_X_ACCESS_KEY, "key\r\nX-Evil: 1");
  };
  expect_refused(call(server_.endpoint(), of_the_client));
  // The log must not show the key either.
  EXPECT_EQ(log_.all().find("key"), std::string::npos) << log_.all();
}

TEST_F(HTTP_Request_Test, a_header_value_may_hold_a_tab_and_bytes_beyond_ascii) {
  Call_Options options;
  options.access_key = "a\tb\xc3\xa4";
  EXPECT_EQ(sent(options).header("X-Access-Key"), "a\tb\xc3\xa4");
}

TEST_F(HTTP_Request_Test, a_host_that_is_none_is_refused) {
  for (const std::string host :
       {"",     " ",    "a b",   "a/b",   "a\\b", "user@a", "a#b",
        "a?b",  "a:80", "1:2",   "::1]",  "[::1", "[]",     "a\r\nX-Evil: 1",
        "a\nb", "a\tb", "a\x7f", "a\x01", "<a>",  "\"a\"",  "a|b",
        "a^b",  "a`b",  "{a}"}) {
    SCOPED_TRACE(host);
    expect_refused(call({host, server_.port(), false}));
  }
  expect_refused(call({std::string(256, 'a'), server_.port(), false}));
  JSON_RESTful_Client client(nullptr, server_.port(), false, true);
  expect_refused(call(client));
}

TEST_F(HTTP_Request_Test, lines_about_refused_hosts_stay_single_and_whole) {
  call({"a\r\nLM_ERROR evil", server_.port(), false});
  call({std::string(10000, 'a'), server_.port(), false});
  Call_Options long_path;
  long_path.path = "/" + std::string(10000, 'p');
  call({"a b", 1, false}, long_path);
  const auto lines = log_.take();
  ASSERT_EQ(lines.size(), 3U);
  for (const Log_Line& line : lines) {
    EXPECT_EQ(line.text.find_first_of("\r\n"), line.text.size() - 1) << line;
    EXPECT_NE(line.text.find("host"), std::string::npos) << line;
  }
}

TEST_F(HTTP_Request_Test, lines_about_refused_paths_stay_single) {
  for (const char* path : {"/a\r\nLM_ERROR evil", "a\r\nLM_ERROR evil", "\n"}) {
    Call_Options options;
    options.path = path;
    expect_refused(call(server_.endpoint(), options));
  }
  const auto lines = log_.take();
  ASSERT_EQ(lines.size(), 3U);
  for (const Log_Line& line : lines) {
    EXPECT_EQ(line.text.find_first_of("\r\n"), line.text.size() - 1) << line;
  }
}

TEST_F(HTTP_Request_Test, a_user_agent_with_a_control_byte_is_refused) {
  set_options([](HTTP_Options& options) { options.user_agent = "a\r\nX-Evil: 1"; });
  expect_refused(call(server_.endpoint()));
}

TEST_F(HTTP_Request_Test, a_request_made_for_another_method_is_refused) {
  JSON_RESTful_Client client("127.0.0.1", server_.port(), false, true);
  HTTP_Request del(HTTP_METHOD_DELETE, "/zq/x", false);
  json_spirit::Value answer;
  EXPECT_FALSE(client.get(del, &answer));
  EXPECT_EQ(last_http_exchange().error, HTTP_Error::refused_request);
  HTTP_Request get(HTTP_METHOD_GET, "/zq/x", false);
  EXPECT_FALSE(client.del(get));
  EXPECT_FALSE(client.post(get, nullptr, nullptr));
  EXPECT_FALSE(client.put(get, nullptr, nullptr));
  EXPECT_EQ(server_.connection_count(), 0U);
}

TEST_F(HTTP_Request_Test, a_body_that_json_cannot_say_is_refused) {
  const json_spirit::Value infinite(Object{{"a", 1e308 * 10}});
  const json_spirit::Value not_utf8(Object{{"a", "\xff"}});
  for (const json_spirit::Value* body : {&infinite, &not_utf8}) {
    Call_Options options;
    options.method = HTTP_METHOD_POST;
    options.body = body;
    expect_refused(call(server_.endpoint(), options));
  }
}

// --- What the transport leaves alone ------------------------------------------------------------

TEST_F(HTTP_Request_Test, proxies_of_the_environment_are_ignored) {
  Scripted_Server proxy;
  const std::string address = "http://127.0.0.1:" + std::to_string(proxy.port());
  for (const char* name : {"http_proxy", "HTTP_PROXY", "https_proxy", "all_proxy", "ALL_PROXY"}) {
    setenv(name, address.c_str(), 1);
  }
  EXPECT_TRUE(call(server_.endpoint()).ok);
  for (const char* name : {"http_proxy", "HTTP_PROXY", "https_proxy", "all_proxy", "ALL_PROXY"}) {
    unsetenv(name);
  }
  EXPECT_EQ(proxy.connection_count(), 0U);
  EXPECT_EQ(server_.request(0).target, "/zq/x");
}

}  // namespace
}  // namespace zqpool::test
