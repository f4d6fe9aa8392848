#include "service/catalog/resolution.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/service/fixtures/lab_service.h"
#include "tests/service/fixtures/resolution_lab.h"

namespace zqpool::service {
namespace {

using json_spirit::Value;
using test::device_uuid;
using test::host_a;
using test::host_b;
using test::json;
using test::Lab_Service;
using test::pool_uuid;
using testing::HasSubstr;
using testing::Not;

class Resolution : public testing::Test {
 protected:
  Value pool(int number, const std::string& more = "") {
    return lab_.good("GET", "/zq/r/storages/pool?uuid=" + pool_uuid(number) + more);
  }
  static const Array& storages(const Value& pool) {
    return pool.get_obj().at("storages").get_array();
  }
  static const Object& attributes(const Value& storage) {
    return storage.get_obj().at("extended_attrs").get_obj();
  }
  /// UUIDs' numbers, roles and URLs of the storages: "3 master wss://...".
  static std::string summary(const Value& pool) {
    std::string out;
    for (const Value& storage : storages(pool)) {
      const std::string& uuid = storage.get_obj().at("uuid").get_str();
      out += (out.empty() ? "" : ", ") + std::to_string(std::stoi(uuid.substr(33))) + ' ' +
             attributes(storage).at("role").get_str() + ' ' + storage.get_obj().at("url").get_str();
    }
    return out;
  }
  Value rpc(const std::string& body) { return lab_.good("POST", "/zq/jr", body); }
  /// Code and message of the call's failure.
  std::string rpc_error(const std::string& body) {
    const Value answer = rpc(body);
    const Object& error = answer.get_obj().at("error").get_obj();
    return std::to_string(error.at("code").get_int()) + ' ' + error.at("message").get_str();
  }
  static std::string call(const std::string& params, const std::string& rest = "") {
    return R"({"id":"7","jsonrpc":"2.0","method":"pool.replicate.endpoint.query","params":)" +
           params + rest + '}';
  }

