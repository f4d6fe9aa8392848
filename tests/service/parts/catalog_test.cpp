#include "service/catalog/catalog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/service/fixtures/lab_service.h"
#include "tests/service/fixtures/resolution_lab.h"
#include "tests/service/fixtures/small_lab.h"
#include "tests/support/temp_directory.h"

namespace zqpool::service {
namespace {

using json_spirit::Value;
using test::device_uuid;
using test::json;
using test::Lab_Service;
using test::pool_uuid;
using testing::HasSubstr;

class Catalog_Test : public testing::Test {
 protected:
  Response ask(const std::string& method, const std::string& path, const std::string& query,
               const std::string& body = "") {
    return lab_.ask(method, "/zq/r/storage/catalog/" + path + (query.empty() ? "" : "?" + query),
                    body);
  }
  Value get(const std::string& path, const std::string& query) {
    const Response answer = ask("GET", path, query);
    EXPECT_EQ(answer.status, 200U) << answer.body;
    return json(answer.body);
  }
  /// One member of each row, joined by blanks.
  static std::string column(const Value& answer, const std::string& key,
                            const std::string& list = "rows") {
    std::string out;
    for (const Value& row : answer.get_obj().at(list).get_array()) {
      out += (out.empty() ? "" : " ") + row.get_obj().at(key).get_str();
    }
    return out;
  }
  Value info(const std::string& body) {
    const Response answer = ask("POST", "device/info", "", body);
    EXPECT_EQ(answer.status, 200U) << answer.body;
    return json(answer.body);
  }
  Value located(const std::string& path, const std::string& grouping = "",
                const std::string& pool = pool_uuid(1)) {
    Object body{{"pool_uuid", pool}, {"path", path}};
    if (!grouping.empty()) body.emplace("grouping", grouping);
    const Response answer = ask("PUT", "device/metadata", "", json_spirit::write(body));
    EXPECT_EQ(answer.status, 200U) << answer.body;
    return json(answer.body);
  }

  Lab_Service lab_{test::small_lab()};
};

// ---- pools

TEST_F(Catalog_Test, a_pool_is_found_by_its_uuid) {
  EXPECT_EQ(get("pool", "uuid=" + pool_uuid(1)), json(R"({"rows":[{
      "uuid":")" + pool_uuid(1) + R"(","name":"one","type":"file","state":"online",
      "description":"first","created":"2026-01-02T03:04:05Z","device_count":3,
      "size":1500,"used":400,"free":1100}]})"))
      << "a slave adds no room";
}

TEST_F(Catalog_Test, a_uuid_of_the_other_case_is_the_same) {
  std::string upper = pool_uuid(1);
  for (char& c : upper)
    c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  EXPECT_EQ(column(get("pool", "uuid=" + upper), "name"), "one");
}

TEST_F(Catalog_Test, an_unknown_pool_has_no_rows) {
  EXPECT_EQ(get("pool", "uuid=none"), json(R"({"rows":[]})"));
  EXPECT_EQ(get("pool", "uuid="), json(R"({"rows":[]})"));
}

TEST_F(Catalog_Test, all_pools_are_listed_by_uuid) {
  const Value all = get("pool", "");
  EXPECT_EQ(column(all, "name"), "one two three");
  EXPECT_EQ(all.get_obj().count("total"), 0U);
}

TEST_F(Catalog_Test, a_part_of_the_pools_says_how_many_there_are) {
  EXPECT_EQ(column(get("pool", "limit=2"), "name"), "one two");
  EXPECT_EQ(column(get("pool", "limit=2&offset=2"), "name"), "three");
  EXPECT_EQ(column(get("pool", "offset=1"), "name"), "two three");
  EXPECT_EQ(get("pool", "limit=0"), json(R"({"rows":[],"total":3})"));
  EXPECT_EQ(get("pool", "offset=3"), json(R"({"rows":[],"total":3})"));
}

