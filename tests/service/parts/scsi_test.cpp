#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "platform/json/json_dump.h"
#include "tests/service/fixtures/lab_service.h"
#include "tests/service/fixtures/resolution_lab.h"
#include "tests/service/fixtures/scsi_lab.h"

namespace zqpool::test {
namespace {

using json_spirit::Value;
using testing::HasSubstr;
using testing::StartsWith;

const std::string pool_path = "/zq/r/pool";
const std::string lun_path = "/zq/r/scsipool/lun";
const std::string export_path = "/zq/r/scsipool/lun/export";
const std::string snapshot_path = "/zq/r/scsipool/snapshot";
const std::string share_path = "/zq/r/scsipool/snapshot/export";
const std::string unknown = "00000000-0000-4000-8000-00000000ffff";
const std::string other_target = R"("type":"iscsi","target":"iqn.2026-11.org.zqpool:other")";

/// An access list: each name is an initiator of a host of its own.
std::string acls(std::initializer_list<const char*> names) {
  std::string out;
  for (const char* const name : names) {
    out.append(out.empty() ? "" : ",").append(R"({"initiator":")").append(name);
    out.append(R"(","host_uuid":"host-)").append(name).append("\"}");
  }
  return "\"acls\":[" + out + ']';
}

class SCSI_Pools : public testing::Test {
 protected:
  void TearDown() override { EXPECT_EQ(problems(), "[]"); }

  std::string problems() {
    const Value found = lab_.good("GET", "/zq/lab/check");
    return json_spirit::write(found.get_obj().at("problems"));
  }
  /// A body of the iSCSI pool, or another one.
  static std::string body(const std::string& rest, const std::string& pool = iscsi_pool) {
    return R"({"pool_id":")" + pool + "\"," + rest + '}';
  }
  static std::string named(const std::string& key, const std::string& value) {
    return '"' + key + "\":\"" + value + '"';
  }
  static std::string at(const std::string& path, const std::string& query,
                        const std::string& pool = iscsi_pool) {
    return path + "?pool_id=" + pool + (query.empty() ? "" : "&" + query);
  }

  Object made(const std::string& path, const std::string& request) {
    const service::Response answer = lab_.ask("POST", path, request);
    EXPECT_EQ(answer.status, 201U) << request << answer.body;
    return json(answer.body).get_obj();
  }
  std::string make_lun(const std::string& more = R"("export":false)", int size = 1 << 20) {
    return made(lun_path, body("\"lun_size\":" + std::to_string(size) + ',' + more))
        .at("lun_id")
        .get_str();
  }
  std::string make_snapshot(const std::string& lun, bool recycle = false) {
    return made(snapshot_path,
                body(named("lun_id", lun) + ",\"recycle\":" + (recycle ? "true" : "false")))
        .at("snapshot_id")
        .get_str();
  }
  int export_lun(const std::string& lun, const std::string& more = acls({"a"})) {
    return lab_.good("POST", export_path, body(named("lun_id", lun) + ',' + more))
        .get_obj()
        .at("lun_num")
        .get_int();
  }
  int share(const std::string& snapshot, const std::string& more = acls({"a"})) {
    return lab_.good("POST", share_path, body(named("snapshot_id", snapshot) + ',' + more))
        .get_obj()
        .at("lun_num")
        .get_int();
  }
  void write(const std::string& lun, int offset, int length, const std::string& more = "") {
    lab_.good("POST", "/zq/lab/write",
              body(named("lun_id", lun) + ",\"offset\":" + std::to_string(offset) +
                   ",\"length\":" + std::to_string(length) + more));
  }
  Object lun(const std::string& id) {
    const Value list = lab_.good("GET", at(lun_path, "lun_id=" + id));
    EXPECT_EQ(list.get_array().size(), 1U);
    return list.get_array().at(0).get_obj();
  }
  Array snapshots(const std::string& query) {
    return lab_.good("GET", at(snapshot_path, query)).get_array();
  }
  Object snapshot(const std::string& id) {
    const Array list = snapshots("snapshot_id=" + id);
    EXPECT_EQ(list.size(), 1U);
    return list.at(0).get_obj();
  }
  /// "number:what" of each, joined by blanks.
  std::string seen(const std::string& initiator) {
    std::string out;
    const Value list = lab_.good("GET", "/zq/lab/visible?initiator=" + initiator);
    for (const Value& each : list.get_obj().at("luns").get_array()) {
      const Object& item = each.get_obj();
      const std::string* of = json_spirit::object_get_str(item, "snapshot_id");
      out += (out.empty() ? "" : " ") + std::to_string(item.at("lun_num").get_int()) + ':' +
             (of ? *of : item.at("lun_id").get_str());
    }
    return out;
  }
  std::int64_t used() {
    return lab_.good("GET", pool_path + "?pool_id=" + iscsi_pool)
        .get_array()
        .at(0)
        .get_obj()
        .at("used_size")
        .get_int64();
  }
  std::string refusal(const std::string& method, const std::string& target,
                      const std::string& request = "") {
    return lab_.refusal(method, target, request);
  }

  Lab_Service lab_{scsi_lab()};
};

// ---- pools

TEST_F(SCSI_Pools, a_pool_tells_transport_target_and_room) {
  write(make_lun(), 0, 4096);
  EXPECT_EQ(lab_.good("GET", pool_path + "?type=scsi&pool_id=" + iscsi_pool),
            json(R"([{"pool_id":")" + iscsi_pool + R"(","name":"luns","state":"online",
              "type":"iSCSI","target":")" +
                 iscsi_target + R"(","portal":"192.0.2.10:3260",
              "total_size":1073741824,"used_size":4096,"free_size":1073737728,"lun_count":1}])"));
  const Value fc = lab_.good("GET", pool_path + "?type=scsi&pool_id=" + fc_pool);
  EXPECT_EQ(fc.get_array().at(0).get_obj().at("type"), Value("FC"));
  EXPECT_EQ(fc.get_array().at(0).get_obj().count("portal"), 0U);
}

TEST_F(SCSI_Pools, pools_are_listed_and_found_by_uuid_of_any_case) {
  EXPECT_EQ(lab_.good("GET", pool_path).get_array().size(), 2U);
  EXPECT_EQ(lab_.good("GET", pool_path + "?type=image"), json("[]"));
  EXPECT_EQ(lab_.good("GET", pool_path + "?pool_id=00000000-0000-4000-8000-00000000B001")
                .get_array()
                .size(),
            1U);
}

