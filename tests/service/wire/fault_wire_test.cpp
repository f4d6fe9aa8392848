// Scripted faults as a client sees them, and their counters.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/service/fixtures/http_client.h"
#include "tests/service/fixtures/small_lab.h"
#include "tests/support/service_process.h"

namespace zqpool::test {
namespace {

using testing::HasSubstr;

const std::string path = "/zq/r/storage/catalog/pool";

class Fault : public testing::TestWithParam<bool> {
 public:
  ~Fault() override { test::ask(*service_, "DELETE", "/zq/lab/faults"); }

 protected:
  static void SetUpTestSuite() { service_ = new Service_Process({small_lab(), {}}); }
  static void TearDownTestSuite() {
    EXPECT_EQ(service_->stop(), 0) << service_->messages();
    delete service_;
    service_ = nullptr;
  }

  static bool ssl() { return GetParam(); }
  static Http_Answer ask(const std::string& method, const std::string& target,
                         const std::string& body = "", const std::string& more = "") {
    return test::ask(*service_, method, target, body, more, ssl());
  }
  /// Scripts one fault on the list of pools, once by default.
  static void script(const std::string& rest, const std::string& times = "1") {
    const Http_Answer answer =
        ask("POST", "/zq/lab/faults",
            R"({"faults":[{"path":")" + path + R"(","times":)" + times + "," + rest + "}]}");
    EXPECT_EQ(answer.status, 201U) << answer.body;
  }
  static std::int64_t count(const std::string& which) {
    const json_spirit::Value answer = ask("GET", "/zq/lab/faults").json();
    return answer.get_obj().at("faults").get_array().at(0).get_obj().at(which).get_int64();
  }
  /// A connection on which a request was sent.
  static std::unique_ptr<Http_Client> begin(const std::string& query = "?limit=1",
                                            const std::string& more = "") {
    auto client = std::make_unique<Http_Client>(service_->endpoint(ssl()));
    client->send(request_text("GET", path + query, service_->access_key(), "", more));
    return client;
  }
  static std::string last_log_line() { return service_->access_log().back(); }

  static Service_Process* service_;
};
Service_Process* Fault::service_ = nullptr;

INSTANTIATE_TEST_SUITE_P(Over, Fault, testing::Bool(), transport_name);

/// Tests that do not depend on the transport.
class Plain_Fault : public Fault {};
INSTANTIATE_TEST_SUITE_P(Over, Plain_Fault, testing::Values(false), transport_name);

TEST_P(Plain_Fault, status_replaces_the_operation) {
  script(R"("kind":"status","status":503)", "2");
  for (int i = 0; i < 2; ++i) {
    const Http_Answer answer = ask("GET", path);
    EXPECT_EQ(answer.status, 503U);
    EXPECT_EQ(answer.body, R"({"error":{"code":503,"message":"scripted fault"}})");
    EXPECT_THAT(last_log_line(), HasSubstr("status=503"));
    EXPECT_THAT(last_log_line(), HasSubstr("fault=status"));
  }
  EXPECT_EQ(ask("GET", path).status, 200U);
  EXPECT_THAT(last_log_line(), HasSubstr("fault=-"));
  EXPECT_EQ(count("matched"), 3);
  EXPECT_EQ(count("chosen"), 2);
  EXPECT_EQ(count("fired"), 2);
}

TEST_P(Plain_Fault, status_can_have_any_body_and_keeps_the_connection) {
  script(R"("kind":"status","status":500,"body":"<html>no</html>")");
  const auto client = begin();
  const auto answer = client->read();
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->status, 500U);
  EXPECT_EQ(answer->body, "<html>no</html>");
  client->send(request_text("GET", path, service_->access_key()));
  ASSERT_TRUE(client->read());
}

TEST_P(Plain_Fault, a_refused_request_has_no_fault) {
  script(R"("kind":"status","status":503)");
  Http_Client client(service_->endpoint(ssl()));
  client.send(request_text("GET", path, "wrong"));
  const auto answer = client.read();
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->status, 403U);
  EXPECT_EQ(count("matched"), 0);
}

TEST_P(Plain_Fault, delay_waits_before_the_operation_or_after_it) {
  for (const char* when : {"false", "true"}) {
    script(R"("kind":"delay","delay_ms":150,"delay_after_commit":)" + std::string(when));
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(ask("GET", path).status, 200U);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(150));
    EXPECT_THAT(last_log_line(), HasSubstr("fault=delay"));
    EXPECT_EQ(count("fired"), 1);
    ask("DELETE", "/zq/lab/faults");
  }
}