TEST_F(Catalog_Test, queries_that_make_no_sense_are_refused) {
  EXPECT_EQ(ask("GET", "pool", "limit=-1").status, 400U);
  EXPECT_EQ(ask("GET", "pool", "limit=x").status, 400U);
  EXPECT_EQ(ask("GET", "pool", "name=one").status, 400U);
  EXPECT_EQ(ask("GET", "pool", "uuid=1&limit=1").status, 400U);
  EXPECT_EQ(ask("GET", "pool", "uuid=1&uuid=2").status, 400U);
  EXPECT_EQ(ask("GET", "device", "uuid=1&url=2").status, 400U);
  EXPECT_EQ(ask("GET", "device", "uuid=1&pool_uuid=2").status, 400U);
  EXPECT_EQ(ask("GET", "device", "host=2").status, 400U);
}

TEST_F(Catalog_Test, sizes_that_sum_up_beyond_64_bits_stop_at_the_largest) {
  std::string devices;
  for (int i = 0; i < 3; ++i) {
    devices += std::string(i ? "," : "") + R"({"uuid":"00000000-0000-4000-8000-0000000000)" +
               std::to_string(10 + i) + R"(","pool_uuid":")" + pool_uuid(3) +
               R"(","name":"n","type":"disk","url":"file:///big/)" + std::to_string(i) +
               R"(","size":9223372036854775807,"used":4000000000000000000})";
  }
  lab_.load(json(R"({"devices":[)" + devices + "]}").get_obj(), false);
  const Value answer = get("pool", "uuid=" + pool_uuid(3));
  const Object& pool = answer.get_obj().at("rows").get_array().at(0).get_obj();
  EXPECT_EQ(pool.at("size").get_int64(), 9223372036854775807);
  EXPECT_EQ(pool.at("used").get_int64(), 9223372036854775807);
  EXPECT_EQ(pool.at("free").get_int64(), 0);
}

TEST_F(Catalog_Test, sizes_are_summed_exactly) {
  lab_.load(json(R"({"devices":[{"uuid":")" + device_uuid(9) + R"(","pool_uuid":")" + pool_uuid(3) +
                 R"(","name":"n","type":"disk","url":"file:///x",
      "size":8001563222017,"used":5368709120001}]})")
                .get_obj(),
            false);
  const Value answer = get("pool", "uuid=" + pool_uuid(3));
  const Object& pool = answer.get_obj().at("rows").get_array().at(0).get_obj();
  EXPECT_EQ(pool.at("size").get_int64(), 8001563222017);
  EXPECT_EQ(pool.at("used").get_int64(), 5368709120001);
}

// ---- devices

TEST_F(Catalog_Test, a_device_is_found_by_its_uuid) {
  EXPECT_EQ(get("device", "uuid=" + device_uuid(1)), json(R"({"rows":[{
      "uuid":")" + device_uuid(1) + R"(","pool_uuid":")" + pool_uuid(1) +
                                                          R"(","name":"d1",
      "type":"disk","role":"master","state":"online","url":"file:///srv/a","path_prefix":"/",
      "size":1000,"used":400,"free":600,"created":"2026-01-02T03:04:06Z"}]})"));
}

TEST_F(Catalog_Test, a_bound_device_names_its_host) {
  const Value answer = get("device", "uuid=" + device_uuid(4));
  EXPECT_EQ(answer.get_obj().at("rows").get_array().at(0).get_obj().at("bound_host"),
            json(R"({"host_id":"h1","sysname":"db7"})"));
}

TEST_F(Catalog_Test, a_device_is_found_by_its_url) {
  EXPECT_EQ(column(get("device", "url=file%3A%2F%2F%2Fsrv%2Fa"), "name"), "d1");
  EXPECT_EQ(column(get("device", "url=file:///srv/a/"), "name"), "d1");
  EXPECT_EQ(column(get("device", "url=file:///"), "name"), "d3");
  EXPECT_EQ(column(get("device", "url=file:///srv"), "name"), "");
  EXPECT_EQ(column(get("device", "url=nonsense"), "name"), "");
}