TEST_F(SCSI_Pools, what_is_no_scsi_pool_is_404_on_every_path) {
  const std::string file_pool = "00000000-0000-4000-8000-00000000a001";
  lab_.load(R"({"pools":[{"uuid":")" + file_pool + R"(","name":"f","type":"file"}]})", false);
  const std::string of_type = pool_path + "?type=scsi&pool_id=";
  for (const std::string& pool : {unknown, file_pool, std::string("x")}) {
    EXPECT_EQ(refusal("GET", of_type + pool), "404 there is no SCSI pool '" + pool + "'");
    for (const std::string& path : {lun_path, snapshot_path}) {
      EXPECT_THAT(refusal("GET", at(path, "", pool)), StartsWith("404 "));
    }
    const std::string lun_query = "lun_id=" + unknown;
    const std::string snapshot_query = "snapshot_id=" + unknown;
    EXPECT_THAT(refusal("DELETE", at(lun_path, lun_query, pool)), StartsWith("404 "));
    EXPECT_THAT(refusal("DELETE", at(export_path, lun_query, pool)), StartsWith("404 "));
    EXPECT_THAT(refusal("DELETE", at(snapshot_path, snapshot_query, pool)), StartsWith("404 "));
    EXPECT_THAT(refusal("DELETE", at(share_path, snapshot_query + "&lun_num=1", pool)),
                StartsWith("404 "));
    EXPECT_THAT(refusal("POST", lun_path, body(R"("lun_size":512,"export":false)", pool)),
                StartsWith("404 "));
    EXPECT_THAT(refusal("PUT", lun_path, body(named("lun_id", unknown) + ",\"force\":true", pool)),
                StartsWith("404 "));
    const std::string of_lun = named("lun_id", unknown) + ',' + acls({"a"});
    const std::string of_snapshot = named("snapshot_id", unknown) + ',' + acls({"a"});
    EXPECT_THAT(refusal("POST", export_path, body(of_lun, pool)), StartsWith("404 "));
    EXPECT_THAT(refusal("PUT", export_path, body(of_lun + R"(,"action":"add")", pool)),
                StartsWith("404 "));
    EXPECT_THAT(
        refusal("POST", snapshot_path, body(named("lun_id", unknown) + ",\"recycle\":true", pool)),
        StartsWith("404 "));
    EXPECT_THAT(refusal("POST", share_path, body(of_snapshot, pool)), StartsWith("404 "));
    EXPECT_THAT(
        refusal("PUT", share_path, body(of_snapshot + R"(,"action":"add","lun_num":1)", pool)),
        StartsWith("404 "));
  }
}

TEST_F(SCSI_Pools, what_is_not_in_the_pool_is_404) {
  const std::string lun = make_lun();
  const std::string snapshot = make_snapshot(lun);
  for (const std::string& pool : {iscsi_pool, fc_pool}) {
    const std::string lun_id = pool == iscsi_pool ? unknown : lun;
    const std::string snapshot_id = pool == iscsi_pool ? unknown : snapshot;
    EXPECT_EQ(refusal("GET", at(lun_path, "lun_id=" + lun_id, pool)),
              "404 there is no LUN '" + lun_id + "'");
    EXPECT_THAT(refusal("GET", at(snapshot_path, "lun_id=" + lun_id, pool)), StartsWith("404 "));
    EXPECT_EQ(refusal("GET", at(snapshot_path, "snapshot_id=" + snapshot_id, pool)),
              "404 there is no snapshot '" + snapshot_id + "' of a LUN");
    EXPECT_THAT(refusal("DELETE", at(lun_path, "lun_id=" + lun_id, pool)), StartsWith("404 "));
    EXPECT_THAT(refusal("DELETE", at(export_path, "lun_id=" + lun_id, pool)), StartsWith("404 "));
    EXPECT_THAT(refusal("DELETE", at(snapshot_path, "snapshot_id=" + snapshot_id, pool)),
                StartsWith("404 "));
    EXPECT_THAT(refusal("DELETE", at(share_path, "lun_num=1&snapshot_id=" + snapshot_id, pool)),
                StartsWith("404 "));
    EXPECT_THAT(refusal("POST", lun_path,
                        body(named("snapshot_id", snapshot_id) + ",\"export\":false", pool)),
                StartsWith("404 "));
  }
}

TEST_F(SCSI_Pools, a_pool_that_is_readonly_is_read_only) {
  const std::string lun = make_lun();
  lab_.load(R"({"pools":[{"uuid":")" + iscsi_pool +
                R"(","name":"luns","type":"scsi","state":"readonly"}]})",
            false);
  EXPECT_EQ(refusal("POST", lun_path, body(R"("lun_size":512,"export":false)")),
            "409 pool '" + iscsi_pool + "' is readonly");
  EXPECT_THAT(refusal("DELETE", at(lun_path, "lun_id=" + lun)), StartsWith("409 "));
  EXPECT_EQ(lab_.good("GET", at(lun_path, "")).get_array().size(), 1U);
}

