#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/service/fixtures/lab_service.h"
#include "tests/service/fixtures/resolution_lab.h"

namespace zqpool::service {
namespace {

using json_spirit::Value;
using test::device_uuid;
using test::json;
using test::Lab_Service;
using test::pool_uuid;

const std::string device_path = "/zq/r/storage/catalog/device";
const std::string info_path = device_path + "/info";
const std::string metadata_path = device_path + "/metadata";

class Catalog_Writes : public testing::Test {
 protected:
  /// The body that records a path of pool 1 on a device of it.
  static std::string entry(int device, const std::string& more) {
    return R"({"pool_uuid":")" + pool_uuid(1) + R"(","device_uuid":")" + device_uuid(device) +
           R"(",)" + more + '}';
  }
  Value add(int device, const std::string& more) {
    return lab_.good("POST", metadata_path, entry(device, more));
  }
  std::string refused(const std::string& more) {
    return lab_.refusal("POST", metadata_path, entry(1, more));
  }
  std::int64_t remove(const std::string& rest) {
    const Value answer =
        lab_.good("DELETE", metadata_path + "?pool_uuid=" + pool_uuid(1) + "&path=" + rest);
    return answer.get_obj().at("removed").get_int64();
  }
  /// Names of the devices on which a path lies, each with what was recorded.
  std::string located(const std::string& path) {
    const Value answer =
        lab_.good("PUT", metadata_path,
                  json_spirit::write(Object{{"pool_uuid", pool_uuid(1)}, {"path", path}}));
    std::string out;
    if (answer.get_obj().empty()) return out;
    for (const Value& device : answer.get_obj().at("devices").get_array()) {
      out += (out.empty() ? "" : " ") + device.get_obj().at("name").get_str() +
             json_spirit::write(device.get_obj().at("metadata"));
    }
    return out;
  }

  Lab_Service lab_{test::small_lab()};
};

// ---- add metadata

TEST_F(Catalog_Writes, a_path_is_recorded_and_found) {
  EXPECT_EQ(add(2, R"("file":"/new//x/","size":7,"grouping":"g")"),
            json(R"({"pool_uuid":")" + pool_uuid(1) + R"(","device_uuid":")" + device_uuid(2) +
                 R"(","path":"/new/x","type":"file","size":7,"grouping":"g"})"));
  EXPECT_EQ(located("/new/x"), R"(d2{"grouping":"g","path":"/new/x","size":7,"type":"file"})");
}

TEST_F(Catalog_Writes, a_size_that_is_not_known_is_none) {
  EXPECT_EQ(add(1, R"("file":"/new")"),
            json(R"({"pool_uuid":")" + pool_uuid(1) + R"(","device_uuid":")" + device_uuid(1) +
                 R"(","path":"/new","type":"file"})"));
  EXPECT_EQ(add(1, R"("file":"/new","size":0)").get_obj().at("size"), Value(0));
}

TEST_F(Catalog_Writes, the_member_of_the_path_is_its_type) {
  add(1, R"("dir":"/tree")");
  EXPECT_EQ(located("/tree/below"), R"(d1{"path":"/tree","type":"dir"})");
  add(1, R"("image":"/disk")");
  EXPECT_EQ(located("/disk"), R"(d1{"path":"/disk","type":"image"})");
  EXPECT_EQ(located("/disk/below"), R"(d3{"grouping":"all","path":"/","type":"dir"})");
}

TEST_F(Catalog_Writes, a_second_request_does_what_the_first_did) {
  const Value first = add(1, R"("file":"/new","size":7)");
  const Value state = lab_.dump();
  EXPECT_EQ(add(1, R"("file":"/new","size":7)"), first);
  EXPECT_EQ(Value(lab_.dump()), state);
}

TEST_F(Catalog_Writes, an_entry_is_replaced_and_its_neighbours_stay) {
  add(1, R"("file":"/new","size":7)");
  add(2, R"("file":"/new","size":8)");
  add(1, R"("file":"/new","size":9,"grouping":"g")");
  add(1, R"("file":"/new","size":70)");
  EXPECT_EQ(located("/new"), R"(d1{"path":"/new","size":70,"type":"file"} )"
                             R"(d1{"grouping":"g","path":"/new","size":9,"type":"file"} )"
                             R"(d2{"path":"/new","size":8,"type":"file"})");
}

