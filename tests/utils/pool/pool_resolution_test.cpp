#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/host/host_id.h"
#include "platform/host/host_manager.h"
#include "platform/json/json_dump.h"
#include "tests/support/any_answer.h"
#include "tests/support/guards.h"
#include "tests/support/wire_row.h"
#include "utils/pool/storage_pool_helpers.h"
#include "utils/pool/utils.h"

namespace zqpool::test {
namespace {

const std::string pool_path = "/zq/r/storages/pool";
const std::string description =
    R"({"name":"n","storages":[{"url":"dedup://s","pool_uuid":"real"}]})";
const std::string resolved = R"({"name":"n","url":"dedup://s","uuid":"real"})";
// Of which only "d2" for "h2" has a path: file storages attach to hosts one by one.
const std::string two_storages =
    R"({"name":"n","storages":[
      {"uuid":"d1","url":"file:///a","pool_uuid":"one","extended_attrs":{"attached_hosts":{"d2":"/x"}}},
      {"uuid":"d2","url":"file:///b","pool_uuid":"real","extended_attrs":{"attached_hosts":{"h2":"/y"}}}]})";
const std::string chosen_storage = R"({"name":"n","url":"file:///y","uuid":"real"})";
const std::string untouched = R"({"name":"","url":"","uuid":"before"})";

/// This host's identity and key for the length of a test.
class Host {
 public:
  Host() {
    Host_ID::instance()->set("own-host");
    Host_Manager::instance()->access_key("host key");
  }
  ~Host() {
    Host_ID::instance()->set("");
    Host_Manager::instance()->access_key("");
  }
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;
};

Outcome outcome(bool result, const Pool_Info& info) {
  return {result, {{"uuid", info.uuid}, {"name", info.name}, {"url", info.url}}};
}

struct Question {
  const char* pool_uuid = "p1";
  const char* device_uuid = nullptr;
  bool to_restore = false;
  const char* host_uuid = nullptr;
  int timeout = 0;
  int network_id = -1;
  bool is_agent = false;
  const char* server_uuid = nullptr;
  const char* account_uuid = nullptr;
};

const Question chosen = [] {
  Question ask;
  ask.device_uuid = "d2";
  ask.host_uuid = "h2";
  return ask;
}();

using Call = std::function<Outcome(const Endpoint&)>;

Call on_client(const Question& ask) {
  return [ask](const Endpoint& to) {
    const Host host;
    JSON_RESTful_Client client(to.host.c_str(), to.port, to.ssl, true);
    Pool_Info info;
    info.uuid = "before";
    const bool result =
        get_pool_info(client, ask.pool_uuid, ask.device_uuid, info, ask.to_restore, ask.host_uuid,
                      ask.timeout, ask.network_id, ask.is_agent, ask.server_uuid, ask.account_uuid);
    return outcome(result, info);
  };
}

Call to_host(const Question& ask, bool is_on_backupd) {
  return [=](const Endpoint& to) {
    const Host host;
    Pool_Info info;
    info.uuid = "before";
    const bool result = get_pool_info(
        to.host.c_str(), to.port, to.ssl, ask.pool_uuid, ask.device_uuid, info, ask.to_restore,
        ask.timeout, ask.host_uuid, ask.is_agent, is_on_backupd, ask.server_uuid, ask.account_uuid);
    return outcome(result, info);
  };
}

/// The upstream service keeps its connection, so its answers end it, and the row with it.
Call upstream(const Question& ask, const char* access_key = "key") {
  return [=](const Endpoint& to) {
    const Host host;
    Upstream_JSON_RESTful_Client::configure(to.host.c_str(), to.port, to.ssl, access_key);
    Pool_Info info;
    info.uuid = "before";
    const bool result =
        get_pool_info(ask.pool_uuid, ask.device_uuid, info, ask.to_restore, ask.timeout,
                      ask.host_uuid, ask.is_agent, ask.server_uuid, ask.account_uuid);
    return outcome(result, info);
  };
}

