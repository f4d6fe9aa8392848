#include "utils/pool/nfs_operator.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/guards.h"
#include "tests/utils/pool/manager_test.h"

namespace zqpool::test {
namespace {

using json_spirit::Value;
using Record = NFS_Operator::Record;

const std::string nfs_path = "/zq/r/nfs";
const std::string source = "utils/pool/nfs_operator.cpp";

/// With an access key the operator's client keeps its connection.
Row kept(const std::string& name, const Call& call) {
  return Row(name, call).keeps_connection();
}

NFS_Operator operator_for(const Endpoint& to, const char* access_key = "key") {
  return {to.host.c_str(), to.port, to.ssl, access_key, 2, 30};
}

bool is_uuid(const std::string& text) {
  return testing::Matches(
      testing::MatchesRegex("[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{12}"))(text);
}

/// Its output says whether the identifier is a new one.
Call export_record(const Record& record, unsigned timeout = 0, const char* access_key = "key") {
  return [=](const Endpoint& to) {
    std::string uuid = "old";
    NFS_Operator exports = operator_for(to, access_key);
    const bool result = exports.export_record(record, uuid, timeout);
    return Outcome{result, {{"new", is_uuid(uuid)}}};
  };
}

Call update_record(const Record& record, const std::string& uuid = "u1") {
  return [=](const Endpoint& to) {
    NFS_Operator exports = operator_for(to);
    return Outcome{exports.update_record(record, uuid), {}};
  };
}

Call unexport_record(const std::string& uuid, unsigned timeout) {
  return [=](const Endpoint& to) {
    NFS_Operator exports = operator_for(to);
    return Outcome{exports.unexport_record(uuid, timeout), {}};
  };
}

Record path_record(const std::string& path) {
  Record record;
  record.path = path;
  return record;
}

Record pool_record(const std::string& pool_uuid, const std::string& path = "") {
  Record record;
  record.type = NFS_Operator::TYPE_POOL;
  record.pool_uuid = pool_uuid;
  record.path = path;
  return record;
}

/// The body of a record of which only `pseudo` and what follows it, `rest`, are of interest.
std::string body(const std::string& uuid, const std::string& pseudo, const std::string& rest) {
  return R"({"access_type":"RW","clients":["*"],"fsal":"",)" + rest +
         R"(,"protocols":"4","pseudo":")" + pseudo + R"(","squash":"","state":"pending",)" +
         R"("uuid":")" + uuid + R"("})";
}

const Expected_Line no_client = {
    "LM_EMERGENCY", "Unexpected error in " + source + ":{number}, client_ is NULL:\n{stack}", true,
    source};
const Expected_Line invalid = {"LM_ERROR", "Invalid NFS record.\n", true, source};

std::vector<Wire_Row> export_rows() {
  const std::string is_new = R"({"new":true})";
  Record full = path_record("/srv/a b");
  full.pool_uuid = "not of a path";
  full.pseudo = "/pseudo";
  full.fsal = "VFS";
  full.squash = "root_squash";
  full.nfsv3 = true;
  full.readonly = true;
  full.clients = {"10.0.0.0/8", "host", ""};
  const std::string plain = body("{uuid}", "/srv", R"("path":"/srv")");
  const auto refused = [](const std::string& name, const Record& record) {
    return Row(name, export_record(record)).logs(invalid).gives(false, R"({"new":true})");
  };
  return {
      kept("path_and_no_timeout", export_record(path_record("/srv")))
          .sends("POST", nfs_path, plain)
          .gets(http_answer(204, ""))
          .gives(true, is_new),
      kept("every_field", export_record(full, 5))
          .sends("POST", nfs_path + "?sync=5",
                 R"({"access_type":"RO","clients":["10.0.0.0/8","host",""],"fsal":"VFS",)"
                 R"("path":"/srv/a b","protocols":"3","pseudo":"/pseudo","squash":"root_squash",)"
                 R"("state":"pending","uuid":"{uuid}"})")
          .gets(ok(R"({"ignored":1})"))
          .gives(true, is_new),
      kept("timeout_beyond_an_int_turns_negative", export_record(path_record("/srv"), 4294967295U))
          .sends("POST", nfs_path + "?sync=-1", plain)
          .gets(ok("[]"))
          .gives(true, is_new),
      kept("timeout_of_ten_digits", export_record(path_record("/srv"), 2147483648U))
          .sends("POST", nfs_path + "?sync=-2147483648", plain)
          .gets(ok("[]"))
          .gives(true, is_new),
      Row("no_access_key", export_record(path_record("/srv"), 0, ""))
          .sends("POST", nfs_path, plain, "")
          .gets(ok("[]"))
          .gives(true, is_new),
      Row("null_access_key", export_record(path_record("/srv"), 0, nullptr))
          .sends("POST", nfs_path, plain, "")
          .gets(ok("[]"))
          .gives(true, is_new),
      kept("refused_is_logged_by_the_client_alone", export_record(path_record("/srv")))
          .sends("POST", nfs_path, plain)
          .gets(refusal())
          .logs(client_error("POST", nfs_path))
          .gives(false, is_new),
      refused("path_record_without_a_path_has_a_new_identifier_all_the_same", path_record("")),
      refused("pool_record_without_a_pool", pool_record("", "/a")),
  };
}

std::vector<Wire_Row> update_rows() {
  const auto updates = [](const std::string& name, const Record& record, const std::string& sent) {
    return kept(name, update_record(record))
        .sends("PUT", nfs_path, sent)
        .gets(http_answer(204, ""))
        .gives(true, "{}");
  };
  Record foreign = path_record("");
  foreign.type = static_cast<NFS_Operator::Record_Type>(2);
  foreign.pool_uuid = "p1";
  return {
      updates("pool_alone", pool_record("p1"), body("u1", "", R"("pool_uuid":"p1")")),
      kept("directory_of_a_pool_is_its_pseudo_path_too", update_record(pool_record("p1", "/a")))
          .sends("PUT", nfs_path,
                 R"({"access_type":"RW","clients":["*"],"fsal":"","pool_uuid":"p1",)"
                 R"("protocols":"4","pseudo":"/a","squash":"","state":"pending",)"
                 R"("sub_dir":"/a","uuid":"u1"})")
          .gets(ok("{}"))
          .gives(true, "{}"),
      kept("foreign_type_names_nothing", update_record(foreign))
          .sends("PUT", nfs_path,
                 R"({"access_type":"RW","clients":["*"],"fsal":"","protocols":"4","pseudo":"",)"
                 R"("squash":"","state":"pending","uuid":"u1"})")
          .gets(ok("{}"))
          .gives(true, "{}"),
      kept("empty_identifier_is_sent", update_record(path_record("/a"), ""))
          .sends("PUT", nfs_path, body("", "/a", R"("path":"/a")"))
          .gets(ok("{}"))
          .gives(true, "{}"),
      kept("is_never_sent_twice_on_a_guess", update_record(path_record("/a")))
          .sends("PUT", nfs_path, body("u1", "/a", R"("path":"/a")"))
          .gets(close_after_request())
          .logs(client_error("PUT", nfs_path))
          .gives(false, "{}"),
      kept("path_record_without_a_path", update_record(path_record("")))
          .logs(invalid)
          .gives(false, "{}"),
      Row("without_a_client",
          [](const Endpoint&) {
            NFS_Operator exports;
            return Outcome{exports.update_record(path_record(""), "u1"), {}};
          })
          .logs(no_client)
          .gives(false, "{}"),
  };
}

std::vector<Wire_Row> unexport_rows() {
  return {
      kept("timeout_0_is_sent", unexport_record("u1", 0))
          .sends("DELETE", nfs_path + "?uuid=u1&sync=0")
          .gets(ok("[]"))
          .gives(true, "{}"),
      kept("long_identifier_goes_out_as_it_stands",
           unexport_record("a&b=" + std::string(100, 'x'), 2147483647))
          .sends("DELETE", nfs_path + "?uuid=a&b=" + std::string(100, 'x') + "&sync=2147483647")
          .gets(http_answer(204, ""))
          .gives(true, "{}"),
      kept("refused_is_logged_by_the_client_alone", unexport_record("u1", 1))
          .sends("DELETE", nfs_path + "?uuid=u1&sync=1")
          .gets(refusal())
          .logs(client_error("DELETE", nfs_path))
          .gives(false, "{}"),
      Row("without_a_client",
          [](const Endpoint&) {
            NFS_Operator exports;
            return Outcome{exports.unexport_record("u1", 1), {}};
          })
          .logs(no_client)
          .gives(false, "{}"),
  };
}

INSTANTIATE_TEST_SUITE_P(NFS_Operator_export_record, Wire_Table,
                         testing::ValuesIn(plays(export_rows())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(NFS_Operator_update_record, Wire_Table,
                         testing::ValuesIn(plays(update_rows())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(NFS_Operator_unexport_record, Wire_Table,
                         testing::ValuesIn(plays(unexport_rows())), Wire_Table::name);

TEST(Nfs_Any_Answer, records_are_taken_exactly_when_the_exchange_succeeds) {
  const Call export_it = [](const Endpoint& to) {
    std::string uuid;
    NFS_Operator exports = operator_for(to);
    return Outcome{exports.export_record(path_record("/srv"), uuid, 1), {}};
  };
  for (const Call& call : {export_it, update_record(pool_record("p1")), unexport_record("u1", 0)}) {
    judge_any_answer(call, R"({"uuid":"u1"})", [](const Value* body) {
      return Judgement{body != nullptr, {}, {}};
    });
  }
}

class Nfs_Operator_Test : public testing::Test {
 public:
  bool withdraw(NFS_Operator& exports) { return exports.unexport_record("u1", 0); }

  const Sleep_Recorder sleeps;
  Log_Capture log;
  Scripted_Server server;
};

TEST_F(Nfs_Operator_Test, export_without_a_client_gives_a_new_identifier) {
  NFS_Operator exports;
  std::string uuid = "old";
  EXPECT_FALSE(exports.export_record(path_record("/srv"), uuid, 0));
  EXPECT_TRUE(is_uuid(uuid)) << uuid;
  EXPECT_THAT(log.texts("LM_EMERGENCY"), testing::SizeIs(1));
}

TEST_F(Nfs_Operator_Test, two_exports_have_two_identifiers) {
  server.otherwise(ok("{}"));
  NFS_Operator exports = operator_for(server.endpoint());
  std::string first;
  std::string second;
  EXPECT_TRUE(exports.export_record(path_record("/srv"), first, 0));
  EXPECT_TRUE(exports.export_record(path_record("/srv"), second, 0));
  EXPECT_NE(first, second);
  EXPECT_NE(server.request(0).body.find(first), std::string::npos);
  EXPECT_NE(server.request(1).body.find(second), std::string::npos);
}

TEST_F(Nfs_Operator_Test, all_calls_go_over_one_connection) {
  server.otherwise(ok("{}"));
  NFS_Operator exports = operator_for(server.endpoint());
  for (int i = 0; i < 3; ++i)
    EXPECT_TRUE(withdraw(exports));
  EXPECT_EQ(server.request_count(), 3U);
  EXPECT_EQ(server.connection_count(), 1U);
}

TEST_F(Nfs_Operator_Test, reset_without_a_host_keeps_the_previous_service) {
  server.otherwise(ok("{}"));
  NFS_Operator exports;
  EXPECT_TRUE(exports.reset("127.0.0.1", server.port(), false, "key", 0, 0));
  for (const char* const host : {static_cast<const char*>(nullptr), ""}) {
    EXPECT_FALSE(exports.reset(host, 1, true, "other", 0, 0));
    EXPECT_TRUE(withdraw(exports));
  }
  const std::vector<Log_Line> lines = log.take();
  ASSERT_EQ(lines.size(), 2U);
  for (const Log_Line& line : lines) {
    EXPECT_EQ(line.priority, "LM_EMERGENCY");
    EXPECT_TRUE(
        line_matches("Unexpected error in " + source + ":{number}, host is NULL or \"\":\n{stack}",
                     line.text, 0))
        << line.text;
  }
  EXPECT_EQ(server.request(1).header("X-Access-Key"), "key");
}

TEST_F(Nfs_Operator_Test, constructor_without_a_host_makes_an_operator_without_a_client) {
  NFS_Operator exports(nullptr, 1, false, "key", 0, 0);
  EXPECT_FALSE(withdraw(exports));
  EXPECT_THAT(log.texts("LM_EMERGENCY"), testing::SizeIs(2));
}

TEST_F(Nfs_Operator_Test, reset_goes_to_another_service) {
  server.otherwise(ok("{}"));
  Scripted_Server other;
  other.otherwise(ok("{}"));
  NFS_Operator exports = operator_for(server.endpoint());
  EXPECT_TRUE(withdraw(exports));
  EXPECT_TRUE(exports.reset("127.0.0.1", other.port(), false, nullptr, 0, 0));
  EXPECT_TRUE(withdraw(exports));
  EXPECT_EQ(server.request_count(), 1U);
  EXPECT_EQ(other.request_count(), 1U);
  EXPECT_EQ(other.request(0).header_count("X-Access-Key"), 0U);
}

TEST_F(Nfs_Operator_Test, retries_are_those_of_the_client) {
  const Refused_Port nobody;
  NFS_Operator none("127.0.0.1", nobody.port(), false, "key", 0, 30);
  EXPECT_FALSE(withdraw(none));
  EXPECT_EQ(sleeps.pauses().size(), 0U);
  NFS_Operator three("127.0.0.1", nobody.port(), false, "key", 3, 30);
  EXPECT_FALSE(withdraw(three));
  EXPECT_EQ(sleeps.pauses().size(), 3U);
  NFS_Operator no_time("127.0.0.1", nobody.port(), false, "key", 3, 0);
  EXPECT_FALSE(withdraw(no_time));
  EXPECT_EQ(sleeps.pauses().size(), 3U);
}

}  // namespace
}  // namespace zqpool::test