TEST_F(Catalog_Writes, a_uuid_of_the_other_case_is_the_same) {
  add(1, R"("file":"/new","size":7)");
  lab_.good("POST", metadata_path,
            R"({"pool_uuid":"00000000-0000-4000-8000-00000000A001",
                "device_uuid":"00000000-0000-4000-8000-00000000D001","file":"/new","size":8})");
  EXPECT_EQ(located("/new"), R"(d1{"path":"/new","size":8,"type":"file"})");
}

TEST_F(Catalog_Writes, metadata_that_makes_no_sense_is_refused) {
  const Value before = lab_.dump();
  EXPECT_EQ(refused(R"("size":1)"),
            "400 the path is missing: give it in a member named like its type");
  EXPECT_EQ(refused(R"("file":"/a","dir":"/a")"), "400 two paths are given: 'dir' and 'file'");
  EXPECT_EQ(refused(R"("file":5)"), "400 file: must be a string, not an integer");
  EXPECT_EQ(refused(R"("file":"")"), "422 file: must not be empty");
  EXPECT_EQ(refused(R"("file":"/a/../b")"), "422 file: must not contain '..'");
  EXPECT_EQ(refused(R"("file":"/)" + std::string(4096, 'x') + '"'),
            "422 file: is longer than 4096 bytes");
  EXPECT_EQ(refused(R"("":"/a")"), "422 a path's type must have 1 to 64 bytes, none of them zero");
  EXPECT_EQ(refused(R"("a\u0000b":"/a")"),
            "422 a path's type must have 1 to 64 bytes, none of them zero");
  EXPECT_EQ(refused('"' + std::string(65, 't') + R"(":"/a")"),
            "422 a path's type must have 1 to 64 bytes, none of them zero");
  EXPECT_EQ(refused(R"("file":"/a","size":-1)"), "422 size: must not be negative");
  EXPECT_EQ(refused(R"("file":"/a","size":"1")"), "400 size: must be an integer, not a string");
  EXPECT_EQ(refused(R"("file":"/a","grouping":null)"), "400 grouping: must be a string, not null");
  EXPECT_EQ(lab_.refusal("POST", metadata_path, R"({"device_uuid":"d","file":"/a"})"),
            "400 pool_uuid: is missing");
  EXPECT_EQ(lab_.refusal("POST", metadata_path, R"({"pool_uuid":"p","file":"/a"})"),
            "400 device_uuid: is missing");
  EXPECT_EQ(lab_.refusal("POST", metadata_path, ""), "400 the body is missing");
  EXPECT_EQ(lab_.refusal("POST", metadata_path + "?path=x", entry(1, R"("file":"/a")")),
            "400 query field 'path' is unknown");
  EXPECT_EQ(Value(lab_.dump()), before);
}

TEST_F(Catalog_Writes, metadata_that_contradicts_the_catalog_is_refused) {
  EXPECT_EQ(
      lab_.refusal("POST", metadata_path, R"({"pool_uuid":"p","device_uuid":"d","file":"/a"})"),
      "404 there is no pool 'p'");
  EXPECT_EQ(lab_.refusal("POST", metadata_path, entry(4, R"("file":"/a")")),
            "404 the pool has no device '" + device_uuid(4) + "'");
  EXPECT_EQ(refused(R"("file":"/jobs")"), "409 '/jobs' is recorded with another type");
}

// ---- remove metadata

TEST_F(Catalog_Writes, what_is_recorded_of_a_path_is_removed) {
  EXPECT_EQ(remove("/jobs"), 2);
  EXPECT_EQ(located("/jobs"), R"(d3{"grouping":"all","path":"/","type":"dir"})");
  EXPECT_EQ(located("/jobs/mail/full.img"),
            R"(d2{"path":"/jobs/mail/full.img","size":0,"type":"file"})")
      << "what lies below keeps its own";
  EXPECT_EQ(remove("/jobs"), 0) << "a second request does no harm";
}

TEST_F(Catalog_Writes, a_grouping_narrows_what_is_removed) {
  EXPECT_EQ(remove("/jobs&grouping=monthly"), 0);
  EXPECT_EQ(remove("/jobs&grouping=weekly"), 1);
  EXPECT_EQ(located("/jobs"), R"(d1{"path":"/jobs","size":12,"type":"dir"})");
  add(2, R"("dir":"/jobs","grouping":"weekly")");
  EXPECT_EQ(remove("/jobs&grouping="), 1);
  EXPECT_EQ(located("/jobs"), R"(d2{"grouping":"weekly","path":"/jobs","type":"dir"})");
}