TEST_F(Catalog_Test, a_url_in_two_pools_gives_two_rows) {
  EXPECT_EQ(column(get("device", "url=file:///srv/a/inner"), "name"), "d2 d4");
}

TEST_F(Catalog_Test, devices_are_listed_all_or_by_pool) {
  EXPECT_EQ(column(get("device", ""), "name"), "d1 d2 d3 d4");
  EXPECT_EQ(column(get("device", "pool_uuid=" + pool_uuid(1)), "name"), "d1 d2 d3");
  EXPECT_EQ(column(get("device", "pool_uuid=" + pool_uuid(3)), "name"), "");
  const Value part = get("device", "pool_uuid=" + pool_uuid(1) + "&limit=1&offset=1");
  EXPECT_EQ(column(part, "name"), "d2");
  EXPECT_EQ(part.get_obj().at("total").get_int(), 3);
  EXPECT_EQ(get("device", "offset=4"), json(R"({"rows":[],"total":4})"));
}

// ---- device info

TEST_F(Catalog_Test, info_tells_device_pool_and_the_rest_of_the_path) {
  EXPECT_EQ(info(R"({"url":"file:///srv/a/x/y"})"), json(R"({
      "uuid":")" + device_uuid(1) + R"(","pool_uuid":")" +
                                                         pool_uuid(1) + R"(","name":"d1",
      "type":"disk","role":"master","state":"online","url":"file:///srv/a","path_prefix":"/",
      "size":1000,"used":400,"free":600,"created":"2026-01-02T03:04:06Z",
      "pool_name":"one","pool_type":"file","pool_state":"online","path":"/x/y"})"));
}

TEST_F(Catalog_Test, info_takes_the_nearest_device_segment_by_segment) {
  const auto found = [this](const std::string& url) {
    const Value answer =
        info(json_spirit::write(Object{{"url", url}, {"pool_uuid", pool_uuid(1)}}));
    if (answer.get_obj().empty()) return std::string();
    return answer.get_obj().at("name").get_str() + ' ' + answer.get_obj().at("path").get_str();
  };
  EXPECT_EQ(found("file:///srv/a"), "d1 ");
  EXPECT_EQ(found("file:///srv/a///"), "d1 ");
  EXPECT_EQ(found("file:///srv/a/inner"), "d2 ");
  EXPECT_EQ(found("file:///srv/a/inner/z"), "d2 /z");
  EXPECT_EQ(found("file:///srv/a/innermost"), "d1 /innermost");
  EXPECT_EQ(found("file:///srv/ab"), "d3 /srv/ab");
  EXPECT_EQ(found("file:///other"), "d3 /other");
  EXPECT_EQ(found("file:///"), "d3 ");
  EXPECT_EQ(found("s3://host/bucket"), "");
  EXPECT_EQ(found("s3://host"), "");
  EXPECT_EQ(found("file://host/srv/a"), "");
  EXPECT_EQ(found("no url"), "");
  EXPECT_EQ(found("/srv/a"), "");
}