Call url_by_pool_uuid(const char* pool_uuid, bool to_restore, const char* device_uuid = nullptr,
                      const char* host_uuid = nullptr) {
  return [=](const Endpoint& to) {
    const Host host;
    Upstream_JSON_RESTful_Client::configure(to.host.c_str(), to.port, to.ssl, "key");
    std::string url = "before";
    const bool result = get_url_by_pool_uuid(pool_uuid, device_uuid, url, to_restore, host_uuid);
    return Outcome{result, {{"url", url}}};
  };
}

Call replica(const char* uuid, bool is_on_backupd, int timeout) {
  return [=](const Endpoint& to) {
    const Host host;
    Pool_Info info;
    info.uuid = "before";
    const bool result = get_replicate_pool_info(uuid, to.host.c_str(), to.port, to.ssl,
                                                is_on_backupd, info, timeout);
    return outcome(result, info);
  };
}

Outcome space(const Endpoint& to) {
  Object info{{"old", true}};
  const bool result = get_storaged_space_info(to.host, to.port, to.ssl, "key", info);
  return {result, {{"info", info}}};
}

Expected_Line notice(int number) {
  return retry_notice(number, "utils/pool/storage_pool_helpers.cpp");
}
/// An answer that ends the connection.
Answer last(Answer answer) {
  return answer.header("Connection", "close").end(Answer::End::close);
}
Answer service_error(const std::string& code) {
  return json_answer(500, R"({"error":{"code":)" + code + R"(,"message":"m"}})");
}