TEST_F(Catalog_Writes, a_path_to_remove_is_tidied) {
  EXPECT_EQ(remove("%2f%2fjobs%2f"), 2);
}

TEST_F(Catalog_Writes, a_removal_with_an_unknown_field_removes_nothing) {
  const Value before = lab_.dump();
  EXPECT_EQ(
      lab_.refusal("DELETE", metadata_path + "?pool_uuid=" + pool_uuid(1) + "&path=/jobs&device=d"),
      "400 query field 'device' is unknown");
  EXPECT_EQ(Value(lab_.dump()), before);
}

TEST_F(Catalog_Writes, a_removal_that_makes_no_sense_is_refused) {
  const std::string pool = "pool_uuid=" + pool_uuid(1);
  EXPECT_EQ(lab_.refusal("DELETE", metadata_path + "?path=/a"),
            "400 query field 'pool_uuid' is missing");
  EXPECT_EQ(lab_.refusal("DELETE", metadata_path + '?' + pool),
            "400 query field 'path' is missing");
  EXPECT_EQ(lab_.refusal("DELETE", metadata_path + '?' + pool + "&path=/a&device_uuid=d"),
            "400 query field 'device_uuid' is unknown");
  EXPECT_EQ(lab_.refusal("DELETE", metadata_path + "?pool_uuid=p&path=/a"),
            "404 there is no pool 'p'");
}

// ---- offer

class Offer : public testing::Test {
 protected:
  /// Name of the offered device, "" for none.
  std::string offered(int pool) {
    const Value answer = lab_.good("GET", info_path + "?pool_uuid=" + pool_uuid(pool));
    return answer.get_obj().empty() ? "" : answer.get_obj().at("name").get_str();
  }
  /// Loads a device of the empty pool 3.
  void device(const std::string& name, const std::string& more) {
    ++devices_;
    lab_.load(R"({"devices":[{"uuid":")" + device_uuid(20 + devices_) + R"(","pool_uuid":")" +
                  pool_uuid(3) + R"(","type":"disk","name":")" + name + R"(","url":"lanfree://)" +
                  name + R"(",)" + more + "}]}",
              false);
  }

  int devices_ = 0;
  Lab_Service lab_{test::small_lab()};
};

TEST_F(Offer, tells_the_device_and_its_pool) {
  EXPECT_EQ(lab_.good("GET", info_path + "?pool_uuid=" + pool_uuid(1)), json(R"({
      "uuid":")" + device_uuid(1) + R"(","pool_uuid":")" + pool_uuid(1) + R"(","name":"d1",
      "type":"disk","role":"master","state":"online","url":"file:///srv/a","path_prefix":"/",
      "size":1000,"used":400,"free":600,"created":"2026-01-02T03:04:06Z",
      "pool_name":"one","pool_type":"file","pool_state":"online","path":""})"));
}

TEST_F(Offer, takes_the_device_with_the_most_room) {
  device("a", R"("size":100,"used":50)");
  device("b", R"("size":90)");
  device("c", R"("size":90)");
  EXPECT_EQ(offered(3), "b") << "the first of equals";
}

TEST_F(Offer, leaves_out_what_takes_no_data) {
  EXPECT_EQ(offered(3), "") << "there is none";
  device("full", R"("size":100,"used":100)");
  device("offline", R"("size":100,"state":"offline")");
  device("readonly", R"("size":100,"state":"readonly")");
  device("declared-full", R"("size":100,"state":"full")");
  device("slave", R"("size":100,"role":"slave")");
  device("bound", R"("size":100,"bound_host":{"host_id":"h","sysname":"s"})");
  EXPECT_EQ(offered(3), "");
  device("good", R"("size":1)");
  EXPECT_EQ(offered(3), "good");
}

TEST_F(Offer, of_a_pool_that_takes_no_data_there_is_none) {
  EXPECT_EQ(offered(2), "") << "it is readonly";
  device("a", R"("size":100)");
  for (const char* state : {"degraded", "offline"}) {
    lab_.load(R"({"pools":[{"uuid":")" + pool_uuid(3) + R"(","name":"three","type":"scsi",
                  "state":")" +
                  state + R"("}]})",
              false);
    EXPECT_EQ(offered(3), std::string(state) == "degraded" ? "a" : "") << state;
  }
}

