// Which certificates HTTPS accepts, and which sessions it resumes.

#include <openssl/ssl.h>

#include <thread>

#include "tests/platform/http/http_test.h"
#include "tests/platform/http/interposed.h"
#include "tests/support/temp_directory.h"

namespace zqpool::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

const Test_Certificates& certificates() {
  return Test_Certificates::instance();
}

class HTTP_TLS_Test : public HTTP_Test {
 protected:
  static Call_Options with_key() {
    Call_Options options;
    options.access_key = "secret-key";
    return options;
  }

  /// Expects that the call fails before the server receives anything of the request.
  static void expect_refused(Scripted_Server& server, const Endpoint& to, const char* why) {
    const Called called = call(to, with_key());
    EXPECT_FALSE(called.ok);
    EXPECT_EQ(called.report.error, HTTP_Error::tls);
    EXPECT_EQ(called.report.phase, HTTP_Phase::tls);
    EXPECT_THAT(called.report.text, HasSubstr(why));
    EXPECT_EQ(called.report.attempts, 1);
    EXPECT_FALSE(called.report.sent);
    EXPECT_FALSE(called.report.outcome_unknown());
    EXPECT_EQ(called.status, 0U);
    EXPECT_TRUE(server.settle());
    EXPECT_EQ(server.request_count(), 0U);
    EXPECT_EQ(server.bytes_received(), 0U);
  }

  static void expect_refused(Scripted_Server& server, const char* why) {
    expect_refused(server, server.endpoint(), why);
  }
};

// --- Trust --------------------------------------------------------------------------------------

TEST_F(HTTP_TLS_Test, a_good_certificate_is_taken) {
  Scripted_Server server(tls());
  server.otherwise(json_answer(200, "[1]"));
  const Called called = call(server.endpoint(), with_key());
  EXPECT_TRUE(called.ok) << called.report.text;
  EXPECT_EQ(called.answer, json("[1]"));
  EXPECT_TRUE(called.report.ssl);
  EXPECT_FALSE(called.report.tls_resumed);
  EXPECT_GT(called.report.tls_time.count(), 0);
  EXPECT_EQ(called.report.bytes_sent, server.request(0).raw.size());
  EXPECT_EQ(server.request(0).header("X-Access-Key"), "secret-key");
  EXPECT_EQ(server.request(0).header("Host"), "127.0.0.1:" + std::to_string(server.port()));
}

TEST_F(HTTP_TLS_Test, a_certificate_of_a_ca_in_a_directory_is_taken) {
  set_options([](HTTP_Options& options) {
    options.ca_file.clear();
    options.ca_directory = certificates().ca_directory;
  });
  Scripted_Server server(tls());
  server.otherwise(json_answer(200, "[1]"));
  EXPECT_TRUE(call(server.endpoint()).ok) << last_http_exchange().text;
}

TEST_F(HTTP_TLS_Test, an_ipv6_address_is_checked_too) {
  if (!has_ipv6()) GTEST_SKIP() << "this machine has no ::1";
  Server_Options options = tls();
  options.ipv6 = true;
  Scripted_Server good(options);
  good.otherwise(json_answer(200, "{}"));
  EXPECT_TRUE(call(good.endpoint()).ok) << last_http_exchange().text;
  EXPECT_TRUE(call({"[::1]", good.port(), true}).ok) << last_http_exchange().text;
  options.identity = &certificates().other_host;
  Scripted_Server bad(options);
  expect_refused(bad, "IP address mismatch");
}

TEST_F(HTTP_TLS_Test, bad_certificates_are_refused) {
  const std::pair<const Identity&, const char*> bad[] = {
      {certificates().foreign, "unable to get local issuer certificate"},
      {certificates().other_host, "IP address mismatch"},
      {certificates().expired, "certificate has expired"},
      {certificates().not_yet_valid, "certificate is not yet valid"},
      {certificates().self_signed, "self-signed certificate"},
  };
  for (const auto& [identity, words] : bad) {
    SCOPED_TRACE(words);
    Scripted_Server server(tls(identity));
    expect_refused(server, words);
  }
}

