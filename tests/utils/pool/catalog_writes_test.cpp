#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/any_answer.h"
#include "tests/support/wire_row.h"
#include "utils/pool/pool_metadata_manager.h"

namespace zqpool::test {
namespace {

const std::string metadata = "/zq/r/storage/catalog/device/metadata";
const std::string device = "/zq/r/storage/catalog/device";
const std::string info = "/zq/r/storage/catalog/device/info";

using Call = std::function<Outcome(const Endpoint&)>;

Call add(const std::string& type, const char* grouping, ACE_INT64 size) {
  return [=](const Endpoint& to) {
    return Outcome{Pool_Metadata_Manager::add_metadata(to.host, to.port, to.ssl, "key", "p1", "d1",
                                                       type, "/a/b", grouping, size),
                   {}};
  };
}

Call remove(const std::string& path, const char* grouping) {
  return [=](const Endpoint& to) {
    return Outcome{Pool_Metadata_Manager::remove_metadata(to.host, to.port, to.ssl, "key", "p1",
                                                          path, grouping),
                   {}};
  };
}

Outcome offer(const Endpoint& to) {
  Object offered{{"old", true}};
  const bool result =
      Pool_Metadata_Manager::offer_device(to.host, to.port, to.ssl, "key", "p 1", offered);
  return {result, {{"device", offered}}};
}

Outcome bind(const Endpoint& to) {
  return {Pool_Metadata_Manager::bind_host_for_lanfree_device(to.host, to.port, to.ssl, "key",
                                                              "d/1", "h1", "sys"),
          {}};
}

std::vector<Wire_Row> add_rows() {
  const Expected_Line add_failed = error("Failed to add metadata to pool 'p1'.\n");
  const auto adds = [](const std::string& name, const Call& call, const std::string& body) {
    return Row(name, call)
        .sends("POST", metadata, body)
        .gets(ok(R"({"ignored":1})"))
        .gives(true, "{}");
  };
  return {
      adds("with_all_fields", add("dir", "g", 5),
           R"({"device_uuid":"d1","dir":"/a/b","grouping":"g","pool_uuid":"p1","size":5})"),
      adds("empty_type_is_a_file", add("", nullptr, 0),
           R"({"device_uuid":"d1","file":"/a/b","pool_uuid":"p1","size":0})"),
      adds("with_type_file_is_the_same", add("file", nullptr, 0),
           R"({"device_uuid":"d1","file":"/a/b","pool_uuid":"p1","size":0})"),
      adds("without_a_known_size", add("file", "", -1),
           R"({"device_uuid":"d1","file":"/a/b","grouping":"","pool_uuid":"p1"})"),
      adds("with_the_largest_size", add("file", nullptr, 9223372036854775807),
           R"({"device_uuid":"d1","file":"/a/b","pool_uuid":"p1","size":9223372036854775807})"),
      adds("with_a_type_named_like_a_field_takes_its_place", add("pool_uuid", nullptr, -1),
           R"({"device_uuid":"d1","pool_uuid":"/a/b"})"),
      adds("with_a_type_named_like_a_later_field_gives_way", add("size", nullptr, 3),
           R"({"device_uuid":"d1","pool_uuid":"p1","size":3})"),
      Row("without_an_answer_body", add("", nullptr, -1))
          .sends("POST", metadata, R"({"device_uuid":"d1","file":"/a/b","pool_uuid":"p1"})")
          .gets(http_answer(204, ""))
          .gives(true, "{}"),
      Row("failure_is_not_sent_again", add("", nullptr, -1))
          .sends("POST", metadata, R"({"device_uuid":"d1","file":"/a/b","pool_uuid":"p1"})")
          .gets(http_answer(503, ""))
          .logs(client_error("POST", metadata))
          .logs(add_failed)
          .gives(false, "{}"),
      Row("without_an_answer_is_not_sent_again", add("", nullptr, -1))
          .sends("POST", metadata, R"({"device_uuid":"d1","file":"/a/b","pool_uuid":"p1"})")
          .gets(close_after_request())
          .logs(client_error("POST", metadata))
          .logs(add_failed)
          .gives(false, "{}"),
  };
}

std::vector<Wire_Row> remove_rows() {
  const Expected_Line remove_failed = error("Failed to remove metadata from pool 'p1'.\n");
  return {
      Row("with_grouping", remove("/a b", "g&1"))
          .sends("DELETE", metadata + "?pool_uuid=p1&path=%2fa+b&grouping=g%261")
          .gets(ok("[]"))
          .gives(true, "{}"),
      Row("without_grouping", remove("/a", nullptr))
          .sends("DELETE", metadata + "?pool_uuid=p1&path=%2fa")
          .gets(http_answer(204, ""))
          .gives(true, "{}"),
      Row("with_an_empty_path_and_grouping", remove("", ""))
          .sends("DELETE", metadata + "?pool_uuid=p1&path=&grouping=")
          .gets(http_answer(204, ""))
          .gives(true, "{}"),
      Row("failure_is_not_sent_again", remove("/a", nullptr))
          .sends("DELETE", metadata + "?pool_uuid=p1&path=%2fa")
          .gets(http_answer(502, ""))
          .logs(client_error("DELETE", metadata))
          .logs(remove_failed)
          .gives(false, "{}"),
  };
}

std::vector<Wire_Row> offer_rows() {
  const Expected_Line offer_failed = error("Failed to offer device from pool 'p 1'.\n");
  const auto offers = [](const std::string& name) {
    return Row(name, offer).sends("GET", info + "?pool_uuid=p+1");
  };
  const std::string untouched = R"({"device":{"old":true}})";
  return {
      offers("a_device").gets(ok(R"({"uuid":"d1"})")).gives(true, R"({"device":{"uuid":"d1"}})"),
      offers("nothing").gets(ok("{}")).gives(true, R"({"device":{}})"),
      offers("no_object").gets(ok(R"([{"uuid":"d1"}])")).logs(offer_failed).gives(false, untouched),
      offers("no_body").gets(http_answer(204, "")).logs(offer_failed).gives(false, untouched),
      offers("refused_with_an_object")
          .gets(json_answer(409, R"({"uuid":"d1"})"))
          .logs(client_error("GET", info))
          .logs(offer_failed)
          .gives(false, untouched),
  };
}

std::vector<Wire_Row> bind_rows() {
  const Expected_Line bind_failed = error("Failed to bind host to device 'd/1'.\n");
  return {
      Row("bound", bind)
          .sends("PUT", device + "?uuid=d%2f1", R"({"host_id":"h1","sysname":"sys"})")
          .gets(ok("{}"))
          .gives(true, "{}"),
      Row("refused", bind)
          .sends("PUT", device + "?uuid=d%2f1", R"({"host_id":"h1","sysname":"sys"})")
          .gets(refusal())
          .logs(client_error("PUT", device))
          .logs(bind_failed)
          .gives(false, "{}"),
      Row("body_that_is_no_json", bind)
          .sends("PUT", device + "?uuid=d%2f1", R"({"host_id":"h1","sysname":"sys"})")
          .gets(ok("done"))
          .logs(client_error("PUT", device))
          .logs(bind_failed)
          .gives(false, "{}"),
  };
}

INSTANTIATE_TEST_SUITE_P(Pool_Metadata_Manager_add_metadata, Wire_Table,
                         testing::ValuesIn(plays(add_rows())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(Pool_Metadata_Manager_remove_metadata, Wire_Table,
                         testing::ValuesIn(plays(remove_rows())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(Pool_Metadata_Manager_offer_device, Wire_Table,
                         testing::ValuesIn(plays(offer_rows())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(Pool_Metadata_Manager_bind_host_for_lanfree_device, Wire_Table,
                         testing::ValuesIn(plays(bind_rows())), Wire_Table::name);

TEST(Catalog_Writes_Any_Answer, succeed_exactly_when_the_exchange_does) {
  for (const Call& call : {add("file", "g", 1), remove("/a", "g"), Call(bind)}) {
    for_any_answer("{}", [&](const Endpoint& to, const Any_Answer& answer) {
      EXPECT_EQ(call(to).result, answer.exchange_succeeds());
    });
  }
}

TEST(Catalog_Writes_Any_Answer, offer_takes_any_object_and_nothing_else) {
  for_any_answer(R"({"uuid":"d1"})", [](const Endpoint& to, const Any_Answer& answer) {
    const Outcome got = offer(to);
    const bool good = answer.exchange_succeeds() && answer.value.type() == json_spirit::obj_type;
    EXPECT_EQ(got.result, good);
    EXPECT_EQ(got.outputs.at("device"),
              good ? answer.value : json_spirit::Value(Object{{"old", true}}));
  });
}

}  // namespace
}  // namespace zqpool::test