TEST_F(Offer, goes_to_the_next_device_when_one_is_bound) {
  device("a", R"("size":100)");
  device("b", R"("size":50)");
  EXPECT_EQ(offered(3), "a");
  lab_.good("PUT", device_path + "?uuid=" + device_uuid(21), R"({"host_id":"h","sysname":"s"})");
  EXPECT_EQ(offered(3), "b");
}

TEST_F(Offer, needs_a_pool) {
  EXPECT_EQ(lab_.refusal("GET", info_path), "400 query field 'pool_uuid' is missing");
  EXPECT_EQ(lab_.refusal("GET", info_path + "?pool_uuid=p"), "404 there is no pool 'p'");
  EXPECT_EQ(lab_.refusal("GET", info_path + "?pool_uuid=" + pool_uuid(1) + "&url=u"),
            "400 query field 'url' is unknown");
}

// ---- bind

class Bind : public testing::Test {
 protected:
  Value bind(int device, const std::string& host, const std::string& sysname) {
    return lab_.good("PUT", target(device), body(host, sysname));
  }
  std::string refused(int device, const std::string& host, const std::string& sysname) {
    return lab_.refusal("PUT", target(device), body(host, sysname));
  }
  static std::string target(int device) { return device_path + "?uuid=" + device_uuid(device); }
  static std::string body(const std::string& host, const std::string& sysname) {
    return json_spirit::write(Object{{"host_id", host}, {"sysname", sysname}});
  }
  Value read_back(int device) {
    const Value answer = lab_.good("GET", target(device));
    return answer.get_obj().at("rows").get_array().at(0);
  }

  test::S3_Secret secret_;
  Lab_Service lab_{test::resolution_lab()};
};

TEST_F(Bind, gives_a_device_to_a_host) {
  const Value answer = bind(10, "h1", "db1");
  EXPECT_EQ(answer.get_obj().at("bound_host"), json(R"({"host_id":"h1","sysname":"db1"})"));
  EXPECT_EQ(read_back(10), answer);
  const Value pool = lab_.good("GET", "/zq/r/storages/pool?uuid=" + pool_uuid(7));
  EXPECT_EQ(pool.get_obj()
                .at("storages")
                .get_array()
                .at(1)
                .get_obj()
                .at("extended_attrs")
                .get_obj()
                .at("bound_host"),
            answer.get_obj().at("bound_host"));
}

TEST_F(Bind, a_second_request_does_what_the_first_did) {
  const Value first = bind(10, "h1", "db1");
  EXPECT_EQ(bind(10, "h1", "db1"), first);
  EXPECT_EQ(bind(10, "h1", "renamed").get_obj().at("bound_host"),
            json(R"({"host_id":"h1","sysname":"renamed"})"));
}

TEST_F(Bind, a_device_changes_hands_only_when_it_is_released) {
  EXPECT_EQ(refused(9, "other", "db9"),
            "409 device '" + device_uuid(9) + "' is bound to host '" + test::host_a + "'");
  EXPECT_EQ(bind(9, "", "").get_obj().count("bound_host"), 0U);
  EXPECT_EQ(bind(9, "", "").get_obj().count("bound_host"), 0U);
  EXPECT_EQ(bind(9, "other", "db9").get_obj().at("bound_host"),
            json(R"({"host_id":"other","sysname":"db9"})"));
}

TEST_F(Bind, what_makes_no_sense_is_refused) {
  EXPECT_EQ(refused(1, "h", "s"), "409 device '" + device_uuid(1) + "' is not LAN-free");
  EXPECT_EQ(refused(40, "h", "s"), "404 there is no device '" + device_uuid(40) + "'");
  EXPECT_EQ(refused(10, "h", ""),
            "422 give both host_id and sysname, or leave both empty to release the device");
  EXPECT_EQ(refused(10, "", "s"),
            "422 give both host_id and sysname, or leave both empty to release the device");
  EXPECT_EQ(lab_.refusal("PUT", device_path, body("h", "s")), "400 query field 'uuid' is missing");
  EXPECT_EQ(lab_.refusal("PUT", target(10) + "&force=true", body("h", "s")),
            "400 query field 'force' is unknown");
  EXPECT_EQ(lab_.refusal("PUT", target(10), R"({"host_id":"h"})"), "400 sysname: is missing");
  EXPECT_EQ(lab_.refusal("PUT", target(10), R"({"host_id":"h","sysname":"s","force":true})"),
            "400 force: is unknown");
}

}  // namespace
}  // namespace zqpool::service