TEST_F(HTTP_TLS_Test, a_certificate_for_another_host_name_is_refused) {
  Interposed_Network network;
  network.name("elsewhere.test", {"127.0.0.1"});
  network.name("pool.test.evil.test", {"127.0.0.1"});
  Scripted_Server server(tls());
  expect_refused(server, {"elsewhere.test", server.port(), true}, "hostname mismatch");
  expect_refused(server, {"pool.test.evil.test", server.port(), true}, "hostname mismatch");
}

TEST_F(HTTP_TLS_Test, a_self_signed_certificate_that_is_trusted_itself_is_taken) {
  set_options(
      [](HTTP_Options& options) { options.ca_file = certificates().self_signed.certificate_file; });
  Scripted_Server server(tls(certificates().self_signed));
  server.otherwise(json_answer(200, "{}"));
  EXPECT_TRUE(call(server.endpoint()).ok) << last_http_exchange().text;
}

TEST_F(HTTP_TLS_Test, the_systems_authorities_do_not_know_ours) {
  set_options([](HTTP_Options& options) { options.ca_file.clear(); });
  Scripted_Server server(tls());
  expect_refused(server, "certificate");
}

TEST_F(HTTP_TLS_Test, the_log_line_says_why) {
  Scripted_Server server(tls(certificates().expired));
  call(server.endpoint(), with_key());
  EXPECT_THAT(log_.texts("LM_ERROR"),
              ElementsAre("GET https://127.0.0.1:" + std::to_string(server.port()) +
                          "/zq/x failed: TLS: certificate refused: certificate has expired.\n"));
}

TEST_F(HTTP_TLS_Test, verifying_switched_off_takes_all_and_warns) {
  log_.take();
  set_options([](HTTP_Options& options) { options.verify = false; });
  const auto lines = log_.take();
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0].priority, "LM_WARNING");
  EXPECT_THAT(lines[0].text, HasSubstr("not verified"));
  for (const Identity* identity :
       {&certificates().foreign, &certificates().other_host, &certificates().expired,
        &certificates().not_yet_valid, &certificates().self_signed}) {
    Scripted_Server server(tls(*identity));
    server.otherwise(json_answer(200, "{}"));
    EXPECT_TRUE(call(server.endpoint(), with_key()).ok) << last_http_exchange().text;
  }
  set_options([](HTTP_Options& options) { options.verify = true; });
  EXPECT_TRUE(log_.lines().empty()) << "on is not worth a line";
}

TEST_F(HTTP_TLS_Test, files_that_cannot_be_loaded_fail_every_exchange_and_are_named) {
  Scripted_Server server(tls());
  const Temp_Directory directory;
  const std::string garbage = directory.write("garbage.pem", "no certificate\n");
  const std::string missing = directory.path("missing.pem");
  const auto expect_named = [&](const std::string& file,
                                const std::function<void(HTTP_Options&)>& change) {
    const Options_Guard guard;
    set_options(change);
    expect_refused(server, file.c_str());
    expect_refused(server, file.c_str());
  };
  for (const std::string& file : {garbage, missing}) {
    expect_named(file, [&file](HTTP_Options& options) { options.ca_file = file; });
    expect_named(file, [&file](HTTP_Options& options) { options.certificate_file = file; });
    expect_named(file, [&file](HTTP_Options& options) {
      options.certificate_file = certificates().client.certificate_file;
      options.private_key_file = file;
    });
  }
  const std::string other_key = certificates().server.key_file;
  expect_named(other_key, [&other_key](HTTP_Options& options) {
    options.certificate_file = certificates().client.certificate_file;
    options.private_key_file = other_key;
  });
}

TEST_F(HTTP_TLS_Test, bad_files_do_not_hinder_plain_exchanges) {
  set_options([](HTTP_Options& options) { options.ca_file = "/nonexistent/ca.pem"; });
  Scripted_Server server;
  server.otherwise(json_answer(200, "{}"));
  EXPECT_TRUE(call(server.endpoint()).ok);
}

TEST_F(HTTP_TLS_Test, files_are_read_once) {
  const Temp_Directory directory;
  const std::string file = directory.write("ca.pem", certificates().ca);
  set_options([&file](HTTP_Options& options) { options.ca_file = file; });
  Scripted_Server server(tls());
  server.otherwise(json_answer(200, "{}"));
  EXPECT_TRUE(call(server.endpoint()).ok);
  directory.write("ca.pem", "no certificate any more");
  EXPECT_TRUE(call(server.endpoint()).ok) << last_http_exchange().text;
}