TEST_F(SCSI_Pools, requests_that_make_no_sense_are_refused) {
  const std::string lun = make_lun();
  const std::string of_lun = named("lun_id", lun);
  const auto create = [this](const std::string& rest) {
    return refusal("POST", lun_path, body(rest));
  };
  EXPECT_EQ(create(R"("export":false)"), "400 lun_size: is missing");
  EXPECT_EQ(create(R"("lun_size":512)"), "400 export: is missing");
  EXPECT_THAT(create(R"("lun_size":"512","export":false)"), StartsWith("400 lun_size"));
  EXPECT_THAT(create(R"("lun_size":-1,"export":false)"), StartsWith("422 lun_size"));
  EXPECT_THAT(create(R"("lun_size":18446744073709551615,"export":false)"),
              StartsWith("422 lun_size"));
  EXPECT_EQ(create(R"("lun_size":0,"export":false)"), "422 lun_size: must not be 0");
  EXPECT_EQ(create(R"("lun_size":1000,"export":false)"), "422 lun_size: must be whole blocks");
  EXPECT_EQ(create(R"("lun_size":512,"export":false,"block_size":4096)"),
            "422 lun_size: must be whole blocks");
  for (const char* size : {"0", "256", "1000", "2097152"}) {
    EXPECT_THAT(create(R"("lun_size":512,"export":false,"block_size":)" + std::string(size)),
                StartsWith("422 block_size"));
  }
  EXPECT_THAT(create(R"("lun_size":512,"export":false,"retention_type":"old")"),
              StartsWith("422 retention_type"));
  EXPECT_THAT(create(R"("lun_size":512,"export":false,"name":"x")"), StartsWith("400 name"));
  EXPECT_THAT(create(named("snapshot_id", unknown) + R"(,"export":false,"lun_size":512)"),
              StartsWith("404 "));
  EXPECT_THAT(create(R"("lun_size":512,"export":false,"acls":[{"initiator":"a"}])"),
              StartsWith("400 acls[0].host_uuid"));
  EXPECT_THAT(create(R"("lun_size":512,"export":false,"acls":["a"])"), StartsWith("400 acls[0]"));
  EXPECT_THAT(create(R"("lun_size":512,"export":false,)" + acls({"a b"})),
              StartsWith("422 acls[0].initiator"));
  EXPECT_THAT(create(R"("lun_size":512,"export":false,)" + acls({std::string(224, 'i').c_str()})),
              StartsWith("422 acls[0].initiator"));

  EXPECT_EQ(refusal("POST", export_path, body(of_lun)), "400 acls: is missing");
  EXPECT_EQ(refusal("POST", export_path, body(of_lun + R"(,"acls":[])")),
            "422 acls: must not be empty");
  const Array many(4097, json(R"({"initiator":"a","host_uuid":"h"})"));
  EXPECT_EQ(refusal("POST", export_path, body(of_lun + R"(,"acls":)" + json_spirit::write(many))),
            "422 acls: has more than 4096 elements");
  for (const char* half : {R"("type":"iSCSI")", R"("target":"iqn.x")"}) {
    EXPECT_THAT(refusal("POST", export_path, body(of_lun + ',' + half + ',' + acls({"a"}))),
                StartsWith("422 target: must be given together with type"));
  }
  EXPECT_THAT(refusal("POST", export_path,
                      body(of_lun + R"(,"type":"NVMe","target":"iqn.x",)" + acls({"a"}))),
              StartsWith("422 type"));
  export_lun(lun);
  EXPECT_THAT(refusal("PUT", export_path, body(of_lun + R"(,"action":"set",)" + acls({"a"}))),
              StartsWith("422 action"));
  EXPECT_EQ(refusal("PUT", export_path, body(of_lun + ',' + acls({"a"}))),
            "400 action: is missing");

  EXPECT_THAT(refusal("GET", lun_path), StartsWith("400 query field 'pool_id'"));
  EXPECT_THAT(refusal("DELETE", at(lun_path, "force=true")),
              StartsWith("400 query field 'lun_id'"));
  EXPECT_THAT(refusal("DELETE", at(lun_path, "force=1&lun_id=" + lun)),
              StartsWith("400 query field 'force'"));
  EXPECT_THAT(refusal("GET", at(snapshot_path, "lun_id=1&snapshot_id=2")), StartsWith("400 "));
  EXPECT_THAT(refusal("DELETE", at(share_path, "snapshot_id=" + unknown)),
              StartsWith("400 query field 'lun_num'"));
  EXPECT_THAT(refusal("DELETE", at(share_path, "lun_num=x&snapshot_id=" + unknown)),
              StartsWith("400 query field 'lun_num'"));
  EXPECT_THAT(refusal("POST", snapshot_path, body(of_lun)), StartsWith("400 recycle"));
  EXPECT_THAT(refusal("PUT", lun_path, body(of_lun)), StartsWith("400 force"));
}

// ---- LUNs

