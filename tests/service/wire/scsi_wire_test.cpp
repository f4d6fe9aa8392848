// SCSI pools as a client sees them: long lists, faults, and a crash of the service.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/service/fixtures/http_client.h"
#include "tests/service/fixtures/protocol_document.h"
#include "tests/service/fixtures/scsi_lab.h"
#include "tests/support/service_process.h"

namespace zqpool::test {
namespace {

using json_spirit::Value;
using testing::HasSubstr;

const std::string pool_query = "?pool_id=" + iscsi_pool;
const std::string lun_path = "/zq/r/scsipool/lun";
const std::string snapshot_path = "/zq/r/scsipool/snapshot";
const std::string acls = R"("acls":[{"initiator":"iqn.2026-11.test:a","host_uuid":"host-a"}])";

class SCSI_Wire : public testing::TestWithParam<bool> {
 protected:
  Http_Answer ask(const std::string& method, const std::string& target,
                  const std::string& body = "") {
    Http_Answer answer = test::ask(service_, method, target, body, "", GetParam());
    EXPECT_EQ(Protocol_Document::instance().contradiction(
                  {method, target, body, answer.status, answer.body}),
              "");
    return answer;
  }
  static std::string body(const std::string& rest) {
    return R"({"pool_id":")" + iscsi_pool + "\"," + rest + '}';
  }
  /// A member of the response to a successful request.
  std::string text(const Http_Answer& answer, const std::string& key) {
    EXPECT_EQ(answer.status / 100, 2U) << answer.body;
    return answer.json().get_obj().at(key).get_str();
  }
  std::string make_lun() {
    return text(ask("POST", lun_path, body(R"("lun_size":1048576,"export":true,)" + acls)),
                "lun_id");
  }
  std::string make_snapshot(const std::string& lun) {
    return text(ask("POST", snapshot_path, body(R"("lun_id":")" + lun + R"(","recycle":true)")),
                "snapshot_id");
  }
  std::size_t luns() { return ask("GET", lun_path + pool_query).json().get_array().size(); }
  /// Everything that the service returns about the pool.
  std::string told() {
    std::string out;
    for (const std::string& target :
         {"/zq/r/pool" + pool_query, lun_path + pool_query, snapshot_path + pool_query,
          std::string("/zq/lab/visible?initiator=iqn.2026-11.test:a"),
          std::string("/zq/lab/check")}) {
      out += ask("GET", target).body + '\n';
    }
    return out;
  }
  void script(const std::string& method, const std::string& path, const std::string& what) {
    EXPECT_EQ(ask("POST", "/zq/lab/faults",
                  R"({"faults":[{"times":1,"method":")" + method + R"(","path":")" + path +
                      R"(",)" + what + "}]}")
                  .status,
              201U);
  }
  std::int64_t end_faults() {
    const Value list = ask("GET", "/zq/lab/faults").json();
    ask("DELETE", "/zq/lab/faults");
    return list.get_obj().at("faults").get_array().at(0).get_obj().at("fired").get_int64();
  }

  Service_Process service_{{scsi_lab(), {}}};
};

INSTANTIATE_TEST_SUITE_P(Over, SCSI_Wire, testing::Bool(), transport_name);

/// Tests that do not depend on the transport.
class Plain_SCSI_Wire : public SCSI_Wire {};
INSTANTIATE_TEST_SUITE_P(Over, Plain_SCSI_Wire, testing::Values(false), transport_name);