TEST_P(Fault, reset_resets_the_connection) {
  for (const char* kind : {"reset_before_commit", "reset_after_commit"}) {
    script(R"("kind":")" + std::string(kind) + '"');
    const auto client = begin();
    std::string bytes;
    EXPECT_EQ(client->read_to_end(bytes), Ending::reset) << kind;
    EXPECT_EQ(bytes, "");
    EXPECT_EQ(count("fired"), 1);
    ask("DELETE", "/zq/lab/faults");
  }
}

TEST_P(Fault, cut_closes_the_connection_within_the_body) {
  script(R"("kind":"cut","bytes":7)");
  const auto client = begin();
  std::string bytes;
  EXPECT_EQ(client->read_to_end(bytes), ssl() ? Ending::truncated : Ending::closed);
  EXPECT_THAT(bytes, HasSubstr("Content-Length: 2"));
  EXPECT_EQ(bytes.substr(bytes.find("\r\n\r\n") + 4), R"({"rows")");
  EXPECT_EQ(count("fired"), 1);
}

TEST_P(Fault, cut_at_zero_sends_only_the_head) {
  script(R"("kind":"cut","bytes":0)");
  const auto client = begin();
  std::string bytes;
  client->read_to_end(bytes);
  EXPECT_EQ(bytes.find("\r\n\r\n") + 4, bytes.size());
  EXPECT_EQ(count("fired"), 1);
}

TEST_P(Plain_Fault, cut_beyond_the_body_has_no_effect) {
  script(R"("kind":"cut","bytes":100000)");
  EXPECT_EQ(ask("GET", path).status, 200U);
  EXPECT_THAT(last_log_line(), HasSubstr("fault=-"));
  EXPECT_EQ(count("chosen"), 1);
  EXPECT_EQ(count("fired"), 0);
}

TEST_P(Fault, drip_sends_a_few_bytes_at_a_time) {
  script(R"("kind":"drip","bytes":100,"interval_ms":10)");
  const auto start = std::chrono::steady_clock::now();
  const Http_Answer answer = ask("GET", path);
  EXPECT_EQ(answer.status, 200U);
  const std::size_t size = answer.head.size() + 2 + answer.body.size();
  EXPECT_GE(std::chrono::steady_clock::now() - start,
            std::chrono::milliseconds(10) * ((size - 1) / 100));
  EXPECT_THAT(last_log_line(), HasSubstr("bytes=" + std::to_string(size)));
  EXPECT_EQ(count("fired"), 1);
}

TEST_P(Fault, drip_keeps_the_connection_and_survives_a_disconnect) {
  script(R"("kind":"drip","bytes":200,"interval_ms":1)", "2");
  {
    const auto client = begin();
    ASSERT_TRUE(client->read());
    client->send(request_text("GET", path, service_->access_key()));
    ASSERT_TRUE(client->read());
  }
  ask("DELETE", "/zq/lab/faults");
  script(R"("kind":"drip","bytes":1,"interval_ms":1)", "1");
  { const auto client = begin(); }
  EXPECT_EQ(ask("GET", "/zq/lab/health").status, 200U);
}

TEST_P(Plain_Fault, garbage_replaces_the_body) {
  script(R"("kind":"garbage","bytes":300,"seed":5)", "2");
  const Http_Answer first = ask("GET", path);
  EXPECT_EQ(first.status, 200U);
  EXPECT_EQ(first.body.size(), 300U);
  json_spirit::Value value;
  EXPECT_FALSE(json_spirit::read(first.body, value));
  EXPECT_EQ(ask("GET", path).body, first.body) << "of the same seed";
  EXPECT_EQ(count("fired"), 2);
}

TEST_P(Fault, garbage_replaces_the_whole_response) {
  script(R"("kind":"garbage","bytes":300,"whole_answer":true)");
  const auto client = begin();
  std::string bytes;
  EXPECT_EQ(client->read_to_end(bytes), Ending::closed);
  EXPECT_EQ(bytes.size(), 300U);
  EXPECT_NE(bytes.substr(0, 5), "HTTP/");
  EXPECT_EQ(count("fired"), 1);
}

TEST_P(Fault, huge_is_one_json_string_of_the_given_size) {
  for (const std::size_t bytes : {2U, 65535U, 65536U, 65537U, 3000000U}) {
    script(R"("kind":"huge","bytes":)" + std::to_string(bytes));
    const Http_Answer answer = ask("GET", path);
    EXPECT_EQ(answer.body.size(), bytes);
    EXPECT_EQ(answer.json().get_str().size(), bytes - 2);
    EXPECT_EQ(count("fired"), 1);
    ask("DELETE", "/zq/lab/faults");
  }
}