TEST_F(SCSI_Pools, a_lun_is_described) {
  const std::string id =
      make_lun(R"("export":true,"retention_type":"newest","block_size":4096,)" + acls({"b", "a"}));
  write(id, 4096, 8192);
  Object lun = this->lun(id);
  EXPECT_THAT(lun.at("created").get_str(), StartsWith("20"));
  lun.erase("created");
  std::string serial = id;
  serial.erase(std::remove(serial.begin(), serial.end(), '-'), serial.end());
  EXPECT_EQ(Value(lun), json(R"({"lun_id":")" + id + R"(","pool_id":")" + iscsi_pool + R"(",
      "lun_size":1048576,"block_size":4096,"retention_type":"newest",
      "vpd_serial_number":")" +
                             serial + R"(","snapshot_count":0,"rfer_size":8192,"excl_size":8192,
      "lun_num":1,"type":"iSCSI","target":")" +
                             iscsi_target + R"(",)" + acls({"a", "b"}) + '}'));
}

TEST_F(SCSI_Pools, luns_are_listed_in_the_order_in_which_they_were_made) {
  EXPECT_EQ(lab_.good("GET", at(lun_path, "")), json("[]"));
  std::vector<std::string> ids(5);
  for (std::string& id : ids)
    id = make_lun();
  const Value list = lab_.good("GET", at(lun_path, ""));
  std::vector<std::string> listed;
  for (const Value& each : list.get_array())
    listed.push_back(each.get_obj().at("lun_id").get_str());
  EXPECT_EQ(listed, ids);
  EXPECT_EQ(lab_.good("GET", at(lun_path, "", fc_pool)), json("[]"));
}

TEST_F(SCSI_Pools, a_lun_that_is_not_exported_has_no_number) {
  const Object made_lun = made(lun_path, body(R"("lun_size":512,"export":false,)" + acls({"a"})));
  EXPECT_EQ(made_lun.count("lun_num"), 0U);
  const Object lun = this->lun(made_lun.at("lun_id").get_str());
  EXPECT_EQ(lun.count("lun_num"), 0U);
  EXPECT_EQ(lun.count("acls"), 0U);
  EXPECT_EQ(lun.count("vpd_serial_number"), 1U);
  EXPECT_EQ(seen("a"), "");
}

TEST_F(SCSI_Pools, an_identifier_of_the_other_case_is_the_same) {
  std::string upper = make_lun();
  for (char& c : upper)
    c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  export_lun(upper);
  lab_.good("DELETE", at(lun_path, "force=true&lun_id=" + upper));
  EXPECT_EQ(lab_.good("GET", at(lun_path, "")), json("[]"));
}

TEST_F(SCSI_Pools, a_lun_that_does_not_fit_is_507_and_not_made) {
  EXPECT_THAT(refusal("POST", lun_path, body(R"("lun_size":1073742336,"export":false)")),
              StartsWith("507 pool '"));
  EXPECT_EQ(lab_.good("GET", at(lun_path, "")), json("[]"));
  make_lun(R"("export":false)", 1 << 30);
  // Nothing is set aside for it.
  make_lun(R"("export":false)", 1 << 30);
}

TEST_F(SCSI_Pools, a_full_pool_reclaims_recyclable_snapshots_that_are_not_shared) {
  lab_.load(scsi_lab(4096), true);
  const std::string lun = make_lun(R"("export":false)", 4096);
  std::vector<std::string> ids;
  for (int i = 0; i < 3; ++i) {
    write(lun, 0, 1024);
    ids.push_back(make_snapshot(lun, true));
  }
  share(ids[0]);
  write(lun, 0, 1024);
  EXPECT_EQ(used(), 4096);
  const Value written = lab_.good("POST", "/zq/lab/write",
                                  body(named("lun_id", lun) + R"(,"offset":1024,"length":512)"));
  EXPECT_EQ(written, json(R"({"lun_id":")" + lun + R"(","rfer_size":1536,"used_size":3584,
                             "reclaimed":[")" +
                          ids[1] + R"("]})"));
  EXPECT_THAT(refusal("GET", at(snapshot_path, "snapshot_id=" + ids[1])), StartsWith("404 "));
  EXPECT_EQ(snapshots("lun_id=" + lun).size(), 2U);
  // A new LUN may take the last one, too; one that would not fit even then takes none.
  EXPECT_THAT(refusal("POST", lun_path, body(R"("lun_size":2048,"export":false)")),
              StartsWith("507 "));
  EXPECT_EQ(snapshots("lun_id=" + lun).size(), 2U);
  make_lun(R"("export":false)", 1536);
  EXPECT_EQ(snapshots("lun_id=" + lun).size(), 1U);
  EXPECT_THAT(
      refusal("POST", "/zq/lab/write", body(named("lun_id", lun) + R"(,"offset":0,"length":4096)")),
      StartsWith("507 "));
  EXPECT_EQ(used(), 2560);
}

TEST_F(SCSI_Pools, a_lun_is_made_from_a_snapshot) {
  const std::string lun = make_lun(R"("export":false,"block_size":4096)");
  write(lun, 0, 8192);
  const std::string snapshot = make_snapshot(lun);
  const Object answer = made(lun_path, body(named("snapshot_id", snapshot) + R"(,"export":true)"));
  EXPECT_EQ(answer.at("lun_num").get_int(), 1);
  const Object copy = this->lun(answer.at("lun_id").get_str());
  EXPECT_EQ(copy.at("origin").get_str(), snapshot);
  EXPECT_EQ(copy.at("lun_size").get_int(), 1 << 20);
  EXPECT_EQ(copy.at("block_size").get_int(), 4096);
  EXPECT_EQ(copy.at("rfer_size").get_int(), 8192);
  EXPECT_EQ(copy.at("excl_size").get_int(), 0);
  EXPECT_EQ(copy.at("acls"), json("[]")) << "nobody sees it yet";
  EXPECT_EQ(used(), 8192);
  EXPECT_THAT(refusal("DELETE", at(snapshot_path, "snapshot_id=" + snapshot)),
              StartsWith("409 LUN '" + answer.at("lun_id").get_str() + "' is a clone"));
  EXPECT_THAT(refusal("DELETE", at(lun_path, "force=true&lun_id=" + lun)), StartsWith("409 "));
}

TEST_F(SCSI_Pools, a_lun_goes_back_to_its_newest_snapshot) {
  const std::string lun = make_lun();
  const auto roll_back = [&](const std::string& force) {
    return body(named("lun_id", lun) + ",\"force\":" + force);
  };
  EXPECT_THAT(refusal("PUT", lun_path, roll_back("true")), StartsWith("409 LUN '" + lun));
  write(lun, 0, 1024);
  make_snapshot(lun);
  write(lun, 512, 1024);
  const std::string newest = make_snapshot(lun);
  write(lun, 0, 4096);
  const Value done = json(R"({"lun_id":")" + lun + R"(","snapshot_id":")" + newest + "\"}");
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(lab_.good("PUT", lun_path, roll_back("false")), done);
    EXPECT_EQ(this->lun(lun).at("rfer_size").get_int(), 1536);
    EXPECT_EQ(this->lun(lun).at("excl_size").get_int(), 0);
  }
  export_lun(lun);
  EXPECT_EQ(refusal("PUT", lun_path, roll_back("false")), "409 LUN '" + lun + "' is exported");
  lab_.good("PUT", lun_path, roll_back("true"));
  EXPECT_EQ(seen("a"), "1:" + lun) << "it stays exported";
}

TEST_F(SCSI_Pools, what_is_exported_or_has_snapshots_is_deleted_only_by_force) {
  const std::string lun = make_lun();
  export_lun(lun);
  EXPECT_EQ(refusal("DELETE", at(lun_path, "force=false&lun_id=" + lun)),
            "409 LUN '" + lun + "' is exported");
  lab_.good("DELETE", at(export_path, "force=false&lun_id=" + lun));
  const std::string snapshot = make_snapshot(lun);
  EXPECT_EQ(refusal("DELETE", at(lun_path, "lun_id=" + lun)),
            "409 LUN '" + lun + "' has snapshot '" + snapshot + "'");
  share(snapshot);
  EXPECT_EQ(refusal("DELETE", at(lun_path, "lun_id=" + lun)),
            "409 LUN '" + lun + "' has snapshot '" + snapshot + "', which is shared");
  export_lun(lun);
  lab_.good("DELETE", at(lun_path, "force=true&lun_id=" + lun));
  EXPECT_EQ(seen("a"), "");
  EXPECT_EQ(used(), 0);
}

TEST_F(SCSI_Pools, what_was_deleted_is_deleted_again) {
  const std::string lun = make_lun();
  const std::string snapshot = make_snapshot(lun);
  const std::string other = make_snapshot(lun);
  const auto twice = [this](const std::string& target) {
    const Value first = lab_.good("DELETE", target);
    EXPECT_EQ(lab_.good("DELETE", target), first);
  };
  twice(at(snapshot_path, "snapshot_id=" + snapshot));
  twice(at(lun_path, "force=true&lun_id=" + lun));
  twice(at(snapshot_path, "snapshot_id=" + other));
  lab_.good("DELETE", at(export_path, "lun_id=" + lun));
  lab_.good("DELETE", at(share_path, "lun_num=5&snapshot_id=" + other));
  EXPECT_THAT(refusal("GET", at(lun_path, "lun_id=" + lun)), StartsWith("404 "));
  EXPECT_THAT(refusal("DELETE", at(lun_path, "lun_id=" + snapshot)), StartsWith("404 "));
  EXPECT_THAT(refusal("DELETE", at(snapshot_path, "snapshot_id=" + lun)), StartsWith("404 "));
}

// ---- exports

