#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/host/host_id.h"
#include "tests/support/guards.h"
#include "tests/utils/pool/manager_test.h"

namespace zqpool::test {
namespace {

using json_spirit::Value;

const std::string pool_path = "/zq/r/pool";
const std::string lun_export = "/zq/r/scsipool/lun/export";
const std::string snapshot_export = "/zq/r/scsipool/snapshot/export";

Call get_scsi_pool_info() {
  return on_pool([](SCSI_Target_Manager& pool) {
    pool.scsi_type_ = "old";
    Object info = old_object();
    const bool ok = pool.get_scsi_pool_info(info);
    return Outcome{ok, {{"info", info}, {"type", pool.scsi_type_}}};
  });
}

/// Two calls; the second one's result.
Call get_scsi_type_twice() {
  return on_pool([](SCSI_Target_Manager& pool) {
    pool.get_scsi_type();
    const bool ok = pool.get_scsi_type();
    return Outcome{ok, {{"type", pool.scsi_type_}}};
  });
}

Call get_scsi_pool_target_size() {
  return on_pool([](SCSI_Target_Manager& pool) {
    std::string target = "old";
    ACE_UINT64 size = 7;
    const bool ok = pool.get_scsi_pool_target_size(target, size);
    return Outcome{ok, {{"target", target}, {"size", size}}};
  });
}

/// get_acls() on the body {"acls":["old"],"b":1} of a pool whose known type is `known`.
Call get_acls(Initiators initiators, const char* type, const std::string& known = "") {
  return on_pool(
      [=](SCSI_Target_Manager& pool) {
        pool.scsi_type_ = known;
        Object params{{"b", 1}, {"acls", old_array()}};
        const bool ok = pool.get_acls(params, type);
        return Outcome{ok, {{"params", params}, {"type", pool.scsi_type_}}};
      },
      initiators);
}

Call add_lun_acls(Initiators initiators, const char* type) {
  return on_pool(
      [=](SCSI_Target_Manager& pool) {
        return Outcome{pool.add_lun_acls("l1", type), {}};
      },
      initiators);
}

Call add_snapshot_acls(Initiators initiators, int lun) {
  return on_pool(
      [=](SCSI_Target_Manager& pool) {
        return Outcome{pool.add_snapshot_acls("s1", lun), {}};
      },
      initiators);
}

const Expected_Line no_pool = scsi_error("Failed to get scsi pool 'p1' info.\n");
const Expected_Line no_type = scsi_error("Failed to get scsi type for pool p1.\n");
const Expected_Line no_initiator = scsi_error("Failed to get initiator name.\n");

std::vector<Wire_Row> pool_info_rows() {
  const std::string untouched = R"({"info":{"old":true},"type":"old"})";
  const auto answered = [](const std::string& name, Answer answer) {
    return Row(name, get_scsi_pool_info()).sends("GET", type_target).gets(std::move(answer));
  };
  const auto invalid = [&](const std::string& name, const std::string& answer) {
    return answered(name, ok(answer))
        .logs(scsi_error("Invalid value " + answer + " of scsi pool 'p1'.\n"))
        .gives(false, untouched);
  };
  const auto no_array = [&](const std::string& name, Answer answer, const std::string& shown) {
    return answered(name, std::move(answer))
        .logs(scsi_error("Failed to get scsi pool 'p1' info, resp=" + shown + ".\n"))
        .gives(false, untouched);
  };
  return {
      answered("only_object_is_the_pool", ok(R"([{"type":"FC","total_size":5}])"))
          .gives(true, R"({"info":{"total_size":5,"type":"FC"},"type":"FC"})"),
      answered("missing_type_leaves_the_known_one", ok("[{}]"))
          .gives(true, R"({"info":{},"type":"old"})"),
      answered("type_that_is_no_string_leaves_the_known_one", ok(R"([{"type":5}])"))
          .gives(true, R"({"info":{"type":5},"type":"old"})"),
      invalid("two_pools", R"([{"type":"FC"},{"type":"FC"}])"),
      invalid("no_pool", "[]"),
      invalid("string_in_the_array", R"(["p1"])"),
      no_array("single_object", ok(R"({"type":"FC"})"), R"({"type":"FC"})"),
      no_array("no_body", http_answer(204, ""), "null"),
      answered("refused", refusal())
          .logs(client_error("GET", pool_path))
          .logs(no_pool)
          .gives(false, untouched),
      answered("failure_is_not_repeated_by_the_client", http_answer(503, ""))
          .logs(client_error("GET", pool_path))
          .logs(no_pool)
          .gives(false, untouched),
      answered("failed_call_with_a_good_body", json_answer(500, R"([{"type":"FC"}])"))
          .logs(client_error("GET", pool_path))
          .logs(no_pool)
          .gives(false, untouched),
      Row("identifier_goes_out_as_it_stands", on_pool([](SCSI_Target_Manager& pool) {
            pool.pool_uuid_ = "a/b%2f&c=" + std::string(200, 'x');
            Object info;
            return Outcome{pool.get_scsi_pool_info(info), {}};
          }))
          .sends("GET", pool_path + "?type=scsi&pool_id=a/b%2f&c=" + std::string(200, 'x'))
          .gets(ok("[{}]"))
          .gives(true, "{}"),
      Row("empty_access_key_sends_no_header", on_pool([](SCSI_Target_Manager& pool) {
            pool.access_key_.clear();
            Object info;
            return Outcome{pool.get_scsi_pool_info(info), {}};
          }))
          .sends("GET", type_target, "", "")
          .gets(ok("[{}]"))
          .gives(true, "{}"),
  };
}

std::vector<Wire_Row> type_rows() {
  return {
      Row("known_type_is_not_asked_for_again", get_scsi_type_twice())
          .sends("GET", type_target)
          .gets(ok(R"([{"type":"iSCSI"}])"))
          .gives(true, R"({"type":"iSCSI"})"),
      Row("pool_that_does_not_say_is_asked_each_time", get_scsi_type_twice())
          .sends("GET", type_target)
          .again(1)
          .gets(ok("[{}]"))
          .gets(ok(R"([{"type":""}])"))
          .gives(true, R"({"type":""})"),
      Row("failure_is_not_kept", get_scsi_type_twice())
          .sends("GET", type_target)
          .again(1)
          .gets(refusal())
          .gets(ok(R"([{"type":"FC"}])"))
          .logs(client_error("GET", pool_path))
          .logs(no_pool)
          .gives(true, R"({"type":"FC"})"),
      Row("failure", get_scsi_type_twice())
          .sends("GET", type_target)
          .again(1)
          .gets(ok("{}"))
          .gets(ok("{}"))
          .logs(scsi_error("Failed to get scsi pool 'p1' info, resp={}.\n"))
          .logs(scsi_error("Failed to get scsi pool 'p1' info, resp={}.\n"))
          .gives(false, R"({"type":""})"),
  };
}

std::vector<Wire_Row> target_size_rows() {
  const std::string untouched = R"({"size":7,"target":"old"})";
  const auto answered = [](const std::string& name, const std::string& answer) {
    return Row(name, get_scsi_pool_target_size()).sends("GET", type_target).gets(ok(answer));
  };
  const Expected_Line no_size = scsi_error("Invalid value from SCSI pool: {any}total_size{any}\n");
  return {
      answered("both", R"([{"target":"t1","total_size":18446744073709551615}])")
          .gives(true, R"({"size":18446744073709551615,"target":"t1"})"),
      answered("missing_size_leaves_the_target_written", R"([{"target":"t1"}])")
          .logs(no_size)
          .gives(false, R"({"size":7,"target":"t1"})"),
      answered("negative_size", R"([{"target":"t1","total_size":-1}])")
          .logs(no_size)
          .gives(false, R"({"size":7,"target":"t1"})"),
      answered("missing_target", R"([{"total_size":5}])")
          .logs(scsi_error("Invalid value from SCSI pool: {any}target{any}\n"))
          .gives(false, untouched),
      answered("no_pool", "[]")
          .logs(scsi_error("Invalid value [] of scsi pool 'p1'.\n"))
          .logs(scsi_error("Failed to get SCSI pool info of p1 \n"))
          .gives(false, untouched),
  };
}

std::vector<Wire_Row> acls_rows() {
  const auto params = [](const std::string& acls, const std::string& type = "") {
    return R"({"params":{"acls":)" + acls + R"(,"b":1},"type":")" + type + R"("})";
  };
  const std::string untouched = params(R"(["old"])");
  const auto asking = [](const std::string& name, Initiators initiators, Answer answer) {
    return Row(name, get_acls(initiators, nullptr))
        .sends("GET", type_target)
        .gets(std::move(answer));
  };
  return {
      Row("given_initiators_are_taken_whatever_the_type", get_acls(Initiators::given, "FC"))
          .gives(true, params(given_acls)),
      asking("given_initiators_without_a_type_ask_for_it_all_the_same", Initiators::given,
             ok(R"([{"type":"FC"}])"))
          .gives(true, params(given_acls, "FC")),
      Row("iscsi_in_any_case_of_letters_is_found_without_asking",
          get_acls(Initiators::both, "iScSi"))
          .gives(true, params(iscsi_acls)),
      Row("another_type_is_fibre_channel", get_acls(Initiators::both, "FC"))
          .gives(true, params(fibre_channel_acls)),
      Row("another_type_gives_way_to_a_pool_known_as_iscsi",
          get_acls(Initiators::both, "FC", "iSCSI"))
          .gives(true, params(iscsi_acls, "iSCSI")),
      Row("pool_known_in_other_letters_is_not_iscsi", get_acls(Initiators::both, "FC", "iscsi"))
          .gives(true, params(fibre_channel_acls, "iscsi")),
      Row("known_type_is_not_asked_for", get_acls(Initiators::both, nullptr, "FC"))
          .gives(true, params(fibre_channel_acls, "FC")),
      asking("type_of_the_pool_is_iscsi", Initiators::both, ok(R"([{"type":"iSCSI"}])"))
          .gives(true, params(iscsi_acls, "iSCSI")),
      asking("type_of_the_pool_in_other_letters_is_not", Initiators::both,
             ok(R"([{"type":"iscsi"}])"))
          .gives(true, params(fibre_channel_acls, "iscsi")),
      asking("type_that_cannot_be_had", Initiators::both, refusal())
          .logs(client_error("GET", pool_path))
          .logs(no_pool)
          .logs(no_type)
          .gives(false, untouched),
      asking("pool_that_does_not_say_its_type", Initiators::both, ok("[{}]"))
          .logs(no_type)
          .gives(false, untouched),
      Row("iscsi_on_a_host_that_has_only_fibre_channel",
          get_acls(Initiators::fibre_channel, "iSCSI"))
          .logs(no_initiator)
          .gives(false, untouched),
      Row("fibre_channel_on_a_host_that_has_only_iscsi", get_acls(Initiators::iscsi, "FC"))
          .logs(no_initiator)
          .gives(false, untouched),
      Row("empty_type_is_a_type", get_acls(Initiators::both, ""))
          .gives(true, params(fibre_channel_acls)),
      Row("initiators_once_found_are_kept_for_another_transport",
          on_pool(
              [](SCSI_Target_Manager& pool) {
                Object first;
                Object second;
                const bool ok = pool.get_acls(first, "iSCSI") && pool.get_acls(second, "FC");
                return Outcome{ok, {{"first", first["acls"]}, {"second", second["acls"]}}};
              },
              Initiators::both))
          .gives(true, R"({"first":)" + iscsi_acls + R"(,"second":)" + iscsi_acls + "}"),
  };
}

std::vector<Wire_Row> lun_acls_rows() {
  const std::string body =
      R"({"acls":)" + iscsi_acls + R"(,"action":"add","lun_id":"l1","pool_id":"p1"})";
  return {
      Row("host_is_added", add_lun_acls(Initiators::iscsi, "iSCSI"))
          .sends("PUT", lun_export, body)
          .gets(http_answer(204, ""))
          .gives(true, "{}"),
      Row("without_a_type_the_pool_is_asked", add_lun_acls(Initiators::iscsi, nullptr))
          .sends("GET", type_target)
          .sends("PUT", lun_export, body)
          .gets(ok(R"([{"type":"iSCSI"}])"))
          .gets(ok("[]"))
          .gives(true, "{}"),
      Row("refused", add_lun_acls(Initiators::iscsi, "iSCSI"))
          .sends("PUT", lun_export, body)
          .gets(refusal())
          .logs(client_error("PUT", lun_export))
          .gives(false, "{}"),
      Row("is_never_sent_twice", add_lun_acls(Initiators::iscsi, "iSCSI"))
          .sends("PUT", lun_export, body)
          .gets(close_after_request())
          .logs(client_error("PUT", lun_export))
          .gives(false, "{}"),
      Row("host_without_initiators_sends_nothing", add_lun_acls(Initiators::none, "iSCSI"))
          .logs(no_initiator)
          .gives(false, "{}"),
  };
}

std::vector<Wire_Row> snapshot_acls_rows() {
  const auto body = [](const std::string& lun) {
    return R"({"acls":)" + fibre_channel_acls + R"(,"action":"add","lun_num":)" + lun +
           R"(,"pool_id":"p1","snapshot_id":"s1"})";
  };
  const auto asking = [](const std::string& name, Initiators initiators, int lun) {
    return Row(name, add_snapshot_acls(initiators, lun))
        .sends("GET", type_target)
        .gets(ok(R"([{"type":"FC"}])"));
  };
  return {
      asking("host_is_added", Initiators::fibre_channel, 3)
          .sends("PUT", snapshot_export, body("3"))
          .gets(ok("{}"))
          .gives(true, "{}"),
      asking("number_goes_out_as_it_is", Initiators::fibre_channel, -1)
          .sends("PUT", snapshot_export, body("-1"))
          .gets(http_answer(204, ""))
          .gives(true, "{}"),
      asking("refused", Initiators::fibre_channel, 3)
          .sends("PUT", snapshot_export, body("3"))
          .gets(refusal())
          .logs(client_error("PUT", snapshot_export))
          .gives(false, "{}"),
      asking("host_without_initiators_sends_nothing", Initiators::none, 3)
          .logs(no_initiator)
          .gives(false, "{}"),
      Row("type_that_cannot_be_had", add_snapshot_acls(Initiators::given, 3))
          .sends("GET", type_target)
          .gets(ok("[]"))
          .logs(scsi_error("Invalid value [] of scsi pool 'p1'.\n"))
          .logs(no_type)
          .gives(false, "{}"),
  };
}

INSTANTIATE_TEST_SUITE_P(SCSI_Target_Manager_get_scsi_pool_info, Wire_Table,
                         testing::ValuesIn(plays(pool_info_rows())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(SCSI_Target_Manager_get_scsi_type, Wire_Table,
                         testing::ValuesIn(plays(type_rows())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(SCSI_Target_Manager_get_scsi_pool_target_size, Wire_Table,
                         testing::ValuesIn(plays(target_size_rows())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(SCSI_Target_Manager_get_acls, Wire_Table,
                         testing::ValuesIn(plays(acls_rows())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(SCSI_Target_Manager_add_lun_acls, Wire_Table,
                         testing::ValuesIn(plays(lun_acls_rows())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(SCSI_Target_Manager_add_snapshot_acls, Wire_Table,
                         testing::ValuesIn(plays(snapshot_acls_rows())), Wire_Table::name);

// --- Any answer --------------------------------------------------------------------------------

std::vector<std::string> pool_messages(const Value* body) {
  if (body == nullptr) return {"Failed to get scsi pool 'p1' info.\n"};
  if (as_array(body) == nullptr) return {"Failed to get scsi pool 'p1' info, resp={any}.\n"};
  if (only_object(body) == nullptr) return {"Invalid value {any} of scsi pool 'p1'.\n"};
  return {};
}

const std::string good_pool =
    R"([{"uuid":"p1","type":"iSCSI","target":"t1","total_size":5,"tags":[1,{"a":null}]}])";

TEST(Scsi_Pool_Any_Answer, get_scsi_pool_info) {
  judge_any_answer(get_scsi_pool_info(), good_pool, [](const Value* body) {
    const Object* const pool = only_object(body);
    std::string type = "old";
    if (pool != nullptr) json_spirit::object_get(*pool, "type", type);
    return Judgement{pool != nullptr,
                     {{"info", pool != nullptr ? *pool : old_object()}, {"type", type}},
                     pool_messages(body)};
  });
}

TEST(Scsi_Pool_Any_Answer, get_scsi_pool_target_size) {
  judge_any_answer(get_scsi_pool_target_size(), good_pool, [](const Value* body) {
    const Object* const pool = only_object(body);
    std::string target = "old";
    std::uint64_t size = 7;
    const bool has_target = pool != nullptr && json_spirit::object_get(*pool, "target", target);
    const bool good = has_target && json_spirit::object_get(*pool, "total_size", size);
    std::vector<std::string> messages = pool_messages(body);
    if (pool == nullptr) {
      messages.emplace_back("Failed to get SCSI pool info of p1 \n");
    } else if (!good) {
      messages.emplace_back("Invalid value from SCSI pool: {any}\n");
    }
    return Judgement{good, {{"target", target}, {"size", size}}, messages};
  });
}

TEST(Scsi_Pool_Any_Answer, get_acls) {
  judge_any_answer(get_acls(Initiators::given, nullptr), good_pool, [](const Value* body) {
    const Object* const pool = only_object(body);
    std::string type;
    if (pool != nullptr) json_spirit::object_get(*pool, "type", type);
    std::vector<std::string> messages = pool_messages(body);
    Object params{{"b", 1}, {"acls", old_array()}};
    if (type.empty()) {
      messages.emplace_back("Failed to get scsi type for pool p1.\n");
    } else {
      EXPECT_TRUE(json_spirit::read(given_acls, params["acls"]));
    }
    return Judgement{!type.empty(), {{"params", params}, {"type", type}}, messages};
  });
}

TEST(Scsi_Pool_Any_Answer, additions_to_access_lists_succeed_exactly_when_the_exchange_does) {
  const auto judge = [](const Value* body) { return Judgement{body != nullptr, {}, {}}; };
  judge_any_answer(add_lun_acls(Initiators::iscsi, "iSCSI"), "{}", judge);
  judge_any_second_answer(add_snapshot_acls(Initiators::iscsi, 3), R"([{"type":"iSCSI"}])", "{}",
                          judge);
}

// --- The manager itself ------------------------------------------------------------------------

TEST(Scsi_Target_Manager_Test, retention_types_have_names) {
  EXPECT_STREQ(SCSI_Target_Manager::type_to_name(SCSI_Target_Manager::TYPE_NORMAL), "normal");
  EXPECT_STREQ(SCSI_Target_Manager::type_to_name(SCSI_Target_Manager::TYPE_NEWEST), "newest");
  for (const int nameless : {0, 3, 7, -1}) {
    EXPECT_EQ(SCSI_Target_Manager::type_to_name(nameless), nullptr) << nameless;
  }
}

TEST(Scsi_Target_Manager_Test, is_made_from_its_parts) {
  Host_ID::instance()->set("h1");
  std::vector<std::string> initiators = {"a", "b"};
  const SCSI_Target_Manager pool("storage", 8443, true, "k", "p", &initiators);
  initiators.clear();
  EXPECT_EQ(pool.host_, "storage");
  EXPECT_EQ(pool.port_, 8443);
  EXPECT_TRUE(pool.ssl_);
  EXPECT_EQ(pool.access_key_, "k");
  EXPECT_EQ(pool.pool_uuid_, "p");
  EXPECT_EQ(pool.scsi_type_, "");
  EXPECT_EQ(pool.host_uuid_, "h1");
  EXPECT_THAT(pool.initiators_, testing::ElementsAre("a", "b"));
  Host_ID::instance()->set("");
}

TEST(Scsi_Target_Manager_Test, is_made_from_a_url) {
  const std::vector<std::string> initiators = {"a"};
  const SCSI_Target_Manager pool("https://storage/some/path?x=1", "k", "p", &initiators);
  EXPECT_EQ(pool.host_, "storage");
  EXPECT_EQ(pool.port_, 443);
  EXPECT_TRUE(pool.ssl_);
  EXPECT_EQ(pool.access_key_, "k");
  EXPECT_EQ(pool.pool_uuid_, "p");
  EXPECT_THAT(pool.initiators_, testing::ElementsAre("a"));
  const SCSI_Target_Manager plain("ws://[::1]:99", "k", "p", nullptr);
  EXPECT_EQ(plain.host_, "::1");
  EXPECT_EQ(plain.port_, 99);
  EXPECT_FALSE(plain.ssl_);
}

TEST(Scsi_Target_Manager_Test, asks_where_its_url_says) {
  Scripted_Server server;
  server.otherwise(ok("[]"));
  const SCSI_Target_Manager pool("http://127.0.0.1:" + std::to_string(server.port()), "k", "p 1",
                                 nullptr);
  Array luns = old_array();
  EXPECT_TRUE(pool.list_scsi_pool_luns(luns));
  EXPECT_EQ(server.request(0).header("X-Access-Key"), "k");
  EXPECT_EQ(server.request(0).target, "/zq/r/scsipool/lun?pool_id=p%201");
}

TEST(Scsi_Target_Manager_Test, is_made_from_a_url_that_does_not_parse) {
  for (const std::string& url :
       {std::string("nonsense"), std::string(""), std::string("http://storage\0.example", 22)}) {
    Log_Capture log;
    SCSI_Target_Manager pool(url, "k", "p1", nullptr);
    const std::vector<Log_Line> lines = log.take();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].priority, "LM_ERROR");
    EXPECT_EQ(lines[0].text, "Failed to parse url: " + url.substr(0, url.find('\0')) + "\n");
    EXPECT_EQ(lines[0].file, "utils/pool/scsi_target_manager.cpp");
    EXPECT_EQ(pool.host_, "");
    EXPECT_EQ(pool.port_, 0);
    EXPECT_FALSE(pool.ssl_);
    EXPECT_EQ(pool.access_key_, "k");
    Object info;
    EXPECT_FALSE(pool.get_scsi_pool_info(info));
    EXPECT_THAT(log.texts("LM_ERROR"),
                testing::ElementsAre(testing::_, "Failed to get scsi pool 'p1' info.\n"));
  }
}

TEST(Scsi_Target_Manager_Test, init_takes_the_hosts_identity_anew) {
  Host_ID::instance()->set("first");
  SCSI_Target_Manager pool("storage", 1, false, "", "", nullptr);
  Host_ID::instance()->set("second");
  EXPECT_EQ(pool.host_uuid_, "first");
  pool.init();
  EXPECT_EQ(pool.host_uuid_, "second");
  Host_ID::instance()->set("");
}

std::string portal_of(const std::string& host) {
  const Log_Capture log;
  std::string text = SCSI_Target_Manager(host, 8443, true, "", "", nullptr).get_scsi_pool_portal();
  EXPECT_EQ(log.all(), "");
  return text;
}

TEST(Scsi_Target_Manager_Test, portal_is_the_host_at_the_port_of_iscsi) {
  EXPECT_EQ(portal_of("192.0.2.1"), "192.0.2.1:3260");
  EXPECT_EQ(portal_of("2001:db8::7"), "[2001:db8::7]:3260");
  EXPECT_EQ(portal_of("[::1]"), "[::1]:3260");
}

TEST(Scsi_Target_Manager_Test, portal_of_a_name_is_its_address) {
  EXPECT_THAT(portal_of("localhost"), testing::AnyOf("127.0.0.1:3260", "[::1]:3260"));
  EXPECT_EQ(portal_of("127.1"), "127.0.0.1:3260");
}

TEST(Scsi_Target_Manager_Test, portal_of_an_unknown_host_still_has_the_port) {
  EXPECT_THAT(portal_of(".."), testing::AnyOf("0.0.0.0:3260", "[::]:3260"));
  EXPECT_THAT(portal_of(""), testing::AnyOf("0.0.0.0:3260", "[::]:3260"));
}

TEST(Scsi_Target_Manager_Test, target_names_are_new_and_lower_case) {
  const SCSI_Target_Manager pool("storage", 1, false, "", "", nullptr);
  const std::string first = pool.generate_target_name();
  EXPECT_NE(first, pool.generate_target_name());
  EXPECT_THAT(first, testing::MatchesRegex("iqn\\.2026-11\\.org\\.zqpool:[0-9a-f]{8}-[0-9a-f]{4}-"
                                           "[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{12}"));
}

}  // namespace
}  // namespace zqpool::test