TEST_P(Fault, a_client_may_disconnect_within_a_huge_response) {
  script(R"("kind":"huge","bytes":1000000000000)");
  const auto client = begin();
  std::string bytes;
  while (bytes.size() < 100)
    client->read_to_end(bytes, std::chrono::milliseconds(0));
  EXPECT_THAT(bytes, HasSubstr("Content-Length: 1000000000000\r\n"));
  EXPECT_EQ(count("fired"), 1);
}

TEST_P(Plain_Fault, wrong_type_changes_the_body_or_a_member) {
  script(R"("kind":"wrong_type","member":"rows","type":"string")");
  EXPECT_EQ(ask("GET", path).body, R"({"rows":"wrong type"})");
  EXPECT_EQ(count("fired"), 1);
  ask("DELETE", "/zq/lab/faults");
  script(R"("kind":"wrong_type","type":"array")");
  EXPECT_EQ(ask("GET", path).body, R"(["wrong type"])");
  ask("DELETE", "/zq/lab/faults");
  script(R"("kind":"wrong_type","member":"none")");
  EXPECT_THAT(ask("GET", path).body, HasSubstr("rows"));
  EXPECT_EQ(count("fired"), 0) << "there is no such member";
}

TEST_P(Plain_Fault, a_head_request_has_no_body_to_fault) {
  script(R"("kind":"huge","bytes":5000)", "3");
  const Http_Answer answer = ask("HEAD", path);
  EXPECT_EQ(answer.status, 200U);
  EXPECT_EQ(count("fired"), 0);
}

TEST_P(Plain_Fault, an_invalid_script_is_refused_as_a_whole) {
  const Http_Answer answer =
      ask("POST", "/zq/lab/faults",
          R"({"faults":[{"path":"/a","kind":"cut","bytes":1},{"path":"/a","kind":"x"}]})");
  EXPECT_EQ(answer.status, 422U);
  EXPECT_THAT(answer.body, HasSubstr("faults[1].kind"));
  EXPECT_EQ(ask("GET", "/zq/lab/faults").body, R"({"faults":[]})");
}

TEST_P(Plain_Fault, the_lab_paths_are_never_faulted) {
  const Http_Answer made =
      ask("POST", "/zq/lab/faults", R"({"faults":[{"path":"/*","kind":"status","status":500}]})");
  EXPECT_EQ(made.status, 201U);
  EXPECT_EQ(ask("GET", "/zq/lab/health").status, 200U);
  EXPECT_EQ(ask("GET", path).status, 500U);
  EXPECT_EQ(ask("DELETE", "/zq/lab/faults").body, R"({"removed":1})");
  EXPECT_EQ(ask("GET", path).status, 200U);
}

// ---- scenarios over the wire

TEST_P(Plain_Fault, a_scenario_is_loaded_merged_and_dumped) {
  const std::string other =
      R"({"pools":[{"uuid":")" + pool_uuid(7) + R"(","name":"seven","type":"file"}]})";
  const std::string loaded = ask("POST", "/zq/lab/scenario?mode=merge", other).body;
  EXPECT_THAT(loaded, HasSubstr(R"("devices":0)"));
  EXPECT_THAT(loaded, HasSubstr(R"("pools":1)"));
  EXPECT_EQ(ask("GET", path + "?limit=0").body, R"({"rows":[],"total":4})");
  const std::string dump = ask("GET", "/zq/lab/scenario").body;
  EXPECT_EQ(ask("POST", "/zq/lab/scenario", other).status, 200U);
  EXPECT_EQ(ask("GET", path + "?limit=0").body, R"({"rows":[],"total":1})");
  EXPECT_EQ(ask("POST", "/zq/lab/scenario?mode=replace", dump).status, 200U);
  EXPECT_EQ(ask("GET", "/zq/lab/scenario").body, dump);
  EXPECT_EQ(ask("POST", "/zq/lab/scenario?mode=add", other).status, 400U);

  const Http_Answer bad = ask("POST", "/zq/lab/scenario", R"({"pools":[{"name":"x"}]})");
  EXPECT_EQ(bad.status, 400U);
  EXPECT_THAT(bad.body, HasSubstr("pools[0].uuid: is missing"));
  EXPECT_EQ(ask("GET", "/zq/lab/scenario").body, dump) << "nothing of it is kept";
  EXPECT_EQ(ask("POST", "/zq/lab/scenario", small_lab()).status, 200U);
}

}  // namespace
}  // namespace zqpool::test