TEST_F(HTTP_TLS_Test, a_plain_service_does_not_speak_tls) {
  Scripted_Server server;
  server.otherwise(raw_answer("HTTP/1.1 400 Bad Request\r\n\r\n"));
  Scripted_Server secure(tls());
  Call_Options options = with_key();
  options.tune = [](JSON_RESTful_Client& client) { client.retries(0); };
  const Called to_plain = call({"127.0.0.1", secure.port(), false}, options);
  EXPECT_FALSE(to_plain.ok);
  EXPECT_EQ(secure.bytes_received(), 0U);
  set_options([](HTTP_Options& o) { o.exchange_timeout = 200ms; });
  const Called to_secure = call({"127.0.0.1", server.port(), true}, options);
  EXPECT_FALSE(to_secure.ok);
  EXPECT_EQ(to_secure.report.phase, HTTP_Phase::tls);
  EXPECT_EQ(server.request_count(), 0U);
}

TEST_F(HTTP_TLS_Test, a_protocol_before_tls_1_2_is_refused) {
  Server_Options options = tls();
  options.max_tls_version = TLS1_1_VERSION;
  Scripted_Server server(options);
  Call_Options once = with_key();
  once.tune = [](JSON_RESTful_Client& client) { client.retries(0); };
  const Called called = call(server.endpoint(), once);
  EXPECT_EQ(called.report.error, HTTP_Error::tls);
  EXPECT_EQ(called.report.phase, HTTP_Phase::tls);
  EXPECT_EQ(server.bytes_received(), 0U);
}

// --- Server name --------------------------------------------------------------------------------

TEST_F(HTTP_TLS_Test, names_are_asked_for_and_literals_are_not) {
  Interposed_Network network;
  network.name("pool.test", {"127.0.0.1"});
  network.name("pool.test.", {"127.0.0.1"});
  Scripted_Server server(tls());
  server.otherwise(json_answer(200, "{}"));
  EXPECT_TRUE(call({"pool.test", server.port(), true}).ok) << last_http_exchange().text;
  EXPECT_EQ(server.request(0).sni, "pool.test");
  EXPECT_TRUE(call({"pool.test.", server.port(), true}).ok) << last_http_exchange().text;
  EXPECT_EQ(server.request(1).sni, "pool.test");
  EXPECT_TRUE(call({"127.0.0.1", server.port(), true}).ok);
  EXPECT_EQ(server.request(2).sni, "");
}

// --- Client certificates ------------------------------------------------------------------------

TEST_F(HTTP_TLS_Test, a_client_certificate_is_shown_to_a_service_that_asks) {
  Server_Options asking = tls();
  asking.want_client_certificate = true;
  const Temp_Directory directory;
  const Identity& client = certificates().client;
  const std::string both = directory.write("both.pem", client.certificate + client.key);
  for (const bool one_file : {false, true}) {
    Scripted_Server server(asking);
    server.otherwise(json_answer(200, "{}"));
    set_options([&](HTTP_Options& options) {
      options.certificate_file = one_file ? both : client.certificate_file;
      options.private_key_file = one_file ? "" : client.key_file;
    });
    EXPECT_TRUE(call(server.endpoint()).ok) << last_http_exchange().text;
    EXPECT_EQ(server.request(0).client_certificate, "zqpool test client");
  }
}

TEST_F(HTTP_TLS_Test, without_a_client_certificate_a_service_that_asks_refuses) {
  for (const int version : {TLS1_2_VERSION, TLS1_3_VERSION}) {
    Server_Options asking = tls();
    asking.want_client_certificate = true;
    asking.max_tls_version = version;
    Scripted_Server server(asking);
    Call_Options options;
    options.method = HTTP_METHOD_POST;
    const Called called = call(server.endpoint(), options);
    EXPECT_FALSE(called.ok);
    EXPECT_EQ(called.report.error, HTTP_Error::tls) << called.report.text;
    EXPECT_EQ(server.request_count(), 0U);
    EXPECT_EQ(server.bytes_received(), 0U);
  }
}