TEST_P(Plain_SCSI_Wire, every_change_survives_a_kill_right_after_its_response) {
  std::string lun;
  std::string snapshot;
  const auto of = [](const std::string& key, const std::string& id) {
    return '"' + key + "\":\"" + id + '"';
  };
  const auto kill = [&](const std::string& what) {
    const std::string before = told();
    service_.kill();
    service_.start();
    EXPECT_EQ(told(), before) << what;
    EXPECT_THAT(before, HasSubstr("\"problems\":[]"));
  };
  lun = make_lun();
  kill("create");
  EXPECT_EQ(
      ask("POST", "/zq/lab/write", body(of("lun_id", lun) + R"(,"offset":0,"length":4096)")).status,
      200U);
  kill("write");
  snapshot = make_snapshot(lun);
  kill("snapshot");
  EXPECT_EQ(
      ask("POST", snapshot_path + "/export", body(of("snapshot_id", snapshot) + ',' + acls)).status,
      200U);
  kill("share");
  EXPECT_EQ(ask("PUT", lun_path, body(of("lun_id", lun) + R"(,"force":true)")).status, 200U);
  kill("rollback");
  EXPECT_EQ(ask("DELETE", lun_path + "/export" + pool_query + "&lun_id=" + lun).status, 200U);
  kill("unexport");
  EXPECT_EQ(ask("DELETE", lun_path + pool_query + "&force=true&lun_id=" + lun).status, 200U);
  kill("delete");
  EXPECT_EQ(ask("DELETE", lun_path + pool_query + "&force=true&lun_id=" + lun).status, 200U)
      << "also what was deleted is remembered";
  EXPECT_EQ(luns(), 0U);
}

TEST_P(SCSI_Wire, a_list_of_any_length_is_complete) {
  // Sizes around one TLS record and beyond a socket's buffer.
  for (const std::size_t count : {30U, 50U, 400U}) {
    std::string entries;
    for (std::size_t i = 0; i < count; ++i) {
      entries.append(i == 0 ? "" : ",").append(R"({"lun_id":"00000000-0000-4000-8000-00000000)");
      entries.append(std::to_string(1000 + i)).append(R"(","pool_uuid":")").append(iscsi_pool);
      entries += R"(","lun_size":512})";
    }
    ask("POST", "/zq/lab/scenario?mode=merge", R"({"luns":[)" + entries + "]}");
    EXPECT_EQ(luns(), count);
  }
}

TEST_P(Plain_SCSI_Wire, faults_hit_changes_before_or_after_the_commit) {
  const auto create = body(R"("lun_size":512,"export":false)");
  const auto begin = [&] {
    Http_Client client(service_.endpoint(GetParam()));
    client.send(request_text("POST", lun_path, service_.access_key(), create));
    return client.read();
  };
  script("POST", lun_path, R"("kind":"status","status":507)");
  EXPECT_EQ(ask("POST", lun_path, create).status, 507U);
  EXPECT_EQ(end_faults(), 1);
  EXPECT_EQ(luns(), 0U);
  script("POST", lun_path, R"("kind":"reset_before_commit")");
  EXPECT_FALSE(begin());
  EXPECT_EQ(end_faults(), 1);
  EXPECT_EQ(luns(), 0U);
  std::size_t made = 0;
  for (const char* kind : {R"("kind":"reset_after_commit")", R"("kind":"cut","bytes":5)"}) {
    script("POST", lun_path, kind);
    EXPECT_FALSE(begin()) << kind;
    EXPECT_EQ(end_faults(), 1);
    EXPECT_EQ(luns(), ++made) << kind;
  }
  for (const char* kind :
       {R"("kind":"garbage")", R"("kind":"huge","bytes":100000)", R"("kind":"drip","bytes":40)",
        R"("kind":"wrong_type","member":"lun_id","type":"number")",
        R"("kind":"delay","delay_ms":1)"}) {
    script("POST", lun_path, kind);
    EXPECT_TRUE(begin()) << kind;
    EXPECT_EQ(end_faults(), 1) << kind;
    EXPECT_EQ(luns(), ++made) << kind;
  }
}

TEST_P(Plain_SCSI_Wire, errors_say_why) {
  const Http_Answer full =
      ask("POST", lun_path, body(R"("lun_size":2199023255552,"export":false)"));
  EXPECT_EQ(full.status, 507U);
  EXPECT_EQ(full.body, R"({"error":{"code":507,"message":"pool ')" + iscsi_pool +
                           R"(' has 1073741824 bytes free, 2199023255552 are needed"}})");
  const std::string lun = make_lun();
  EXPECT_EQ(ask("DELETE", lun_path + pool_query + "&force=false&lun_id=" + lun).body,
            R"({"error":{"code":-409,"message":"LUN ')" + lun + R"(' is exported"}})");
}

}  // namespace
}  // namespace zqpool::test