TEST_F(SCSI_Pools, numbers_are_the_lowest_free_on_their_target) {
  const std::string one = make_lun();
  const std::string two = make_lun();
  const std::string three = make_lun();
  EXPECT_EQ(export_lun(one), 1);
  EXPECT_EQ(export_lun(two), 2);
  const std::string snapshot = make_snapshot(one);
  EXPECT_EQ(share(snapshot), 3) << "snapshots have numbers of the same target";
  lab_.good("DELETE", at(export_path, "lun_id=" + one));
  EXPECT_EQ(export_lun(three), 1);
  EXPECT_EQ(export_lun(one), 4);
  EXPECT_EQ(export_lun(two), 2) << "the second one keeps its number";
  EXPECT_EQ(export_lun(make_lun(), other_target + ',' + acls({"a"})), 1) << "another target";
}

TEST_F(SCSI_Pools, exporting_again_keeps_the_number_and_adds_to_the_list) {
  const std::string lun = make_lun();
  const int number = export_lun(lun, acls({"a"}));
  EXPECT_EQ(export_lun(lun, acls({"b", "A"})), number);
  EXPECT_EQ(this->lun(lun).at("acls"), json(R"([{"initiator":"a","host_uuid":"host-A"},
                                               {"initiator":"b","host_uuid":"host-b"}])"));
  EXPECT_EQ(seen("a"), seen("B"));
  EXPECT_EQ(seen("b"), "1:" + lun);
  EXPECT_EQ(seen("c"), "") << "a stranger";
}

TEST_F(SCSI_Pools, an_access_list_grows_by_add) {
  const std::string lun = make_lun(R"("export":true,)" + acls({"a"}));
  const std::string add = body(named("lun_id", lun) + R"(,"action":"add",)" + acls({"b", "c"}));
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(lab_.good("PUT", export_path, add),
              json(R"({"lun_num":1,"type":"iSCSI","target":")" + iscsi_target + R"(",)" +
                   acls({"a", "b", "c"}) + '}'));
  }
  lab_.good("DELETE", at(export_path, "force=true&lun_id=" + lun));
  EXPECT_EQ(refusal("PUT", export_path, add), "409 LUN '" + lun + "' is not exported");
  export_lun(lun, acls({"d"}));
  EXPECT_EQ(seen("a"), "") << "the list went with the export";
}

TEST_F(SCSI_Pools, withdrawing_from_several_hosts_needs_force) {
  const std::string lun = make_lun(R"("export":true,)" + acls({"a", "b"}));
  EXPECT_EQ(refusal("DELETE", at(export_path, "force=false&lun_id=" + lun)),
            "409 LUN '" + lun + "' is exported to several hosts");
  for (int i = 0; i < 2; ++i)
    lab_.good("DELETE", at(export_path, "force=true&lun_id=" + lun));
  EXPECT_EQ(seen("a") + seen("b"), "");
}

TEST_F(SCSI_Pools, a_lun_is_exported_on_one_target) {
  const std::string lun = make_lun();
  EXPECT_EQ(export_lun(lun, other_target + ',' + acls({"a"})), 1);
  EXPECT_EQ(
      export_lun(lun, R"("type":"ISCSI","target":"IQN.2026-11.org.zqpool:OTHER",)" + acls({"a"})),
      1)
      << "case does not matter";
  EXPECT_EQ(this->lun(lun).at("target").get_str(), "iqn.2026-11.org.zqpool:other");
  EXPECT_THAT(refusal("POST", export_path, body(named("lun_id", lun) + ',' + acls({"a"}))),
              HasSubstr("409 LUN '" + lun + "' is exported on target 'iqn"));
}

TEST_F(SCSI_Pools, a_target_serves_one_pool_by_one_transport) {
  const std::string lun = make_lun();
  const auto wanted = [&](const std::string& type, const std::string& target,
                          const std::string& of) {
    return body(named("lun_id", of) + ',' + named("type", type) + ',' + named("target", target) +
                ',' + acls({"a"}));
  };
  EXPECT_EQ(refusal("POST", export_path, wanted("FC", fc_target, lun)),
            "409 target '" + fc_target + "' belongs to another pool");
  EXPECT_EQ(refusal("POST", export_path, wanted("FC", iscsi_target, lun)),
            "409 target '" + iscsi_target + "' is reached by iSCSI");
  export_lun(lun, R"("type":"fc","target":"naa.5",)" + acls({"a"}));
  EXPECT_EQ(this->lun(lun).at("type").get_str(), "FC");
  EXPECT_EQ(refusal("POST", export_path, wanted("iSCSI", "naa.5", make_lun())),
            "409 target 'naa.5' is reached by FC");
  EXPECT_EQ(refusal("POST", export_path, wanted("iSCSI", "naa.5", lun)),
            "409 target 'naa.5' is reached by FC");
}

TEST_F(SCSI_Pools, a_guest_writes_to_what_it_sees) {
  const std::string lun = make_lun(R"("export":true,)" + acls({"a"}));
  share(make_snapshot(lun));
  const auto guest = [](const std::string& initiator, const std::string& number,
                        const std::string& range = R"("offset":0,"length":512)") {
    return R"({"initiator":")" + initiator + R"(","target":")" + iscsi_target + R"(","lun_num":)" +
           number + ',' + range + '}';
  };
  lab_.good("POST", "/zq/lab/write", guest("a", "1"));
  EXPECT_EQ(this->lun(lun).at("rfer_size").get_int(), 512);
  EXPECT_THAT(refusal("POST", "/zq/lab/write", guest("b", "1")), StartsWith("404 initiator 'b'"));
  EXPECT_THAT(refusal("POST", "/zq/lab/write", guest("a", "3")), StartsWith("404 "));
  EXPECT_THAT(refusal("POST", "/zq/lab/write", guest("a", "2")),
              StartsWith("409 a snapshot cannot be written to"));
  EXPECT_THAT(refusal("POST", "/zq/lab/write", guest("a", "1", R"("offset":1,"length":512)")),
              HasSubstr("in blocks of 512"));
  EXPECT_THAT(refusal("POST", "/zq/lab/write", guest("a", "1", R"("offset":0,"length":513)")),
              HasSubstr("in blocks of 512"));
  EXPECT_THAT(refusal("POST", "/zq/lab/write", guest("a", "1", R"("offset":1048576,"length":512)")),
              StartsWith("422 offset"));
}

// ---- snapshots

TEST_F(SCSI_Pools, snapshots_are_numbered_by_lun) {
  const std::string lun = make_lun();
  const std::string other = make_lun();
  make_snapshot(lun);
  make_snapshot(other);
  const std::string second = make_snapshot(lun);
  lab_.good("DELETE", at(snapshot_path, "snapshot_id=" + second));
  make_snapshot(lun);
  std::string seqs;
  for (const Value& each : snapshots("lun_id=" + lun))
    seqs += std::to_string(each.get_obj().at("seq").get_int()) + ' ';
  EXPECT_EQ(seqs, "1 3 ");
  EXPECT_EQ(snapshots("").size(), 3U);
  EXPECT_EQ(this->lun(lun).at("snapshot_count").get_int(), 2);
}