  test::S3_Secret secret_;
  Lab_Service lab_{test::resolution_lab()};
};

// ---- kinds of pools

TEST_F(Resolution, a_file_pool_tells_where_hosts_have_it) {
  EXPECT_EQ(pool(1), json(R"({
      "uuid":")" + pool_uuid(1) +
                          R"(","name":"pool 1","type":"file","state":"online",
      "multidevice":false,"preferred_source_address":"10.0.0.1","storages":[{
        "uuid":")" + device_uuid(1) +
                          R"(","pool_uuid":")" + pool_uuid(1) + R"(","name":"device 1",
        "state":"online","url":"file:///srv/a","extended_attrs":{"role":"master",
          "attached_hosts":{")" +
                          host_a + R"(":"/mnt/a",")" + host_b + R"(":"mnt/b"}}}]})"));
}

TEST_F(Resolution, an_encrypted_pool_tells_cipher_and_keys) {
  EXPECT_EQ(pool(2), json(R"({
      "uuid":")" + pool_uuid(2) +
                          R"(","name":"pool 2","type":"dedup","state":"online",
      "multidevice":false,"encryption":"aes-256-gcm","key":")" +
                          test::lab_data_key + R"(",
      "iv":")" + test::lab_iv +
                          R"(","dedup_backend_type":"rocks",
      "tenant_access_key":")" +
                          test::lab_tenant_key + R"(","storages":[{
        "uuid":")" + device_uuid(2) +
                          R"(","pool_uuid":")" + pool_uuid(2) + R"(","name":"device 2",
        "state":"online","url":"dedups://one.lab:8443/store",
        "extended_attrs":{"role":"master"}}]})"));
}

TEST_F(Resolution, a_pool_on_several_nodes_lists_slaves_first) {
  const Value answer = pool(3);
  EXPECT_EQ(answer.get_obj().at("multidevice"), Value(true));
  EXPECT_EQ(summary(answer),
            "5 slave dedup://n3.lab:9000/store, 3 master wss://n1.lab:9443/store, "
            "4 master dedup://n2.lab/store");
  EXPECT_EQ(attributes(storages(answer).at(1)).at("node_id"), Value(1));
}

TEST_F(Resolution, a_secret_key_is_sealed_for_its_url) {
  const Value answer = pool(4);
  Object keys = attributes(storages(answer).at(0));
  std::string sealed = keys.at("secret_key").get_str();
  EXPECT_NE(sealed, test::lab_secret_key);
  std::string elsewhere = sealed;
  EXPECT_FALSE(decrypt_s3_key("s3v4s://objects.lab/other", elsewhere));
  EXPECT_TRUE(decrypt_s3_key("s3v4s://objects.lab/bucket", sealed));
  EXPECT_EQ(sealed, test::lab_secret_key);
  keys.erase("secret_key");
  EXPECT_EQ(Value(keys), json(R"({"role":"master","vendor":"lab","region":"lab-1",
      "sign_method":"v4","access_key":"LAB-KEY"})"));
  EXPECT_EQ(pool(4), answer) << "sealed once, not each time";
}

TEST_F(Resolution, credentials_for_a_time_and_buckets_are_told) {
  EXPECT_EQ(Value(attributes(storages(pool(5)).at(0))),
            json(R"({"role":"master","use_sts":true,"vendor":"lab"})"));
  EXPECT_EQ(Value(attributes(storages(pool(6)).at(0))),
            json(R"({"role":"master","bucket":"b-7"})"));
}

TEST_F(Resolution, a_lan_free_pool_tells_who_each_device_is_bound_to) {
  const Value answer = pool(7);
  EXPECT_EQ(attributes(storages(answer).at(0)).at("bound_host"),
            json(R"({"host_id":")" + host_a + R"(","sysname":"db7"})"));
  EXPECT_EQ(attributes(storages(answer).at(1)).count("bound_host"), 0U);
}

TEST_F(Resolution, a_pool_without_devices_has_no_storages) {
  EXPECT_EQ(summary(pool(9)), "");
}

// ---- query fields

TEST_F(Resolution, the_asking_host_gets_the_address_to_connect_from) {
  const auto address = [&](const std::string& more) {
    return pool(1, more).get_obj().at("preferred_source_address").get_str();
  };
  EXPECT_EQ(address("&agent_uuid=" + host_a), "10.0.0.7");
  EXPECT_EQ(address("&agent_uuid=AAAAAAAA-0000-4000-8000-000000000001"), "10.0.0.7");
  EXPECT_EQ(address("&agent_uuid=" + host_b), "10.0.0.1");
  EXPECT_EQ(address("&agent_uuid="), "10.0.0.1");
}

TEST_F(Resolution, a_network_gives_the_url_in_it) {
  EXPECT_EQ(summary(pool(8)), "11 master https://store.lab/zq/data/5f3a");
  EXPECT_EQ(summary(pool(8, "&network_id=3")), "11 master http://10.3.0.9:8080/zq/data/5f3a");
  EXPECT_EQ(summary(pool(8, "&network_id=0")), "11 master https://store.lab/zq/data/5f3a");
}

TEST_F(Resolution, a_restore_does_with_the_copy_of_a_node_that_is_offline) {
  EXPECT_EQ(summary(pool(3, "&restore_setting=1")),
            "4 slave dedup://n2.lab/store, 3 master wss://n1.lab:9443/store, "
            "5 master dedup://n3.lab:9000/store");
  EXPECT_EQ(pool(3, "&restore_setting=0"), pool(3));
}

TEST_F(Resolution, a_restore_needs_no_copy_of_what_is_there) {
  lab_.load(R"({"devices":[
      {"uuid":")" +
                device_uuid(20) + R"(","pool_uuid":")" + pool_uuid(9) + R"(","name":"m",
       "type":"disk","url":"ws://m","size":1,"state":"readonly"},
      {"uuid":")" +
                device_uuid(21) + R"(","pool_uuid":")" + pool_uuid(9) + R"(","name":"s",
       "type":"disk","url":"ws://s","size":1,"role":"slave"}]})",
            false);
  EXPECT_EQ(summary(pool(9, "&restore_setting=1")), "21 slave ws://s, 20 master ws://m");
}

TEST_F(Resolution, a_copy_that_is_offline_too_does_not_stand_in) {
  lab_.load(R"({"devices":[
      {"uuid":")" +
                device_uuid(20) + R"(","pool_uuid":")" + pool_uuid(9) + R"(","name":"m",
       "type":"disk","url":"ws://m","size":1,"state":"offline"},
      {"uuid":")" +
                device_uuid(21) + R"(","pool_uuid":")" + pool_uuid(9) + R"(","name":"s",
       "type":"disk","url":"ws://s","size":1,"role":"slave","state":"offline"},
      {"uuid":")" +
                device_uuid(22) + R"(","pool_uuid":")" + pool_uuid(9) + R"(","name":"t",
       "type":"disk","url":"ws://t","size":1,"role":"slave","node_id":7}]})",
            false);
  EXPECT_EQ(summary(pool(9, "&restore_setting=1")),
            "21 slave ws://s, 22 slave ws://t, 20 master ws://m");
}

