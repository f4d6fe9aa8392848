// Name look-up, names with several addresses, and name servers that do not answer.

#include <netdb.h>

#include "tests/platform/http/http_test.h"
#include "tests/platform/http/interposed.h"

namespace zqpool::test {
namespace {

using testing::HasSubstr;

class HTTP_Name_Test : public HTTP_Test {
 protected:
  HTTP_Name_Test() { server_.otherwise(json_answer(200, "{}")); }
  Endpoint named(const char* name) const { return {name, server_.port(), false}; }

  static Called call_once(const Endpoint& to) {
    Call_Options options;
    options.tune = [](JSON_RESTful_Client& client) { client.retries(0); };
    return call(to, options);
  }

  Scripted_Server server_;
  Interposed_Network network_;
};

TEST_F(HTTP_Name_Test, a_name_is_looked_up_and_kept_in_the_host_header) {
  network_.name("pool.test", {"127.0.0.1"});
  const Called called = call(named("pool.test"));
  EXPECT_TRUE(called.ok);
  EXPECT_EQ(network_.look_ups("pool.test"), 1);
  EXPECT_EQ(called.report.host, "pool.test");
  EXPECT_EQ(called.report.address, "127.0.0.1");
  EXPECT_EQ(server_.request(0).header("Host"), "pool.test:" + std::to_string(server_.port()));
}

TEST_F(HTTP_Name_Test, a_literal_is_not_looked_up) {
  network_.no_name("127.0.0.1", EAI_NONAME);
  network_.no_name("::1", EAI_NONAME);
  EXPECT_TRUE(call(named("127.0.0.1")).ok);
  call_once({"::1", 1, false});
  EXPECT_EQ(network_.look_ups("127.0.0.1") + network_.look_ups("::1"), 0);
}

TEST_F(HTTP_Name_Test, a_name_without_an_address_is_reported_in_the_resolvers_words) {
  network_.no_name("nowhere.test", EAI_NONAME);
  const Called called = call_once(named("nowhere.test"));
  EXPECT_FALSE(called.ok);
  EXPECT_EQ(called.report.error, HTTP_Error::name);
  EXPECT_EQ(called.report.phase, HTTP_Phase::name);
  EXPECT_EQ(called.report.text, gai_strerror(EAI_NONAME));
  EXPECT_EQ(called.report.address, "");
  EXPECT_FALSE(called.report.sent);
}

TEST_F(HTTP_Name_Test, a_name_is_looked_up_anew_for_every_attempt) {
  network_.no_name("nowhere.test", EAI_AGAIN);
  EXPECT_EQ(call(named("nowhere.test")).report.attempts, 3);
  EXPECT_EQ(network_.look_ups("nowhere.test"), 3);
}

TEST_F(HTTP_Name_Test, refusing_addresses_give_way_to_the_next_at_once) {
  std::vector<std::string> addresses;
  for (int i = 2; i < 102; ++i)
    addresses.push_back("127.0.0." + std::to_string(i));
  addresses.emplace_back("127.0.0.1");
  network_.name("pool.test", addresses);
  const Called called = call_once(named("pool.test"));
  EXPECT_TRUE(called.ok) << called.report.text;
  EXPECT_EQ(called.report.address, "127.0.0.1");
  EXPECT_EQ(called.report.attempts, 1);
  EXPECT_EQ(network_.connects(), addresses);
}

TEST_F(HTTP_Name_Test, a_dead_first_address_does_not_eat_the_deadline) {
  const Black_Hole hole("127.0.0.2", server_.port());
  network_.name("pool.test", {"127.0.0.2", "127.0.0.1"});
  const Called called = call_once(named("pool.test"));
  EXPECT_TRUE(called.ok) << called.report.text;
  EXPECT_EQ(called.report.address, "127.0.0.1");
}

TEST_F(HTTP_Name_Test, several_dead_addresses_do_not_eat_the_deadline) {
  const Black_Hole one("127.0.0.2", server_.port());
  const Black_Hole two("127.0.0.3", server_.port());
  const Refused_Port three("127.0.0.4", server_.port());
  network_.name("pool.test", {"127.0.0.2", "127.0.0.4", "127.0.0.3", "127.0.0.1"});
  const Called called = call_once(named("pool.test"));
  EXPECT_TRUE(called.ok) << called.report.text;
}

TEST_F(HTTP_Name_Test, the_address_families_take_turns) {
  if (!has_ipv6()) GTEST_SKIP() << "this machine has no ::1";
  const Refused_Port two("127.0.0.2", server_.port());
  const Refused_Port three("127.0.0.3", server_.port());
  const Refused_Port six("::1", server_.port());
  network_.name("pool.test", {"127.0.0.2", "127.0.0.3", "127.0.0.1", "::1"});
  EXPECT_TRUE(call_once(named("pool.test")).ok) << last_http_exchange().text;
  EXPECT_THAT(network_.connects(),
              testing::ElementsAre("127.0.0.2", "::1", "127.0.0.3", "127.0.0.1"));
}

TEST_F(HTTP_Name_Test, all_addresses_refusing_is_reported_in_the_systems_words) {
  const Refused_Port one("127.0.0.2", server_.port());
  const Refused_Port two("127.0.0.3", server_.port());
  network_.name("pool.test", {"127.0.0.2", "127.0.0.3"});
  const Called called = call_once(named("pool.test"));
  EXPECT_EQ(called.report.error, HTTP_Error::connect);
  EXPECT_EQ(called.report.phase, HTTP_Phase::connect);
  EXPECT_THAT(called.report.text, HasSubstr("refused"));
  EXPECT_FALSE(called.report.sent);
}

TEST_F(HTTP_Name_Test, all_addresses_dead_end_by_the_deadline) {
  set_options([](HTTP_Options& options) { options.exchange_timeout = 300ms; });
  const Black_Hole one("127.0.0.2", server_.port());
  const Black_Hole two("127.0.0.3", server_.port());
  network_.name("pool.test", {"127.0.0.2", "127.0.0.3"});
  const Called called = call(named("pool.test"));
  EXPECT_EQ(called.report.error, HTTP_Error::timeout);
  EXPECT_EQ(called.report.phase, HTTP_Phase::connect);
  EXPECT_GE(called.took, 295ms);
}

TEST_F(HTTP_Name_Test, an_address_that_answers_late_is_connected_to) {
  set_options([](HTTP_Options& options) { options.exchange_timeout = 2000ms; });
  Black_Hole hole("127.0.0.2", server_.port());
  network_.name("pool.test", {"127.0.0.2"});
  network_.after_connect([&hole] { hole.open_up(); });
  const Called called = call_once(named("pool.test"));
  EXPECT_EQ(called.report.error, HTTP_Error::timeout);
  EXPECT_EQ(called.report.phase, HTTP_Phase::wait) << "connected, but nobody answers";
  EXPECT_EQ(called.report.address, "127.0.0.2");
  EXPECT_GE(called.report.connect_time, 500ms);
}

TEST_F(HTTP_Name_Test, an_address_that_refuses_late_gives_way_to_the_next) {
  Black_Hole hole("127.0.0.2", server_.port());
  const Black_Hole other("127.0.0.3", server_.port());
  network_.name("pool.test", {"127.0.0.2", "127.0.0.3", "127.0.0.1"});
  network_.after_connect([&hole] { hole.refuse(); });
  const Called called = call_once(named("pool.test"));
  EXPECT_TRUE(called.ok) << called.report.text;
  EXPECT_EQ(called.report.address, "127.0.0.1");
}

TEST_F(HTTP_Name_Test, an_address_that_refuses_late_is_reported) {
  Black_Hole hole("127.0.0.2", server_.port());
  network_.name("pool.test", {"127.0.0.2"});
  network_.after_connect([&hole] { hole.refuse(); });
  const Called called = call_once(named("pool.test"));
  EXPECT_FALSE(called.ok);
  EXPECT_EQ(called.report.error, HTTP_Error::connect);
  EXPECT_THAT(called.report.text, HasSubstr("refused"));
}

TEST_F(HTTP_Name_Test, a_zone_of_an_ipv6_address_stays_at_home) {
  if (!has_ipv6()) GTEST_SKIP() << "this machine has no ::1";
  Server_Options options = tls();
  options.ipv6 = true;
  Scripted_Server server(options);
  server.otherwise(json_answer(200, "{}"));
  const Called called = call_once({"::1%1", server.port(), true});
  EXPECT_TRUE(called.ok) << called.report.text;
  EXPECT_EQ(server.request(0).header("Host"), "[::1]:" + std::to_string(server.port()));
  EXPECT_EQ(server.request(0).sni, "");
}

TEST_F(HTTP_Name_Test, an_ipv6_address_that_nobody_serves_gives_way_to_ipv4) {
  if (!has_ipv6()) GTEST_SKIP() << "this machine has no ::1";
  const Refused_Port nobody("::1", server_.port());
  network_.name("pool.test", {"::1", "127.0.0.1"});
  EXPECT_TRUE(call_once(named("pool.test")).ok);
}

TEST_F(HTTP_Name_Test, a_name_server_that_does_not_answer_is_left_behind_at_the_deadline) {
  set_options([](HTTP_Options& options) { options.exchange_timeout = 300ms; });
  network_.block("slow.test");
  const Called called = call(named("slow.test"));
  EXPECT_FALSE(called.ok);
  EXPECT_EQ(called.report.error, HTTP_Error::timeout);
  EXPECT_EQ(called.report.phase, HTTP_Phase::name);
  EXPECT_GE(called.took, 295ms);
  EXPECT_EQ(server_.connection_count(), 0U);
  // Other calls are not affected.
  set_options([](HTTP_Options& options) { options.exchange_timeout = 20s; });
  network_.name("pool.test", {"127.0.0.1"});
  EXPECT_TRUE(call(named("pool.test")).ok);
}

TEST_F(HTTP_Name_Test, look_ups_left_behind_are_bounded) {
  set_options([](HTTP_Options& options) { options.exchange_timeout = 1ms; });
  network_.block("slow.test");
  network_.name("slow.test", {"127.0.0.1"});
  int timeouts = 0;
  while (timeouts < 1000 && call_once(named("slow.test")).report.error == HTTP_Error::timeout) {
    ++timeouts;
  }
  EXPECT_EQ(timeouts, 64);
  EXPECT_EQ(last_http_exchange().error, HTTP_Error::name);
  EXPECT_THAT(last_http_exchange().text, HasSubstr("unanswered"));
  EXPECT_LE(network_.look_ups("slow.test"), 64);
  // Literals need no look-up.
  set_options([](HTTP_Options& options) { options.exchange_timeout = 5s; });
  EXPECT_TRUE(call(named("127.0.0.1")).ok);

  network_.release();
  // The look-ups end one by one; each that ends makes room.
  Called called;
  for (int i = 0; i < 100000 && !called.ok; ++i)
    called = call_once(named("slow.test"));
  EXPECT_TRUE(called.ok) << called.report.text;
}

}  // namespace
}  // namespace zqpool::test