std::vector<Wire_Row> from_client_rows() {
  const Expected_Line failed = client_error("GET", pool_path);
  const std::string target = pool_path + "?uuid=p1";
  Question unlimited;
  unlimited.timeout = -1;
  Question full;
  full.pool_uuid = "p/1";
  full.to_restore = true;
  full.network_id = 0;
  full.is_agent = true;
  full.server_uuid = "s";
  full.account_uuid = "";
  const auto ends_at_once = [&](const std::string& name, const Answer& answer) {
    return Row(name, on_client(unlimited))
        .sends("GET", target, "", "")
        .gets(answer)
        .logs(failed)
        .gives(false, untouched);
  };
  const auto is_repeated = [&](const std::string& name, const Answer& answer) {
    return Row(name, on_client(unlimited))
        .sends("GET", target, "", "")
        .again(1)
        .gets(answer)
        .gets(ok(description))
        .logs(failed)
        .logs(notice(1))
        .pauses(1)
        .gives(true, resolved);
  };
  return {
      Row("pool_uuid_alone_is_asked_for", on_client({}))
          .sends("GET", target, "", "")
          .gets(ok(description))
          .gives(true, resolved),
      Row("every_parameter_in_order", on_client(full))
          .sends("GET",
                 pool_path + "?uuid=p%2f1&agent_uuid=own-host&network_id=0&restore_setting=1"
                             "&server_uuid=s&account_uuid=",
                 "", "")
          .gets(ok("{}"))
          .gives(true, R"({"name":"","url":"","uuid":"p/1"})"),
      Row("empty_pool_uuid_is_not_asked_for", on_client([] {
            Question ask;
            ask.pool_uuid = "";
            return ask;
          }()))
          .logs({"LM_EMERGENCY",
                 "Unexpected error in utils/pool/storage_pool_helpers.cpp:{number}, pool_uuid is "
                 "NULL or \"\":\n{stack}"})
          .gives(false, untouched),
      Row("null_pool_uuid_is_not_asked_for", on_client([] {
            Question ask;
            ask.pool_uuid = nullptr;
            return ask;
          }()))
          .logs({"LM_EMERGENCY",
                 "Unexpected error in utils/pool/storage_pool_helpers.cpp:{number}, pool_uuid is "
                 "NULL or \"\":\n{stack}"})
          .gives(false, untouched),
      Row("answer_that_is_no_object", on_client(unlimited))
          .sends("GET", target, "", "")
          .gets(ok("[]"))
          .logs({"LM_EMERGENCY",
                 "Unexpected error in utils/pool/storage_pool_helpers.cpp:{number}, result is not "
                 "object!\n"})
          .gives(false, untouched),
      Row("description_that_does_not_do_leaves_the_asked_uuid", on_client(unlimited))
          .sends("GET", target, "", "")
          .gets(ok(R"({"storages":[]})"))
          .logs(error("'storages' is empty.\n"))
          .gives(false, R"({"name":"","url":"","uuid":"p1"})"),
      is_repeated("positive_code_is_repeated", service_error("1")),
      is_repeated("positive_code_beyond_32_bits_is_repeated", service_error("4294967296")),
      is_repeated("positive_code_beyond_63_bits_is_repeated",
                  service_error("18446744073709551615")),
      is_repeated("failure_without_an_error_object_is_repeated", http_answer(500, "<html>")),
      is_repeated("error_that_is_no_object_is_repeated", json_answer(500, R"({"error":"no"})")),
      is_repeated("answer_that_is_no_object_is_repeated_when_the_call_failed",
                  json_answer(500, "[]")),
      ends_at_once("code_0_ends_it", service_error("0")),
      ends_at_once("negative_code_ends_it", service_error("-1")),
      ends_at_once("negative_code_beyond_32_bits_ends_it", service_error("-4294967297")),
      ends_at_once("absent_code_ends_it", json_answer(500, R"({"error":{}})")),
      ends_at_once("code_that_is_no_integer_ends_it", service_error("\"1\"")),
      Row("three_positive_codes_and_then_the_pool", on_client(unlimited))
          .sends("GET", target, "", "")
          .again(3)
          .gets(service_error("7"))
          .gets(service_error("7"))
          .gets(service_error("7"))
          .gets(ok(description))
          .logs(failed)
          .logs(notice(1))
          .logs(failed)
          .logs(notice(2))
          .logs(failed)
          .logs(notice(3))
          .pauses(3)
          .gives(true, resolved),
      // An answer without a code leaves what the one before it said.
      Row("code_0_after_a_positive_code_ends_it", on_client(unlimited))
          .sends("GET", target, "", "")
          .again(2)
          .gets(service_error("7"))
          .gets(http_answer(500, ""))
          .gets(service_error("0"))
          .logs(failed)
          .logs(notice(1))
          .logs(failed)
          .logs(notice(2))
          .logs(failed)
          .pauses(2)
          .gives(false, untouched),
      Row("timeout_0_ends_at_the_first_failure", on_client({}))
          .sends("GET", target, "", "")
          .gets(service_error("1"))
          .logs(failed)
          .gives(false, untouched),
      // The last attempt has no body, so that of the failed one counts.
      Row("last_attempt_without_a_body", on_client(unlimited))
          .sends("GET", target, "", "")
          .again(1)
          .gets(service_error("7"))
          .gets(http_answer(204, ""))
          .logs(failed)
          .logs(notice(1))
          .pauses(1)
          .gives(true, R"({"name":"","url":"","uuid":"p1"})"),
      Row("device_and_host_are_told_apart", on_client(chosen))
          .sends("GET", target, "", "")
          .gets(ok(two_storages))
          .gives(true, chosen_storage),
  };
}