TEST_F(Resolution, a_server_leaves_out_what_others_serve) {
  EXPECT_EQ(summary(pool(8, "&server_uuid=" + test::server_s)),
            "11 master https://store.lab/zq/data/5f3a");
  EXPECT_EQ(summary(pool(8, "&server_uuid=")), "11 master https://store.lab/zq/data/5f3a");
  EXPECT_EQ(summary(pool(1, "&server_uuid=" + host_b)), "1 master file:///srv/a")
      << "nobody's storage is everybody's";
  EXPECT_EQ(lab_.refusal("GET", "/zq/r/storages/pool?uuid=" + pool_uuid(8) + "&server_uuid=x"),
            "404 server 'x' serves no storage of pool '" + pool_uuid(8) + "'");
}

TEST_F(Resolution, a_pool_is_refused_to_another_account) {
  EXPECT_EQ(summary(pool(2, "&account_uuid=" + test::account_t)),
            "2 master dedups://one.lab:8443/store");
  EXPECT_EQ(summary(pool(2, "&account_uuid=")), "2 master dedups://one.lab:8443/store");
  EXPECT_EQ(summary(pool(1, "&account_uuid=x")), "1 master file:///srv/a");
  EXPECT_EQ(lab_.refusal("GET", "/zq/r/storages/pool?uuid=" + pool_uuid(2) + "&account_uuid=x"),
            "403 pool '" + pool_uuid(2) + "' belongs to another account");
}

TEST_F(Resolution, a_uuid_of_the_other_case_is_the_same) {
  EXPECT_EQ(lab_.good("GET", "/zq/r/storages/pool?uuid=00000000-0000-4000-8000-00000000A001"),
            pool(1));
}

TEST_F(Resolution, questions_that_make_no_sense_are_refused) {
  const auto refusal = [&](const std::string& query) {
    return lab_.refusal("GET", "/zq/r/storages/pool" + query);
  };
  EXPECT_EQ(refusal(""), "400 query field 'uuid' is missing");
  EXPECT_EQ(refusal("?uuid="), "404 there is no pool ''");
  EXPECT_EQ(refusal("?uuid=none"), "404 there is no pool 'none'");
  EXPECT_EQ(refusal("?uuid=none&network_id=-1"),
            "400 query field 'network_id' must be a number, 0 or more");
  EXPECT_EQ(refusal("?uuid=none&restore_setting=yes"),
            "400 query field 'restore_setting' must be 0 or 1");
  EXPECT_EQ(refusal("?uuid=" + pool_uuid(1) + "&device_uuid=x"),
            "400 query field 'device_uuid' is unknown");
}

// ---- JSON-RPC

TEST_F(Resolution, a_replica_is_the_pool_behind_it) {
  const Value answer = rpc(call(R"({"uuid":")" + test::replica_uuid + R"("})"));
  EXPECT_EQ(answer, Value(Object{{"id", "7"}, {"jsonrpc", "2.0"}, {"result", pool(3)}}));
  const Value numbered =
      rpc(R"({"id":7,"jsonrpc":"2.0","method":"pool.replicate.endpoint.query","params":{"uuid":")" +
          test::replica_uuid + R"("}})");
  EXPECT_EQ(numbered.get_obj().at("id"), Value(7));
}

TEST_F(Resolution, failed_calls_have_an_error_and_their_identifier) {
  EXPECT_EQ(rpc(call(R"({"uuid":"none"})")), json(R"({"id":"7","jsonrpc":"2.0",
      "error":{"code":-404,"message":"there is no replica 'none'"}})"));
  EXPECT_EQ(rpc_error(call("{}")), "-32602 params.uuid: is missing");
  EXPECT_EQ(rpc_error(call(R"({"uuid":5})")),
            "-32602 params.uuid: must be a string, not an integer");
  EXPECT_EQ(rpc_error(call(R"({"uuid":""})")), "-32602 params.uuid: must not be empty");
  EXPECT_EQ(rpc_error(call(R"({"uuid":"u","name":"n"})")), "-32602 params.name: is unknown");
  EXPECT_EQ(rpc_error(R"({"id":"7","jsonrpc":"2.0","method":"pool.replicate.endpoint.query"})"),
            "-32602 params.uuid: is missing");
  EXPECT_EQ(rpc_error(R"({"id":"7","jsonrpc":"2.0","method":"pool.delete","params":{}})"),
            "-32601 there is no method 'pool.delete'");
}