TEST_F(SCSI_Pools, a_snapshot_is_described) {
  const std::string lun = make_lun();
  write(lun, 0, 2048);
  const std::string id = make_snapshot(lun, true);
  write(lun, 512, 1024);
  Object snapshot = this->snapshot(id);
  snapshot.erase("created");
  EXPECT_EQ(Value(snapshot), json(R"({"snapshot_id":")" + id + R"(","pool_id":")" + iscsi_pool +
                                  R"(","parent_id":")" + lun + R"(","seq":1,"recycle":true,
      "lun_size":1048576,"rfer_size":2048,"excl_size":1024})"));
}

TEST_F(SCSI_Pools, a_discard_makes_a_snapshot_smaller_than_the_one_before) {
  const std::string lun = make_lun();
  write(lun, 0, 4096);
  const std::string first = make_snapshot(lun);
  write(lun, 0, 1024, R"(,"discard":true)");
  const std::string second = make_snapshot(lun);
  EXPECT_EQ(snapshot(first).at("rfer_size").get_int(), 4096);
  EXPECT_EQ(snapshot(first).at("excl_size").get_int(), 1024);
  EXPECT_EQ(snapshot(second).at("rfer_size").get_int(), 3072);
}

TEST_F(SCSI_Pools, a_snapshot_shared_twice_is_described_once_for_each_number) {
  const std::string id = make_snapshot(make_lun(R"("export":true)"));
  const int first = share(id, acls({"a"}));
  const int second = share(id, acls({"b"}));
  const int third = share(id, other_target + ',' + acls({"a"}));
  EXPECT_EQ(std::set<int>({first, second, third}), std::set<int>({1, 2, 3}))
      << "no number twice, on whatever target";
  EXPECT_EQ(share(id, acls({"b"})), second) << "the same request again";
  EXPECT_EQ(share(id, acls({"c", "b"})), second) << "one of them sees it already";
  const Array list = snapshots("snapshot_id=" + id);
  ASSERT_EQ(list.size(), 3U);
  std::set<std::string> serials;
  std::set<int> numbers;
  for (const Value& each : list) {
    const Object& share = each.get_obj();
    EXPECT_EQ(share.at("snapshot_id").get_str(), id);
    serials.insert(share.at("vpd_serial_number").get_str());
    numbers.insert(share.at("lun_num").get_int());
  }
  EXPECT_EQ(serials.size(), 3U);
  EXPECT_EQ(numbers.size(), 3U);
  EXPECT_EQ(snapshots("lun_id=" + list[0].get_obj().at("parent_id").get_str()).size(), 3U);
}

TEST_F(SCSI_Pools, a_share_is_withdrawn_by_its_number) {
  const std::string id = make_snapshot(make_lun());
  const int first = share(id, acls({"a"}));
  const int second = share(id, acls({"b"}));
  const std::string serial =
      snapshots("snapshot_id=" + id).at(0).get_obj().at("vpd_serial_number").get_str();
  EXPECT_EQ(refusal("DELETE", at(snapshot_path, "snapshot_id=" + id)),
            "409 snapshot '" + id + "' is shared");
  for (int i = 0; i < 2; ++i) {
    lab_.good("DELETE", at(share_path, "snapshot_id=" + id + "&lun_num=" + std::to_string(first)));
    EXPECT_EQ(seen("a"), "");
    EXPECT_EQ(seen("b"), std::to_string(second) + ':' + id);
  }
  EXPECT_EQ(share(id, acls({"a"})), first);
  EXPECT_EQ(snapshots("snapshot_id=" + id).at(0).get_obj().at("vpd_serial_number").get_str(),
            serial)
      << "the serial number is the same as before";
  lab_.good("DELETE", at(share_path, "lun_num=1&snapshot_id=" + id));
  lab_.good("DELETE", at(share_path, "lun_num=2&snapshot_id=" + id));
  EXPECT_EQ(snapshot(id).count("lun_num"), 0U);
  EXPECT_EQ(snapshot(id).count("vpd_serial_number"), 0U);
  lab_.good("DELETE", at(snapshot_path, "snapshot_id=" + id));
}

TEST_F(SCSI_Pools, the_access_list_of_a_share_grows_by_add) {
  const std::string id = make_snapshot(make_lun());
  const int number = share(id, acls({"a"}));
  const auto add = [&](int to) {
    return body(named("snapshot_id", id) + R"(,"action":"add","lun_num":)" + std::to_string(to) +
                ',' + acls({"b"}));
  };
  lab_.good("PUT", share_path, add(number));
  EXPECT_EQ(seen("b"), std::to_string(number) + ':' + id);
  EXPECT_EQ(refusal("PUT", share_path, add(number + 1)),
            "409 snapshot '" + id + "' is not shared under number " + std::to_string(number + 1));
}

TEST_F(SCSI_Pools, the_last_snapshot_takes_an_empty_lun_along) {
  const std::string lun = make_lun(R"("export":true,)" + acls({"a"}));
  const std::string query = "delete_empty_lun=true&snapshot_id=";
  lab_.good("DELETE", at(snapshot_path, query + make_snapshot(lun)));
  this->lun(lun);  // it is exported
  lab_.good("DELETE", at(export_path, "lun_id=" + lun));
  const std::string last = make_snapshot(lun);
  lab_.good("DELETE", at(snapshot_path, query + last));
  EXPECT_EQ(lab_.good("GET", at(lun_path, "")), json("[]"));
  lab_.good("DELETE", at(snapshot_path, query + last));
  lab_.good("DELETE", at(lun_path, "lun_id=" + lun));
}

TEST_F(SCSI_Pools, fibre_channel_pools_work_the_same) {
  const Object made_lun = made(
      lun_path, body(R"("lun_size":512,"export":true,)" + acls({"0x5001438024000abc"}), fc_pool));
  EXPECT_EQ(made_lun.at("lun_num").get_int(), 1);
  const Value visible = lab_.good("GET", "/zq/lab/visible?initiator=0x5001438024000ABC");
  const Object& seen = visible.get_obj().at("luns").get_array().at(0).get_obj();
  EXPECT_EQ(seen.at("type").get_str(), "FC");
  EXPECT_EQ(seen.at("target").get_str(), fc_target);
  EXPECT_EQ(seen.at("lun_id"), made_lun.at("lun_id"));
}