std::vector<Wire_Row> from_host_rows() {
  const std::string target = pool_path + "?uuid=p1";
  Question unlimited;
  unlimited.timeout = -1;
  return {
      Row("without_a_key", to_host({}, false))
          .sends("GET", target, "", "")
          .gets(ok(description))
          .gives(true, resolved),
      Row("of_a_backup_server_with_the_hosts_key", to_host({}, true))
          .sends("GET", target, "", "host key")
          .gets(ok(description))
          .gives(true, resolved),
      Row("is_not_repeated_where_the_service_was_reached", to_host(unlimited, false))
          .sends("GET", target, "", "")
          .gets(service_error("1"))
          .logs(client_error("GET", pool_path))
          .gives(false, untouched),
      Row("timeout_0_leaves_the_client_its_own_repetitions", to_host({}, false))
          .sends("GET", target, "", "")
          .again(1)
          .gets(http_answer(503, ""))
          .gets(ok(description))
          .pauses(1)
          .gives(true, resolved),
      Row("device_and_host_are_told_apart", to_host(chosen, false))
          .sends("GET", target, "", "")
          .gets(ok(two_storages))
          .gives(true, chosen_storage),
  };
}

std::vector<Wire_Row> from_upstream_rows() {
  const std::string target = pool_path + "?uuid=p1";
  Question full;
  full.to_restore = true;
  full.is_agent = true;
  full.server_uuid = "s";
  full.account_uuid = "a";
  full.timeout = -1;
  const auto row = [](const std::string& name, const Call& call) {
    return Row(name, call).keeps_connection();
  };
  return {
      row("with_its_own_key", upstream({}))
          .sends("GET", target)
          .gets(last(ok(description)))
          .gives(true, resolved),
      row("without_a_key", upstream({}, nullptr))
          .sends("GET", target, "", "")
          .gets(last(ok(description)))
          .gives(true, resolved),
      row("every_parameter_and_again_within_the_timeout", upstream(full))
          .sends("GET", target + "&agent_uuid=own-host&restore_setting=1&server_uuid=s"
                                 "&account_uuid=a")
          .again(1)
          .gets(service_error("1"))
          .gets(last(ok(description)))
          .logs(client_error("GET", pool_path))
          .logs(notice(1))
          .pauses(1)
          .gives(true, resolved),
      row("device_and_host_are_told_apart", upstream(chosen))
          .sends("GET", target)
          .gets(last(ok(two_storages)))
          .gives(true, chosen_storage),
      row("timeout_0_ends_at_the_first_failure", upstream({}))
          .sends("GET", target)
          .gets(last(service_error("1")))
          .logs(client_error("GET", pool_path))
          .gives(false, untouched),
  };
}