TEST_F(Resolution, what_is_no_call_has_no_identifier_either) {
  EXPECT_EQ(rpc("{}"), json(R"({"id":null,"jsonrpc":"2.0",
      "error":{"code":-32600,"message":"id: must be a string or an integer"}})"));
  EXPECT_EQ(rpc_error(R"({"id":null,"jsonrpc":"2.0","method":"m"})"),
            "-32600 id: must be a string or an integer");
  EXPECT_EQ(rpc_error(R"({"id":1,"jsonrpc":"1.0","method":"m"})"), "-32600 jsonrpc: must be 2.0");
  EXPECT_EQ(rpc_error(R"({"id":1,"method":"m"})"), "-32600 jsonrpc: is missing");
  EXPECT_EQ(rpc_error(R"({"id":1,"jsonrpc":"2.0"})"), "-32600 method: is missing");
  EXPECT_EQ(rpc_error(call("[]")), "-32600 params: must be an object, not an array");
  EXPECT_EQ(rpc_error(call("{}", R"(,"auth":1)")), "-32600 auth: is unknown");
}

TEST_F(Resolution, what_is_no_object_is_refused_as_everywhere) {
  EXPECT_EQ(lab_.refusal("POST", "/zq/jr"), "400 the body is missing");
  EXPECT_EQ(lab_.refusal("POST", "/zq/jr", "[]"), "400 the body must be an object, not an array");
  EXPECT_EQ(lab_.refusal("POST", "/zq/jr?x=1", "{}"), "400 query field 'x' is unknown");
}

// ---- scenarios

TEST_F(Resolution, a_dumped_scenario_loads_to_the_same) {
  const Value before = lab_.dump();
  lab_.load("{}", true);
  EXPECT_EQ(lab_.refusal("GET", "/zq/r/storages/pool?uuid=" + pool_uuid(3)),
            "404 there is no pool '" + pool_uuid(3) + "'");
  EXPECT_EQ(rpc_error(call(R"({"uuid":")" + test::replica_uuid + R"("})")),
            "-404 there is no replica '" + test::replica_uuid + "'");
  lab_.load(before.get_obj(), true);
  EXPECT_EQ(Value(lab_.dump()), before);
  lab_.load(before.get_obj(), false);
  EXPECT_EQ(Value(lab_.dump()), before) << "merged into itself";
}

TEST_F(Resolution, a_dumped_scenario_holds_no_secret_key) {
  EXPECT_THAT(json_spirit::write(lab_.dump()), Not(HasSubstr(test::lab_secret_key)));
}

TEST_F(Resolution, a_sealed_key_is_taken_without_the_secret_but_not_under_another) {
  const Object before = lab_.dump();
  set_s3_key_secret("");
  lab_.load(before, true);
  EXPECT_EQ(Value(lab_.dump()), Value(before));
  set_s3_key_secret("another");
  EXPECT_THROW(lab_.load(before, true), Request_Error);
}

struct Bad_Entry {
  const char* name;
  std::string scenario;  ///< merged into resolution_lab()
  std::string message;
};

class Resolution_Refusal : public testing::TestWithParam<Bad_Entry> {};

TEST_P(Resolution_Refusal, names_the_place_and_no_secret) {
  const test::S3_Secret secret;
  Lab_Service lab(test::resolution_lab());
  const std::string message = lab.scenario_refusal(GetParam().scenario);
  EXPECT_EQ(message, GetParam().message);
  EXPECT_THAT(message, Not(HasSubstr("hush")));
}

std::string pool_with(const std::string& more) {
  return R"({"pools":[{"uuid":")" + pool_uuid(20) + R"(","name":"new","type":"file",)" + more +
         "}]}";
}
std::string device_with(const std::string& url, const std::string& more) {
  return R"({"devices":[{"uuid":")" + device_uuid(20) + R"(","pool_uuid":")" + pool_uuid(9) +
         R"(","name":"new","type":"disk","size":1,"url":")" + url + R"(",)" + more + "}]}";
}