// ---- the check

TEST_F(SCSI_Pools, the_check_looks_at_everything_and_finds_what_is_wrong) {
  const std::string lun = make_lun(R"("export":true,)" + acls({"a"}));
  const std::string snapshot = make_snapshot(lun);
  share(snapshot);
  EXPECT_EQ(lab_.good("GET", "/zq/lab/check"),
            json(R"({"checked":{"exports":2,"filesystems":0,"volumes":2},"problems":[]})"));
  const auto damaged = [this](const char* damage) {
    service::Transaction transaction = lab_.database().begin(service::Access::write);
    transaction.db().database().exec("PRAGMA ignore_check_constraints=ON");
    transaction.db().database().exec(damage);
    Array problems;
    for (const service::Check& check : lab_.resources().checks)
      check.run(transaction.db(), problems);
    transaction.db().database().exec("PRAGMA ignore_check_constraints=OFF");
    return json_spirit::write(problems);
  };
  EXPECT_THAT(damaged("UPDATE scsi_export SET transport = 'FC' WHERE volume IS NULL"),
              HasSubstr("the target serves two pools or transports"));
  EXPECT_THAT(damaged("UPDATE scsi_export SET pool = (SELECT uuid FROM scsi_pool "
                      "WHERE transport = 'FC')"),
              HasSubstr("the LUN is not in the target's pool"));
  EXPECT_THAT(damaged("UPDATE volume_pool SET used_size = 512"),
              HasSubstr("what is used is reported as 512, is 0"));
}

// ---- scenarios and restarts

/// A state with a bit of everything.
class SCSI_Scenario : public SCSI_Pools {
 protected:
  SCSI_Scenario() {
    const std::string lun = make_lun(R"("export":true,"retention_type":"newest",)" + acls({"a"}));
    write(lun, 0, 8192);
    make_snapshot(lun, true);
    write(lun, 1024, 1024);
    write(lun, 4096, 512, R"(,"discard":true)");
    const std::string gone = make_snapshot(lun);
    write(lun, 2048, 2048);
    const std::string third = make_snapshot(lun);
    lab_.good("DELETE", at(snapshot_path, "snapshot_id=" + gone));
    share(third, acls({"a", "b"}));
    share(third, acls({"c"}));
    share(third, other_target + ',' + acls({"a"}));
    write(lun, 0, 512);
    const Object copy = made(lun_path, body(named("snapshot_id", third) + R"(,"export":true)"));
    const std::string copy_id = copy.at("lun_id").get_str();
    write(copy_id, 1536, 1024);
    made(lun_path, body(named("snapshot_id", make_snapshot(copy_id)) + R"(,"export":false)"));
    lab_.good("DELETE", at(snapshot_path, "snapshot_id=" + make_snapshot(lun)));
  }
  /// All that the service tells about LUNs, snapshots and pools.
  std::string told() {
    std::string out;
    for (const std::string& pool : {iscsi_pool, fc_pool}) {
      for (const std::string& path : {pool_path, lun_path, snapshot_path}) {
        out += json_spirit::write(lab_.good("GET", at(path, "", pool))) + '\n';
      }
    }
    return out;
  }
};

TEST_F(SCSI_Scenario, a_dump_loads_as_the_same_state) {
  const std::string before = told();
  const Object dump = lab_.dump();
  for (int i = 0; i < 2; ++i) {
    lab_.load(dump, true);
    EXPECT_EQ(told(), before);
    EXPECT_EQ(json_spirit::write(lab_.dump()), json_spirit::write(dump));
    EXPECT_EQ(problems(), "[]");
  }
}

TEST_F(SCSI_Scenario, sizes_behave_the_same_after_a_dump_was_loaded) {
  const auto go_on = [this] {
    const std::string lun =
        lab_.good("GET", at(lun_path, "")).get_array().at(0).get_obj().at("lun_id").get_str();
    write(lun, 512, 8192);
    make_snapshot(lun);
    write(lun, 0, 1024, R"(,"discard":true)");
    std::string out;
    for (const Value& each : snapshots("")) {
      const Object& snapshot = each.get_obj();
      out += std::to_string(snapshot.at("seq").get_int()) + ':' +
             std::to_string(snapshot.at("rfer_size").get_int()) + '/' +
             std::to_string(snapshot.at("excl_size").get_int()) + ' ';
    }
    return out + std::to_string(used());
  };
  const Object dump = lab_.dump();
  const std::string expected = go_on();
  lab_.load(dump, true);
  EXPECT_EQ(go_on(), expected);
}

TEST_F(SCSI_Scenario, replacing_clears_all_of_it) {
  lab_.load("{}", true);
  EXPECT_EQ(lab_.good("GET", pool_path), json("[]"));
  lab_.load(scsi_lab(), true);
  EXPECT_EQ(lab_.good("GET", at(lun_path, "")), json("[]"));
  EXPECT_EQ(used(), 0);
}

class SCSI_Scenario_Text : public SCSI_Pools {
 protected:
  /// The refusal of one LUN with these members.
  std::string load(const std::string& more, const std::string& id = unknown) {
    try {
      lab_.load(R"({"luns":[{"lun_id":")" + id + R"(","pool_uuid":")" + iscsi_pool +
                    R"(","lun_size":4096)" + (more.empty() ? "" : "," + more) + "}]}",
                false);
    } catch (const service::Request_Error& error) {
      return std::to_string(error.status()) + ' ' + error.what();
    }
    return "loaded";
  }
  std::string load_pool(const std::string& more) {
    try {
      lab_.load(R"({"scsi_pools":[{)" + more + "}]}", false);
    } catch (const service::Request_Error& error) {
      return std::to_string(error.status()) + ' ' + error.what();
    }
    return "loaded";
  }
};