std::vector<Wire_Row> url_rows() {
  const auto row = [](const std::string& name, bool to_restore) {
    return Row(name, url_by_pool_uuid("p1", to_restore))
        .keeps_connection()
        .sends("GET", pool_path + "?uuid=p1&agent_uuid=own-host" +
                          (to_restore ? "&restore_setting=1" : ""));
  };
  return {
      row("asks_as_this_host", false)
          .gets(last(ok(description)))
          .gives(true, R"({"url":"dedup://s"})"),
      Row("device_and_host_are_told_apart", url_by_pool_uuid("p1", false, "d2", "h2"))
          .keeps_connection()
          .sends("GET", pool_path + "?uuid=p1&agent_uuid=own-host")
          .gets(last(ok(two_storages)))
          .gives(true, R"({"url":"file:///y"})"),
      row("for_a_restore", true).gets(last(ok("{}"))).gives(true, R"({"url":""})"),
      row("once_only", false)
          .gets(last(service_error("1")))
          .logs(client_error("GET", pool_path))
          .gives(false, R"({"url":"before"})"),
      row("description_that_does_not_do", false)
          .gets(last(ok(R"({"storages":[]})")))
          .logs(error("'storages' is empty.\n"))
          .gives(false, R"({"url":"before"})"),
  };
}

std::vector<Wire_Row> space_rows() {
  const auto answered = [](const std::string& name, const Answer& answer) {
    return Row(name, space)
        .keeps_connection()
        .sends("GET", "/zq/r/file_uri/statfs?uri=%2fzq%2fdata")
        .gets(answer);
  };
  const auto fails = [&](const std::string& name, const Answer& answer, const std::string& said) {
    return answered(name, answer)
        .logs(error("Failed to get storage server space info, " + said + ".\n"))
        .gives(false, R"({"info":{"old":true}})");
  };
  return {
      answered("object", ok(R"({"total":9})")).gives(true, R"({"info":{"total":9}})"),
      fails("status_201", json_answer(201, R"({"total":9})"), R"(errno=201, {"total":9})"),
      fails("no_body", http_answer(204, ""), "errno=204, null"),
      fails("array", ok("[1]"), "errno=200, [1]"),
      fails("failure_with_an_object", json_answer(500, R"({"e":1})"), R"(errno=500, {"e":1})"),
      fails("no_json", ok("{"), "errno=200, null"),
      fails("no_answer", close_after_request(), "errno=0, null"),
  };
}

std::vector<Wire_Row> replica_rows() {
  const auto asks = [](const std::string& name, const Call& call, const std::string& params,
                       const std::string& access_key = "") {
    return Row(name, call)
        .sends(
            "POST", "/zq/jr",
            R"({"id":"{uuid}","jsonrpc":"2.0","method":"pool.replicate.endpoint.query","params":)" +
                params + "}",
            access_key);
  };
  const std::string params = R"({"uuid":"r1"})";
  return {
      asks("result_is_parsed", replica("r1", false, 0), params)
          .gets(ok(R"({"id":"x","jsonrpc":"2.0","result":)" + description + "}"))
          .gives(true, resolved),
      asks("uuid_is_sent_as_it_is", replica("a \"b\"", false, 0), R"({"uuid":"a \"b\""})")
          .gets(ok(R"({"result":{"name":"n"}})"))
          .gives(true, R"({"name":"n","url":"","uuid":"before"})"),
      asks("empty_uuid_is_sent", replica("", false, 0), R"({"uuid":""})")
          .gets(ok(R"({"result":{"name":"n"}})"))
          .gives(true, R"({"name":"n","url":"","uuid":"before"})"),
      asks("result_without_storages", replica("r1", true, 5), params, "host key")
          .gets(ok(R"({"result":{"name":"n"}})"))
          .gives(true, R"({"name":"n","url":"","uuid":"before"})"),
      asks("error_is_shown_whole", replica("r1", false, 0), params)
          .gets(ok(R"({"error":{"code":1}})"))
          .logs(error("Failed to extract replicate pool info response({\"error\":{\"code\":1}})\n"))
          .gives(false, untouched),
      asks("answer_that_is_no_object", replica("r1", false, 0), params)
          .gets(ok("\"text\""))
          .logs({"LM_EMERGENCY",
                 "Unexpected error in utils/pool/storage_pool_helpers.cpp:{number}, rsp_body is "
                 "not object!\n"})
          .gives(false, untouched),
      asks("failed_post", replica("r1", false, 0), params)
          .gets(http_answer(503, ""))
          .logs(client_error("POST", "/zq/jr"))
          .logs(error("Failed to post replicate pool info request.\n"))
          .gives(false, untouched),
      asks("result_that_is_no_object", replica("r1", false, 0), params)
          .gets(ok(R"({"result":[]})"))
          .logs(error("Failed to extract replicate pool info response({\"result\":[]})\n"))
          .gives(false, untouched),
  };
}

TEST_P(Wire_Table, row_holds) {
  play();
}
INSTANTIATE_TEST_SUITE_P(get_pool_info_from_client, Wire_Table,
                         testing::ValuesIn(plays(from_client_rows())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(get_pool_info_from_host, Wire_Table,
                         testing::ValuesIn(plays(from_host_rows())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(get_pool_info_from_upstream, Wire_Table,
                         testing::ValuesIn(plays(from_upstream_rows())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(get_url_by_pool_uuid, Wire_Table, testing::ValuesIn(plays(url_rows())),
                         Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(get_replicate_pool_info, Wire_Table,
                         testing::ValuesIn(plays(replica_rows())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(get_storaged_space_info, Wire_Table,
                         testing::ValuesIn(plays(space_rows())), Wire_Table::name);

// --- Limits of time ---------------------------------------------------------------------------

TEST(Resolution, timeout_0_leaves_the_client_its_own_repetitions) {
  const Log_Capture log;
  const Sleep_Recorder sleeps;
  const Refused_Port nobody;
  const Endpoint to{"127.0.0.1", nobody.port(), false};
  replica("r1", false, 0)(to);
  EXPECT_EQ(sleeps.pauses().size(), 2U);
  to_host({}, false)(to);
  EXPECT_EQ(sleeps.pauses().size(), 4U);
}

TEST(Resolution, timeout_ends_it_without_another_message) {
  Log_Capture log;
  const Sleep_Recorder sleeps;
  Scripted_Server server;
  server.otherwise(service_error("7"));
  Question limited;
  limited.timeout = 1;
  EXPECT_FALSE(on_client(limited)({server.host(), server.port(), false}).result);
  EXPECT_EQ(server.request_count(), 2U);
  const std::vector<Log_Line> lines = log.take();
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_EQ(lines[1].priority, notice(1).priority);
  EXPECT_TRUE(line_matches(notice(1).text, lines[1].text, 0)) << lines[1].text;
}

// --- Upstream ---------------------------------------------------------------------------------

TEST(Upstream, is_asked_over_one_connection) {
  const Host host;
  const Log_Capture log;
  Scripted_Server server;
  server.otherwise(ok(description));
  Upstream_JSON_RESTful_Client::configure(server.host().c_str(), server.port(), false, "key");
  for (int i = 0; i < 3; ++i) {
    Pool_Info info;
    EXPECT_TRUE(get_pool_info("p1", nullptr, info, false, 0, nullptr, false, nullptr, nullptr));
    EXPECT_EQ(info.url, "dedup://s");
  }
  EXPECT_EQ(server.request_count(), 3U);
  EXPECT_EQ(server.connection_count(), 1U);
  EXPECT_EQ(log.lines().size(), 0U);
}

// --- Any answer -------------------------------------------------------------------------------

TEST(Resolution_Any_Answer, a_record_is_resolved_or_the_call_fails) {
  const std::string good =
      R"({"name":"n","multidevice":true,"storages":[
        {"url":"dedup://a","pool_uuid":"p","extended_attrs":{"role":"master","node_id":1}},
        {"url":"dedup://b","pool_uuid":"p","extended_attrs":{"role":"slave","node_id":2}}]})";
  for_any_answer(good, [](const Endpoint& to, const Any_Answer& answer) {
    bool result = false;
    try {
      result = on_client({})(to).result;
    } catch (const std::exception&) {
      // The documented exception: a storage of a multi-device pool that is not an object.
      EXPECT_EQ(answer.kind, Any_Answer::Kind::json);
      EXPECT_NE(answer.name.find("storages"), std::string::npos) << answer.name;
      return;
    }
    EXPECT_TRUE(answer.exchange_succeeds() || !result);
    EXPECT_TRUE(answer.kind != Any_Answer::Kind::good || result);
  });
}

// --- Space ------------------------------------------------------------------------------------

TEST(Space, without_a_server_there_is_no_session) {
  const Refused_Port nobody;
  const Sleep_Recorder sleeps;
  Log_Capture log;
  EXPECT_FALSE(space({"127.0.0.1", nobody.port(), false}).result);
  EXPECT_THAT(log.texts("LM_ERROR"), testing::ElementsAre("Failed to create json http session\n"));
  EXPECT_EQ(sleeps.pauses().size(), 2U);
}

TEST(Space, only_the_low_16_bits_of_the_port_count) {
  Scripted_Server server;
  server.otherwise(ok("{}"));
  Object info;
  EXPECT_TRUE(get_storaged_space_info(server.host(), 0x10000U + server.port(), false, "", info));
  EXPECT_EQ(server.request(0).header_count("X-Access-Key"), 0U);
}

}  // namespace
}  // namespace zqpool::test