INSTANTIATE_TEST_SUITE_P(
    Each, Resolution_Refusal,
    testing::Values(
        Bad_Entry{"key_that_is_no_base64", pool_with(R"("key":"hush!")"),
                  "422 pools[0].key: is not Base64"},
        Bad_Entry{"iv_of_another_type", pool_with(R"("iv":5)"),
                  "400 pools[0].iv: must be a string, not an integer"},
        Bad_Entry{"unknown_cipher", pool_with(R"("encryption":"rot-13")"),
                  "422 pools[0].encryption: \"rot-13\" is not a known cipher"},
        Bad_Entry{"multidevice_of_another_type", pool_with(R"("multidevice":1)"),
                  "400 pools[0].multidevice: must be true or false, not an integer"},
        Bad_Entry{"source_address_of_another_type", pool_with(R"("source_addresses":{"h":5})"),
                  "400 pools[0].source_addresses.h: must be a string, not an integer"},
        Bad_Entry{"node_that_needs_more_than_32_bits",
                  device_with("ws://n", R"("node_id":4294967296)"),
                  "422 devices[0].node_id: is above 4294967295"},
        Bad_Entry{"hosts_attached_to_what_is_no_directory",
                  device_with("ws://n", R"("attached_hosts":{})"),
                  "422 devices[0].attached_hosts: is for devices with a file:// URL"},
        Bad_Entry{"host_attached_nowhere", device_with("file:///n", R"("attached_hosts":{"h":""})"),
                  "422 devices[0].attached_hosts.h: must not be empty"},
        Bad_Entry{"bucket_of_what_is_no_object_store", device_with("s3x://n", R"("bucket":"b")"),
                  "422 devices[0].bucket: is for devices with the URL of an object store"},
        Bad_Entry{"access_key_alone", device_with("s3://n/b", R"("access_key":"a")"),
                  "422 devices[0].access_key: must be given together with secret_key"},
        Bad_Entry{"secret_key_alone", device_with("s3://n/b", R"("secret_key":"hush")"),
                  "422 devices[0].access_key: must be given together with secret_key"},
        Bad_Entry{"secret_key_twice",
                  device_with("s3://n/b", R"("secret_key":"hush","sealed_secret_key":"hush")"),
                  "422 devices[0].sealed_secret_key: cannot be combined with secret_key"},
        Bad_Entry{"key_sealed_by_somebody_else",
                  device_with("s3://n/b", R"("access_key":"a","sealed_secret_key":"aHVzaA==")"),
                  "422 devices[0].sealed_secret_key: was not encrypted for this URL with this "
                  "secret"},
        Bad_Entry{"sealed_key_that_is_no_base64",
                  device_with("s3://n/b", R"("access_key":"a","sealed_secret_key":"hush!")"),
                  "422 devices[0].sealed_secret_key: is not Base64"},
        Bad_Entry{"sealed_for_two_urls",
                  device_with("s3://n/b", R"("access_key":"a","secret_key":"hush",
                              "network_urls":{"1":"s3://m/b"})"),
                  "422 devices[0].network_urls: cannot be combined with a secret key, which is "
                  "encrypted for one URL"},
        Bad_Entry{"network_without_a_number",
                  device_with("ws://n", R"("network_urls":{"one":"ws://m"})"),
                  "422 devices[0].network_urls.one: is not a network number"},
        Bad_Entry{"network_with_two_ways_to_write_it",
                  device_with("ws://n", R"("network_urls":{"01":"ws://m"})"),
                  "422 devices[0].network_urls.01: is not a network number"},
        Bad_Entry{"network_url_that_is_none", device_with("ws://n", R"("network_urls":{"1":"m"})"),
                  "422 devices[0].network_urls.1: is not a URL"},
        Bad_Entry{"network_url_that_carries_a_password",
                  device_with("ws://n", R"("network_urls":{"1":"ws://u:hush@m"})"),
                  "422 devices[0].network_urls.1: must not carry a user or password"},
        Bad_Entry{"replica_of_no_pool",
                  R"({"replicas":[{"uuid":")" + pool_uuid(30) + R"(","pool_uuid":")" +
                      pool_uuid(31) + R"("}]})",
                  "422 replicas[0].pool_uuid: there is no pool '" + pool_uuid(31) + "'"},
        Bad_Entry{"replica_with_more",
                  R"({"replicas":[{"uuid":")" + pool_uuid(30) + R"(","pool_uuid":")" +
                      pool_uuid(1) + R"(","name":"n"}]})",
                  "400 replicas[0].name: is unknown"}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(Resolution_Without_Secret, refuses_a_clear_secret_key) {
  Lab_Service lab;
  EXPECT_EQ(lab.scenario_refusal(test::resolution_lab()),
            "422 devices[5].secret_key: cannot be encrypted without --s3-secret-file");
}

}  // namespace
}  // namespace zqpool::service