TEST_F(Catalog_Test, info_on_a_url_of_several_pools_needs_the_pool) {
  const Response both = ask("POST", "device/info", "", R"({"url":"file:///srv/a/inner/z"})");
  EXPECT_EQ(both.status, 409U);
  EXPECT_THAT(both.body, HasSubstr(R"("code":-409)"));
  EXPECT_THAT(both.body, HasSubstr("give 'pool_uuid'"));
  EXPECT_EQ(info(R"({"url":"file:///srv/a/inner/z","pool_uuid":")" + pool_uuid(2) + R"("})")
                .get_obj()
                .at("name"),
            Value("d4"));
  EXPECT_EQ(info(R"({"url":"file:///srv/a","pool_uuid":"none"})"), json("{}"));
}

TEST_F(Catalog_Test, info_refuses_a_url_that_is_too_long_to_be_looked_up_part_by_part) {
  const auto refused = [this](std::size_t size) {
    std::string url = "s3://host";
    while (url.size() < size)
      url += "/a";
    url.resize(size, 'a');
    const std::string body = json_spirit::write(Object{{"url", url}});
    return lab_.refusal("POST", "/zq/r/storage/catalog/device/info", body);
  };
  EXPECT_EQ(refused(4096), "200 is not a refusal");
  EXPECT_EQ(refused(4097), "422 url: is longer than 4096 bytes");
}

TEST_F(Catalog_Test, info_refuses_a_body_that_it_cannot_read) {
  for (const char* body : {"", "[]", "{}", R"({"url":5})", R"({"url":"a","pool":"b"})",
                           R"({"url":"a","pool_uuid":null})", "{"}) {
    EXPECT_EQ(ask("POST", "device/info", "", body).status, 400U) << body;
  }
  EXPECT_EQ(ask("POST", "device/info", "", R"({"url":""})").status, 422U);
}

// ---- metadata

TEST_F(Catalog_Test, a_recorded_path_is_found_with_its_devices) {
  const Value answer = located("/jobs");
  EXPECT_EQ(answer.get_obj().at("type"), Value("dir"));
  EXPECT_EQ(column(answer, "name", "devices"), "d1 d2");
  const Array& devices = answer.get_obj().at("devices").get_array();
  EXPECT_EQ(devices.at(0), json(R"({
      "uuid":")" + device_uuid(1) +
                                R"(","pool_uuid":")" + pool_uuid(1) + R"(","name":"d1",
      "type":"disk","role":"master","state":"online","url":"file:///srv/a","path_prefix":"/",
      "size":1000,"used":400,"free":600,"created":"2026-01-02T03:04:06Z",
      "metadata":{"path":"/jobs","type":"dir","size":12}})"));
  EXPECT_EQ(devices.at(1).get_obj().at("metadata"),
            json(R"({"path":"/jobs","type":"dir","grouping":"weekly"})"));
}

TEST_F(Catalog_Test, a_path_below_a_recorded_directory_is_found_by_the_nearest_one) {
  EXPECT_EQ(column(located("/jobs/mail/inc.img"), "name", "devices"), "d1 d2");
  EXPECT_EQ(column(located("/jobs/mail/full.img"), "name", "devices"), "d2");
  EXPECT_EQ(located("/jobs/mail/full.img").get_obj().at("type"), Value("file"));
  EXPECT_EQ(column(located("/other/x"), "name", "devices"), "d3") << "the root is recorded";
  EXPECT_EQ(column(located("/"), "name", "devices"), "d3");
}

TEST_F(Catalog_Test, nothing_lies_below_a_file) {
  EXPECT_EQ(column(located("/jobs/mail/full.img/part"), "name", "devices"), "d1 d2")
      << "the directory above the file";
}

TEST_F(Catalog_Test, a_grouping_narrows) {
  EXPECT_EQ(column(located("/jobs", "weekly"), "name", "devices"), "d2");
  EXPECT_EQ(column(located("/jobs/a", "weekly"), "name", "devices"), "d2");
  EXPECT_EQ(column(located("/jobs/a", "all"), "name", "devices"), "d3") << "only the root has it";
  EXPECT_EQ(located("/jobs", "monthly"), json("{}"));
}

TEST_F(Catalog_Test, an_unknown_path_or_pool_gives_an_empty_object) {
  EXPECT_EQ(located("jobs"), json("{}")) << "not the same as /jobs";
  EXPECT_EQ(located("/jobs", "", pool_uuid(2)), json("{}"));
  EXPECT_EQ(located("/jobs", "", "none"), json("{}"));
}

TEST_F(Catalog_Test, slashes_too_many_do_not_matter) {
  EXPECT_EQ(column(located("//jobs///mail//full.img/"), "name", "devices"), "d2");
}

TEST_F(Catalog_Test, metadata_refuses_a_body_that_it_cannot_read) {
  const auto status = [this](const std::string& body) {
    return ask("PUT", "device/metadata", "", body).status;
  };
  EXPECT_EQ(status(R"({"path":"/a"})"), 400U);
  EXPECT_EQ(status(R"({"pool_uuid":"p"})"), 400U);
  EXPECT_EQ(status(R"({"pool_uuid":"p","path":"/a","grouping":5})"), 400U);
  EXPECT_EQ(status(R"({"pool_uuid":"p","path":"/a","group":"g"})"), 400U);
  EXPECT_EQ(status(R"({"pool_uuid":"p","path":""})"), 422U);
  EXPECT_EQ(status(R"({"pool_uuid":"p","path":"/a/../b"})"), 422U);
  EXPECT_EQ(status(R"({"pool_uuid":"p","path":"../b"})"), 422U);
  EXPECT_EQ(status(R"({"pool_uuid":"p","path":"/a/.."})"), 422U);
  EXPECT_EQ(status(R"({"pool_uuid":"p","path":"/a..b/..c"})"), 200U);
  EXPECT_EQ(status(R"({"pool_uuid":"p","path":"/)" + std::string(4096, 'x') + R"("})"), 422U);
}

TEST_F(Catalog_Test, a_deep_path_is_looked_up_quickly) {
  std::string path;
  for (int i = 0; i < 2047; ++i)
    path += "/x";
  EXPECT_EQ(column(located(path), "name", "devices"), "d3");
}

// ---- scenarios

TEST_F(Catalog_Test, a_dumped_scenario_loads_to_the_same) {
  const Object before = lab_.dump();
  EXPECT_EQ(before.at("pools").get_array().size(), 3U);
  EXPECT_EQ(before.at("devices").get_array().size(), 4U);
  EXPECT_EQ(before.at("metadata").get_array().size(), 4U);
  lab_.load(Object(), true);
  EXPECT_EQ(get("pool", ""), json(R"({"rows":[]})"));
  lab_.load(before, true);
  EXPECT_EQ(Value(lab_.dump()), Value(before));
  lab_.load(before, false);
  EXPECT_EQ(Value(lab_.dump()), Value(before)) << "merged into itself";
}

TEST_F(Catalog_Test, merging_replaces_what_is_named_and_keeps_the_rest) {
  lab_.load(json(R"({"pools":[{"uuid":")" + pool_uuid(2) +
                 R"(","name":"second","type":"hbr"}],
      "metadata":[{"pool_uuid":")" +
                 pool_uuid(1) + R"(","device_uuid":")" + device_uuid(1) +
                 R"(","path":"/jobs/","type":"dir","size":99}]})")
                .get_obj(),
            false);
  EXPECT_EQ(column(get("pool", ""), "name"), "one second three");
  EXPECT_EQ(column(get("device", ""), "name"), "d1 d2 d3 d4") << "the pool's devices stay";
  EXPECT_EQ(located("/jobs")
                .get_obj()
                .at("devices")
                .get_array()
                .at(0)
                .get_obj()
                .at("metadata")
                .get_obj()
                .at("size"),
            Value(99));
}