// --- Sessions -----------------------------------------------------------------------------------

class HTTP_TLS_Session_Test : public HTTP_Test, public testing::WithParamInterface<int> {
 protected:
  HTTP_TLS_Session_Test() { server_.otherwise(json_answer(200, "{}")); }

  static Server_Options options(const Identity& identity) {
    Server_Options made = tls(identity);
    made.max_tls_version = GetParam();
    return made;
  }

  /// Makes a call that succeeds. Returns whether its session was resumed; both sides must agree.
  bool resumed() {
    const std::size_t number = server_.request_count();
    const Called called = call(server_.endpoint());
    EXPECT_TRUE(called.ok) << called.report.text;
    if (!called.ok) return false;
    EXPECT_EQ(called.report.tls_resumed, server_.request(number).tls_resumed);
    return called.report.tls_resumed;
  }

  Scripted_Server server_{options(certificates().server)};
};

INSTANTIATE_TEST_SUITE_P(Over, HTTP_TLS_Session_Test,
                         testing::Values(TLS1_2_VERSION, TLS1_3_VERSION), [](const auto& version) {
                           return std::string(version.param == TLS1_2_VERSION ? "TLS_1_2"
                                                                              : "TLS_1_3");
                         });

TEST_P(HTTP_TLS_Session_Test, are_resumed_by_later_calls_of_other_clients) {
  EXPECT_FALSE(resumed());
  for (int i = 0; i < 5; ++i)
    EXPECT_TRUE(resumed());
}

TEST_P(HTTP_TLS_Session_Test, are_resumed_by_other_threads) {
  EXPECT_FALSE(resumed());
  bool later = false;
  std::thread([&] { later = resumed(); }).join();
  EXPECT_TRUE(later);
}

TEST_P(HTTP_TLS_Session_Test, are_resumed_after_an_exchange_that_failed) {
  server_.queue(json_answer(200, "[1]").cut_after(50).end(Answer::End::abrupt));
  Call_Options once;
  once.tune = [](JSON_RESTful_Client& client) { client.retries(0); };
  EXPECT_FALSE(call(server_.endpoint(), once).ok);
  // Whether the session was kept or not, the next call succeeds.
  resumed();
  EXPECT_TRUE(resumed());
}

TEST_P(HTTP_TLS_Session_Test, are_not_resumed_under_other_options_not_even_equal_ones) {
  EXPECT_FALSE(resumed());
  EXPECT_TRUE(resumed());
  HTTP_Options::set(HTTP_Options::get());
  EXPECT_FALSE(resumed());
  EXPECT_TRUE(resumed());
}

TEST_P(HTTP_TLS_Session_Test, do_not_outlive_the_trust_in_their_service) {
  EXPECT_FALSE(resumed());
  EXPECT_TRUE(resumed());
  set_options([](HTTP_Options& o) { o.ca_file = certificates().foreign_ca_file; });
  const Called called = call(server_.endpoint());
  EXPECT_FALSE(called.ok);
  EXPECT_EQ(called.report.error, HTTP_Error::tls);
  EXPECT_FALSE(called.report.tls_resumed);
  EXPECT_EQ(server_.request_count(), 2U);
}

TEST_P(HTTP_TLS_Session_Test, made_without_verifying_are_not_resumed_with_it) {
  Scripted_Server stranger(options(certificates().foreign));
  stranger.otherwise(json_answer(200, "{}"));
  set_options([](HTTP_Options& o) { o.verify = false; });
  EXPECT_TRUE(call(stranger.endpoint()).ok);
  EXPECT_TRUE(call(stranger.endpoint()).report.tls_resumed);
  set_options([](HTTP_Options& o) { o.verify = true; });
  const Called called = call(stranger.endpoint());
  EXPECT_FALSE(called.ok);
  EXPECT_EQ(called.report.error, HTTP_Error::tls);
  EXPECT_EQ(stranger.request_count(), 2U);
}

TEST_P(HTTP_TLS_Session_Test, belong_to_one_service) {
  Scripted_Server other(options(certificates().server));
  other.otherwise(json_answer(200, "{}"));
  EXPECT_FALSE(resumed());
  const Called called = call(other.endpoint());
  EXPECT_TRUE(called.ok);
  EXPECT_FALSE(called.report.tls_resumed);
  EXPECT_TRUE(resumed());
}

