// Common_JSON_RESTful_Client and Upstream_JSON_RESTful_Client.

#include <atomic>
#include <thread>

#include "platform/host/host_manager.h"
#include "tests/platform/http/http_test.h"

namespace zqpool::test {
namespace {

class HTTP_Product_Client_Test : public HTTP_Test {
 public:
  HTTP_Product_Client_Test() {
    Host_Manager::instance()->access_key("host-key");
    server_.otherwise(json_answer(200, "{}"));
  }
  ~HTTP_Product_Client_Test() override { Host_Manager::instance()->access_key(""); }

 protected:
  Scripted_Server server_;
};

TEST_F(HTTP_Product_Client_Test, the_common_client_sends_the_hosts_key_to_a_backup_server_only) {
  for (const bool is_on_backupd : {true, false}) {
    const std::size_t number = server_.request_count();
    Common_JSON_RESTful_Client client("127.0.0.1", server_.port(), false, is_on_backupd, true);
    EXPECT_TRUE(call(client).ok);
    EXPECT_EQ(server_.request(number).header("X-Access-Key"), is_on_backupd ? "host-key" : "");
    EXPECT_EQ(server_.request(number).header_count("X-Access-Key"), is_on_backupd ? 1U : 0U);
  }
}

TEST_F(HTTP_Product_Client_Test, the_common_client_keeps_no_connection) {
  Common_JSON_RESTful_Client client("127.0.0.1", server_.port(), false, true, true);
  EXPECT_TRUE(call(client).ok);
  EXPECT_TRUE(call(client).ok);
  EXPECT_EQ(server_.connection_count(), 2U);
  EXPECT_EQ(server_.request(1).header("Connection"), "close");
}

TEST_F(HTTP_Product_Client_Test, the_common_client_without_a_host_key_sends_no_header) {
  Host_Manager::instance()->access_key("");
  Common_JSON_RESTful_Client client("127.0.0.1", server_.port(), false, true, true);
  EXPECT_TRUE(call(client).ok);
  EXPECT_EQ(server_.request(0).header_count("X-Access-Key"), 0U);
}

TEST_F(HTTP_Product_Client_Test, the_upstream_client_without_a_host_fails) {
  Upstream_JSON_RESTful_Client::configure(nullptr, 0, false, nullptr);
  const Called called = call(Upstream_JSON_RESTful_Client::instance());
  EXPECT_FALSE(called.ok);
  EXPECT_EQ(called.report.error, HTTP_Error::refused_request);
  EXPECT_EQ(called.report.attempts, 0);
}

TEST_F(HTTP_Product_Client_Test, the_upstream_client_keeps_its_connection_and_sends_its_key) {
  Upstream_JSON_RESTful_Client::configure("127.0.0.1", server_.port(), false, "upstream-key");
  EXPECT_TRUE(call(Upstream_JSON_RESTful_Client::instance()).ok);
  EXPECT_TRUE(call(Upstream_JSON_RESTful_Client::instance()).ok);
  EXPECT_EQ(server_.connection_count(), 1U);
  EXPECT_EQ(server_.request(1).header("X-Access-Key"), "upstream-key");
  EXPECT_TRUE(last_http_exchange().connection_reused);
}

TEST_F(HTTP_Product_Client_Test, the_upstream_client_without_a_key_keeps_its_connection_too) {
  Upstream_JSON_RESTful_Client::configure("127.0.0.1", server_.port(), false, nullptr);
  EXPECT_TRUE(call(Upstream_JSON_RESTful_Client::instance()).ok);
  EXPECT_TRUE(call(Upstream_JSON_RESTful_Client::instance()).ok);
  EXPECT_EQ(server_.connection_count(), 1U);
  EXPECT_EQ(server_.request(0).header_count("X-Access-Key"), 0U);
}

TEST_F(HTTP_Product_Client_Test, the_upstream_client_serves_many_threads) {
  Scripted_Server secure(tls());
  secure.otherwise(json_answer(200, "{}"));
  Upstream_JSON_RESTful_Client::configure("127.0.0.1", secure.port(), true, "upstream-key");
  std::atomic<int> good{0};
  std::vector<std::thread> threads;
  threads.reserve(16);
  for (int t = 0; t < 16; ++t) {
    threads.emplace_back([&good] {
      for (int i = 0; i < 10; ++i)
        good += call(Upstream_JSON_RESTful_Client::instance()).ok ? 1 : 0;
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(good, 160);
  EXPECT_EQ(secure.request_count(), 160U);
  EXPECT_LT(secure.connection_count(), 160U);
}

}  // namespace
}  // namespace zqpool::test