/// A scenario that is refused, and how.
struct Refused {
  const char* name;
  std::string scenario;  ///< merged into small_lab()
  std::string message;
};

class Scenario_Refusal : public testing::TestWithParam<Refused> {};

TEST_P(Scenario_Refusal, names_the_place_and_keeps_nothing) {
  Lab_Service lab(test::small_lab());
  EXPECT_EQ(lab.scenario_refusal(GetParam().scenario), GetParam().message);
}

std::string pool_entry(const std::string& rest) {
  return R"({"pools":[{"uuid":")" + pool_uuid(8) + R"(","name":"new","type":"file")" + rest + "}]}";
}
std::string device_entry(const std::string& rest, const std::string& pool = pool_uuid(1)) {
  return R"({"devices":[{"uuid":")" + device_uuid(8) + R"(","pool_uuid":")" + pool +
         R"(","name":"new","type":"disk")" + rest + "}]}";
}
std::string metadata_entry(const std::string& rest) {
  return R"({"metadata":[{"pool_uuid":")" + pool_uuid(1) + R"(")" + rest + "}]}";
}

INSTANTIATE_TEST_SUITE_P(
    Each, Scenario_Refusal,
    testing::Values(
        Refused{"unknown_list", R"({"pool":[]})", "400 pool: is unknown"},
        Refused{"list_of_another_type", R"({"pools":{}})",
                "400 pools: must be an array, not an object"},
        Refused{"comment_of_another_type", R"({"comment":1})",
                "400 comment: must be a string, not an integer"},
        Refused{"entry_that_is_no_object", R"({"pools":[5]})", "400 pools[0]: must be an object"},
        Refused{"pool_without_uuid", R"({"pools":[{"name":"n","type":"file"}]})",
                "400 pools[0].uuid: is missing"},
        Refused{"pool_with_a_bad_uuid", R"({"pools":[{"uuid":"x","name":"n","type":"file"}]})",
                "422 pools[0].uuid: \"x\" is not a UUID"},
        Refused{
            "pool_of_an_unknown_type",
            R"({"pools":[{"uuid":")" + pool_uuid(8) + R"(","name":"n","type":"tapes"}]})",
            "422 pools[0].type: \"tapes\" is not one of file, dedup, object, hbr, lanfree, scsi, "
            "image, plain"},
        Refused{"pool_with_an_unknown_state", pool_entry(R"(,"state":"up")"),
                "422 pools[0].state: \"up\" is not one of online, degraded, readonly, offline"},
        Refused{"pool_with_an_unknown_member", pool_entry(R"(,"size":5)"),
                "400 pools[0].size: is unknown"},
        Refused{"pool_with_a_bad_date", pool_entry(R"(,"created":"yesterday")"),
                "422 pools[0].created: must look like 2026-11-21T09:30:00Z"},
        Refused{"pool_with_the_name_of_another",
                R"({"pools":[{"uuid":")" + pool_uuid(8) + R"(","name":"two","type":"file"}]})",
                "422 pools[0].name: another pool is called 'two'"},
        Refused{"pool_given_twice",
                R"({"pools":[{"uuid":")" + pool_uuid(8) + R"(","name":"n","type":"file"},
                             {"uuid":")" +
                    pool_uuid(8) + R"(","name":"m","type":"file"}]})",
                "422 pools[1]: is given twice"},
        Refused{"second_entry_is_bad",
                R"({"pools":[{"uuid":")" + pool_uuid(8) + R"(","name":"n","type":"file"},
                             {"uuid":")" +
                    pool_uuid(9) + R"(","type":"file"}]})",
                "400 pools[1].name: is missing"},
        Refused{"device_of_no_pool", device_entry(R"(,"url":"file:///n","size":1)", pool_uuid(7)),
                "422 devices[0].pool_uuid: there is no pool '" + pool_uuid(7) + "'"},
        Refused{"device_that_moves_to_another_pool",
                R"({"devices":[{"uuid":")" + device_uuid(1) + R"(","pool_uuid":")" + pool_uuid(2) +
                    R"(","name":"n","type":"disk","url":"file:///n","size":1}]})",
                "422 devices[0].pool_uuid: the device belongs to another pool"},
        Refused{"device_without_url", device_entry(R"(,"size":1)"),
                "400 devices[0].url: is missing"},
        Refused{"device_whose_url_is_none", device_entry(R"(,"url":"/srv","size":1)"),
                "422 devices[0].url: is not a URL"},
        Refused{"device_whose_url_has_no_scheme", device_entry(R"(,"url":"://srv","size":1)"),
                "422 devices[0].url: is not a URL"},
        Refused{"device_whose_url_carries_a_password",
                device_entry(R"(,"url":"s3://key:secret@host/b","size":1)"),
                "422 devices[0].url: must not carry a user or password"},
        Refused{"device_with_the_url_of_another",
                device_entry(R"(,"url":"file:///srv/a/","size":1)"),
                "422 devices[0].url: another device of the pool has it"},
        Refused{"device_without_size", device_entry(R"(,"url":"file:///n")"),
                "400 devices[0].size: is missing"},
        Refused{"device_with_a_negative_size", device_entry(R"(,"url":"file:///n","size":-1)"),
                "422 devices[0].size: must not be negative"},
        Refused{"device_used_beyond_its_size",
                device_entry(R"(,"url":"file:///n","size":1,"used":2)"),
                "422 devices[0].used: is more than size"},
        Refused{"device_with_an_unknown_role",
                device_entry(R"(,"url":"file:///n","size":1,"role":"Master")"),
                "422 devices[0].role: \"Master\" is not one of master, slave"},
        Refused{"device_with_a_bad_host",
                device_entry(R"(,"url":"file:///n","size":1,"bound_host":{"host_id":"h"})"),
                "400 devices[0].bound_host.sysname: is missing"},
        Refused{"metadata_of_no_device",
                metadata_entry(R"(,"device_uuid":")" + device_uuid(7) + R"(","path":"/n")"),
                "422 metadata[0].device_uuid: the pool has no device '" + device_uuid(7) + "'"},
        Refused{"metadata_of_another_pools_device",
                metadata_entry(R"(,"device_uuid":")" + device_uuid(4) + R"(","path":"/n")"),
                "422 metadata[0].device_uuid: the pool has no device '" + device_uuid(4) + "'"},
        Refused{"metadata_that_climbs",
                metadata_entry(R"(,"device_uuid":")" + device_uuid(1) + R"(","path":"/a/../b")"),
                "422 metadata[0].path: must not contain '..'"},
        Refused{"metadata_with_two_types_for_a_path",
                metadata_entry(R"(,"device_uuid":")" + device_uuid(3) +
                               R"(","path":"/jobs","type":"file")"),
                "422 metadata[0].type: the path is recorded with another type"},
        Refused{
            "metadata_with_a_negative_size",
            metadata_entry(R"(,"device_uuid":")" + device_uuid(1) + R"(","path":"/n","size":-1)"),
            "422 metadata[0].size: must not be negative"}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(Scenario_File, says_what_is_wrong_with_it) {
  const test::Temp_Directory directory;
  const auto message = [](const std::string& file) -> std::string {
    try {
      read_scenario(file);
    } catch (const Request_Error& error) {
      return error.what();
    }
    return "";
  };
  EXPECT_EQ(message(directory.path("none")), "cannot read it: No such file or directory");
  EXPECT_THAT(message(directory.write("cut", "{\"pools\":[")), HasSubstr("is not JSON: "));
  EXPECT_EQ(message(directory.write("list", "[]")), "must hold an object");
  EXPECT_THAT(message(directory.write("empty", "")), HasSubstr("is not JSON: "));
  EXPECT_EQ(message(directory.path()), "cannot read it: Is a directory");
  EXPECT_EQ(message(directory.write("good", "{}")), "");
}

TEST(Scenario_File, the_example_loads) {
  const test::S3_Secret secret;
  Lab_Service lab;
  lab.load(read_scenario(ZQ_EXAMPLES "/scenario.json"), true);
  const Value answer = lab.good("GET", "/zq/r/storage/catalog/device");
  EXPECT_GE(answer.get_obj().at("rows").get_array().size(), 4U);
}

}  // namespace
}  // namespace zqpool::service