TEST_P(HTTP_TLS_Session_Test, belong_to_one_name_of_a_service) {
  Interposed_Network network;
  network.name("pool.test", {"127.0.0.1"});
  network.name("elsewhere.test", {"127.0.0.1"});
  EXPECT_TRUE(call({"pool.test", server_.port(), true}).ok);
  EXPECT_TRUE(call({"pool.test", server_.port(), true}).report.tls_resumed);
  // The certificate is not for this name, which a resumed session would hide.
  EXPECT_EQ(call({"elsewhere.test", server_.port(), true}).report.error, HTTP_Error::tls);
}

TEST_P(HTTP_TLS_Session_Test, are_bounded_and_the_oldest_goes_first) {
  constexpr int many = 1024;
  set_options([](HTTP_Options& o) { o.verify = false; });
  Interposed_Network network;
  const auto resumed_by = [&](int number) {
    const std::string name = "n" + std::to_string(number) + ".test";
    network.name(name, {"127.0.0.1"});
    const Called called = call({name, server_.port(), true});
    EXPECT_TRUE(called.ok) << called.report.text;
    return called.report.tls_resumed;
  };
  for (int i = 0; i < many; ++i)
    ASSERT_FALSE(resumed_by(i));
  EXPECT_TRUE(resumed_by(many - 1));
  EXPECT_FALSE(resumed_by(many)) << "one too many";
  EXPECT_TRUE(resumed_by(many));
  EXPECT_TRUE(resumed_by(1));
  EXPECT_FALSE(resumed_by(0)) << "the oldest";
}

TEST_P(HTTP_TLS_Session_Test, a_service_that_forgot_them_makes_new_ones) {
  EXPECT_FALSE(resumed());
  Scripted_Server restarted(options(certificates().server));
  restarted.otherwise(json_answer(200, "{}"));
  Interposed_Network network;
  network.redirect(server_.port(), restarted.port());
  const Called called = call(server_.endpoint());
  EXPECT_TRUE(called.ok) << called.report.text;
  EXPECT_FALSE(called.report.tls_resumed);
  EXPECT_EQ(restarted.request_count(), 1U);
}

// --- Ends of connections ------------------------------------------------------------------------

TEST_F(HTTP_TLS_Test, an_answer_without_length_needs_the_close_alert) {
  Scripted_Server server(tls());
  server.queue(json_answer(200, "[1]").until_end());
  EXPECT_TRUE(call(server.endpoint()).ok) << last_http_exchange().text;
  // Anybody on the path can end a TCP connection, so without the alert the response may be cut off.
  server.otherwise(json_answer(200, "[1]").until_end().end(Answer::End::abrupt));
  const Called called = call(server.endpoint());
  EXPECT_FALSE(called.ok);
  EXPECT_EQ(called.report.error, HTTP_Error::broken);
  EXPECT_EQ(called.answer, json_spirit::Value("untouched"));
}

TEST_F(HTTP_TLS_Test, an_answer_with_its_length_needs_no_close_alert) {
  Scripted_Server server(tls());
  server.queue(json_answer(200, "[1]").end(Answer::End::abrupt));
  server.queue(json_answer(200, "[2]").end(Answer::End::reset));
  EXPECT_TRUE(call(server.endpoint()).ok) << last_http_exchange().text;
  EXPECT_TRUE(call(server.endpoint()).ok) << last_http_exchange().text;
}

TEST_F(HTTP_TLS_Test, bodies_beyond_one_record_go_both_ways) {
  Scripted_Server server(tls());
  server.otherwise([](const Recorded_Request& request) { return json_answer(200, request.body); });
  const json_spirit::Value body(Object{{"a", std::string(3 << 20, 'x')}});
  Call_Options options;
  options.method = HTTP_METHOD_PUT;
  options.body = &body;
  const Called called = call(server.endpoint(), options);
  EXPECT_TRUE(called.ok) << called.report.text;
  EXPECT_TRUE(called.answer == body);
}

}  // namespace
}  // namespace zqpool::test