TEST_F(SCSI_Scenario_Text, a_lun_tells_its_history) {
  const std::string snapshot_id = "00000000-0000-4000-8000-00000000eee1";
  EXPECT_EQ(load(R"("created":"2026-01-01T00:00:00Z","history":[
      {"write":{"offset":0,"length":1024}},
      {"snapshot":{"snapshot_id":")" +
                 snapshot_id + R"(","seq":4,"recycle":true,
        "shares":[{"lun_num":9,)" +
                 acls({"a"}) + R"(}]}},
      {"write":{"offset":512,"length":1024}},{"discard":{"offset":0,"length":512}}],
      "next_seq":7,"export":{)" +
                 acls({"a"}) + "}"),
            "loaded");
  EXPECT_EQ(seen("a"), "1:" + unknown + " 9:" + snapshot_id);
  EXPECT_EQ(snapshot(snapshot_id).at("seq").get_int(), 4);
  EXPECT_EQ(snapshot(snapshot_id).at("rfer_size").get_int(), 1024);
  EXPECT_EQ(lun(unknown).at("rfer_size").get_int(), 1024);
  EXPECT_EQ(used(), 2048);
  EXPECT_EQ(snapshot(make_snapshot(unknown)).at("seq").get_int(), 7);
  // One of the same identity is replaced.
  EXPECT_EQ(load(""), "loaded");
  EXPECT_EQ(lun(unknown).at("rfer_size").get_int(), 0);
  EXPECT_EQ(used(), 0);
}

TEST_F(SCSI_Scenario_Text, what_makes_no_sense_is_refused_with_its_place) {
  EXPECT_EQ(load("", "x"), "422 luns[0].lun_id: \"x\" is not a UUID");
  EXPECT_EQ(load(R"("history":[{}])"),
            "400 luns[0].history[0].write: is missing, and so are discard and snapshot");
  EXPECT_THAT(load(R"("history":[{"write":{},"discard":{}}])"),
              StartsWith("422 luns[0].history[0].discard: cannot be combined"));
  EXPECT_EQ(load(R"("history":[{"write":{"offset":0}}])"),
            "400 luns[0].history[0].write.length: is missing");
  EXPECT_THAT(load(R"("history":[{"write":{"offset":0,"length":512,"x":1}}])"),
              StartsWith("400 luns[0].history[0].write.x"));
  EXPECT_THAT(load(R"("history":[{"write":{"offset":4096,"length":512}}])"),
              StartsWith("422 luns[0].history[0]: offset: "));
  EXPECT_THAT(load(R"("history":["x"])"), StartsWith("400 luns[0].history[0]"));
  EXPECT_THAT(load(R"("next_seq":0)"), StartsWith("422 luns[0]: next_seq"));
  EXPECT_THAT(load(R"("origin":")" + unknown + '"'),
              StartsWith("422 luns[0].origin: no LUN before"));
  EXPECT_THAT(load(R"("export":{"lun_num":16384})"),
              StartsWith("422 luns[0]: a LUN number must be"));
  EXPECT_THAT(load(R"("export":{"lun":1})"), StartsWith("400 luns[0].export.lun"));
  export_lun(make_lun());
  EXPECT_THAT(load(R"("export":{"lun_num":1})"), StartsWith("422 luns[0]: LUN number 1 is taken"));
  lab_.load(scsi_lab(1024), true);
  EXPECT_THAT(load(R"("history":[{"write":{"offset":0,"length":1536}}])"),
              StartsWith("422 luns[0].history[0]: pool '"));
}

TEST_F(SCSI_Scenario_Text, loading_reclaims_nothing) {
  lab_.load(scsi_lab(1024), true);
  const std::string id = R"("snapshot_id":"00000000-0000-4000-8000-00000000eee1")";
  EXPECT_EQ(load(R"("history":[{"write":{"offset":0,"length":1024}},{"snapshot":{)" + id +
                 R"(,"recycle":true}},{"write":{"offset":0,"length":512}}])"),
            "422 luns[0].history[2]: pool '" + iscsi_pool + "' is full");
}

TEST_F(SCSI_Scenario_Text, a_lun_that_others_were_made_from_is_not_replaced) {
  EXPECT_EQ(load(""), "loaded");
  made(lun_path, body(named("snapshot_id", make_snapshot(unknown)) + R"(,"export":false)"));
  EXPECT_THAT(load(""), HasSubstr("is a clone of a snapshot of LUN"));
}

TEST_F(SCSI_Scenario_Text, one_identifier_is_one_lun_in_all_pools) {
  EXPECT_EQ(load(""), "loaded");
  const std::string elsewhere = R"({"luns":[{"lun_id":")" + unknown + R"(","pool_uuid":")" +
                                fc_pool + R"(","lun_size":4096}]})";
  EXPECT_THROW(lab_.load(elsewhere, false), service::Request_Error);
}

TEST_F(SCSI_Scenario_Text, pools_are_checked) {
  const std::string uuid = R"("uuid":")" + iscsi_pool + "\",";
  EXPECT_EQ(load_pool(R"("uuid":")" + unknown + R"(","target":"t","size":1)"),
            "422 scsi_pools[0].uuid: there is no pool '" + unknown + "' of type scsi");
  EXPECT_EQ(load_pool(uuid + R"("target":"t","size":0)"), "422 scsi_pools[0].size: must not be 0");
  EXPECT_THAT(load_pool(uuid + R"("target":"a b","size":1)"),
              StartsWith("422 scsi_pools[0].target"));
  EXPECT_THAT(load_pool(uuid + R"("target":")" + fc_target + R"(","size":1)"),
              StartsWith("422 scsi_pools[0].target: is used already"));
  EXPECT_THAT(load_pool(uuid + R"("target":"t","transport":"SAS","size":1)"),
              StartsWith("422 scsi_pools[0].transport"));
  const std::string lun = make_lun();
  write(lun, 0, 1024);
  EXPECT_THAT(load_pool(uuid + R"("target":"t","size":1023)"),
              StartsWith("422 scsi_pools[0]: pool '" + iscsi_pool + "' has 1024 bytes in use"));
  EXPECT_EQ(load_pool(uuid + R"("target":"t","size":1024)"), "loaded");
  EXPECT_EQ(this->lun(lun).at("rfer_size").get_int(), 1024) << "LUNs stay";
}

TEST_F(SCSI_Scenario_Text, the_example_has_a_lun_whose_sizes_follow_its_history) {
  const S3_Secret secret;
  lab_.load(service::read_scenario(ZQ_EXAMPLES "/scenario.json"), true);
  const std::string pool = "36af74d2-8e19-4a02-9435-6f7081920a09";
  const Value list = lab_.good("GET", at(lun_path, "", pool));
  const Object& lun = list.get_array().at(0).get_obj();
  EXPECT_EQ(lun.at("rfer_size").get_int64(), 402653184);
  EXPECT_EQ(lun.at("excl_size").get_int64(), 67108864);
  EXPECT_EQ(lun.at("lun_num").get_int(), 1);
  const Value snapshots = lab_.good("GET", at(snapshot_path, "", pool));
  EXPECT_EQ(snapshots.get_array().at(0).get_obj().at("excl_size").get_int64(), 134217728);
  EXPECT_EQ(snapshots.get_array().at(1).get_obj().at("rfer_size").get_int64(), 335544320);
}

}  // namespace
}  // namespace zqpool::test
