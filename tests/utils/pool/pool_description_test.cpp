#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/crypto/s3_key.h"
#include "platform/host/host_id.h"
#include "platform/host/host_manager.h"
#include "platform/host/websocket_options.h"
#include "platform/json/json_spirit.h"
#include "tests/support/guards.h"
#include "tests/support/log_capture.h"
#include "tests/support/secrets.h"
#include "utils/pool/storage_pool_helpers.h"
#include "utils/support/uri_util.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using zqpool::test::Log_Capture;

Object object(const std::string& text) {
  json_spirit::Value value;
  EXPECT_TRUE(json_spirit::read(text, value)) << text;
  return value.get_obj();
}

/// A description with these storages.
Object pool_of(const std::string& storages) {
  return object(R"({"storages":[)" + storages + "]}");
}

json_spirit::Value record_of(const Pool_Info& info) {
  Object record;
  info >> record;
  return record;
}

/// Parses into a record, and keeps what was logged at LM_ERROR.
class Pool_Description : public testing::Test {
 protected:
  ~Pool_Description() override {
    WebSocket_Options::clear();
    Host_ID::instance()->set("");
    Host_Manager::instance()->access_key("");
    set_s3_key_secret("");
  }

  bool parse(const Object& pool, const char* host_uuid = nullptr,
             const char* device_uuid = nullptr) {
    Pool_Info in_silence = info;
    try {
      const zqpool::test::Log_Silence silence;
      parse_pool_info(pool, in_silence, host_uuid, device_uuid);
    } catch (const std::runtime_error&) {
      // The test will meet it, too.
    }
    Log_Capture log;
    const bool result = parse_pool_info(pool, info, host_uuid, device_uuid);
    EXPECT_TRUE(record_of(in_silence) == record_of(info)) << "what is logged must not matter";
    messages = log.texts("LM_ERROR");
    EXPECT_EQ(log.lines().size(), messages.size());
    return result;
  }
  bool parse(const std::string& storages, const char* host_uuid = nullptr,
             const char* device_uuid = nullptr) {
    return parse(pool_of(storages), host_uuid, device_uuid);
  }

  Pool_Info info;
  std::vector<std::string> messages;
};

TEST(Scheme, each_family_takes_its_pairs_and_no_other_url) {
  struct {
    const char* url;
    bool dedup, s3, hbr, lanfree;
  } const rows[] = {
      {"dedup://h", true, false, false, false},   {"dedups://h", true, false, false, false},
      {"ws://h", true, false, false, false},      {"wss://h", true, false, false, false},
      {"s3://h", false, true, false, false},      {"s3s://h", false, true, false, false},
      {"s3v4://h", false, true, false, false},    {"s3v4s://h", false, true, false, false},
      {"oss://h", false, true, false, false},     {"osss://h", false, true, false, false},
      {"obs://h", false, true, false, false},     {"obss://h", false, true, false, false},
      {"kss://h", false, true, false, false},     {"ksss://h", false, true, false, false},
      {"ufile://h", false, true, false, false},   {"ufiles://h", false, true, false, false},
      {"cos://h", false, true, false, false},     {"coss://h", false, true, false, false},
      {"scs://h", false, true, false, false},     {"scss://h", false, true, false, false},
      {"blob://h", false, true, false, false},    {"blobs://h", false, true, false, false},
      {"hbr://h", false, true, true, false},      {"hbrs://h", false, true, true, false},
      {"lanfree://h", false, false, false, true}, {"lanfrees://h", false, false, false, true},
      {"file:///p", false, false, false, false},  {"http://h", false, false, false, false},
      {"", false, false, false, false},           {"s3:/h", false, false, false, false},
      {" s3://h", false, false, false, false},    {"S3://h", false, false, false, false},
      {"lanfree:/h", false, false, false, false}, {"lanfrees:/h", false, false, false, false},
      {"dedup:/h", false, false, false, false},   {"dedups:/h", false, false, false, false},
      {"ws:/h", false, false, false, false},      {"blobs:/h", false, false, false, false},
      {"HBR://h", false, false, false, false},    {nullptr, false, false, false, false},
  };
  for (const auto& row : rows) {
    const std::string name = row.url != nullptr ? row.url : "null";
    EXPECT_EQ(is_dedup_uri(row.url), row.dedup) << name;
    EXPECT_EQ(is_s3_uri(row.url), row.s3) << name;
    EXPECT_EQ(is_hbr_url(row.url), row.hbr) << name;
    EXPECT_EQ(is_lanfree_uri(row.url), row.lanfree) << name;
  }
}

TEST(Scheme, scss_counts_with_one_slash_and_scs_does_not) {
  EXPECT_TRUE(is_s3_uri("scss:/anything"));
  EXPECT_TRUE(is_s3_uri("scss:/"));
  EXPECT_FALSE(is_s3_uri("scss:"));
  EXPECT_FALSE(is_s3_uri("scs:/anything"));
}

TEST(Host_Uuid_In_Storage, wants_every_level_with_its_type) {
  const char* good = R"({"extended_attrs":{"bound_host":{"host_id":"h1"}}})";
  EXPECT_TRUE(host_uuid_in_storage(object(good), "h1"));
  EXPECT_FALSE(host_uuid_in_storage(object(good), "h2"));
  EXPECT_FALSE(host_uuid_in_storage(object(good), "H1"));
  EXPECT_FALSE(host_uuid_in_storage(object(good), ""));
  EXPECT_FALSE(host_uuid_in_storage(object(good), nullptr));
  for (const char* bad :
       {"{}", R"({"extended_attrs":[]})", R"({"extended_attrs":{}})",
        R"({"extended_attrs":{"bound_host":"h1"}})", R"({"extended_attrs":{"bound_host":{}}})",
        R"({"extended_attrs":{"bound_host":{"host_id":1}}})",
        R"({"bound_host":{"host_id":"h1"}})"}) {
    EXPECT_FALSE(host_uuid_in_storage(object(bad), "h1")) << bad;
  }
}

TEST(Storage_Role, is_master_unless_the_storage_says_otherwise) {
  Log_Capture log;
  EXPECT_EQ(get_storage_role(object("{}")), "master");
  EXPECT_EQ(get_storage_role(object(R"({"role":"slave"})")), "master");
  EXPECT_EQ(get_storage_role(object(R"({"extended_attrs":"slave"})")), "master");
  EXPECT_EQ(get_storage_role(object(R"({"extended_attrs":{}})")), "master");
  EXPECT_EQ(get_storage_role(object(R"({"extended_attrs":{"role":1}})")), "master");
  EXPECT_EQ(get_storage_role(object(R"({"extended_attrs":{"role":"master"}})")), "master");
  EXPECT_EQ(get_storage_role(object(R"({"extended_attrs":{"role":"slave"}})")), "slave");
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(Storage_Role, another_word_is_logged_with_the_whole_storage) {
  for (const char* role : {"Master", "SLAVE", "", "master "}) {
    Log_Capture log;
    const std::string text =
        std::string(R"({"extended_attrs":{"role":")") + role + R"("},"uuid":"u"})";
    EXPECT_EQ(get_storage_role(object(text)), "");
    EXPECT_THAT(log.texts("LM_ERROR"), ElementsAre("Failed to get storage role: " + text + "\n"));
  }
}

TEST_F(Pool_Description, pool_wide_members_are_read_without_storages) {
  EXPECT_TRUE(parse(object(R"({"key":"AAEC/w==","iv":"/wA=","encryption":"aes-256-gcm",
    "multidevice":true,"dedup_backend_type":"b","tenant_access_key":"t","name":"n",
    "preferred_source_address":"10.0.0.9"})")));
  EXPECT_EQ(info.key, std::string("\0\1\2\xff", 4));
  EXPECT_EQ(info.iv, std::string("\xff\0", 2));
  EXPECT_EQ(info.cipher, ENCRYPT_AES_256_GCM);
  EXPECT_TRUE(info.multidevice);
  EXPECT_EQ(info.dedup_backend_type, "b");
  EXPECT_EQ(info.tenant_access_key, "t");
  EXPECT_EQ(info.name, "n");
  EXPECT_EQ(info.preferred_source_address, "10.0.0.9");
  EXPECT_EQ(info.url, "");
  EXPECT_EQ(info.uuid, "");
  EXPECT_THAT(messages, IsEmpty());
}

TEST_F(Pool_Description, absent_members_leave_their_fields_but_multidevice_becomes_false) {
  info.key = "k";
  info.iv = "i";
  info.cipher = ENCRYPT_SM2;
  info.multidevice = true;
  info.name = "n";
  info.tenant_access_key = "t";
  info.dedup_backend_type = "b";
  info.preferred_source_address = "p";
  info.url = "u";
  info.uuid = "id";
  EXPECT_TRUE(parse(object(R"({"key":1,"iv":null,"encryption":[],"multidevice":"true",
    "dedup_backend_type":{},"tenant_access_key":2,"name":false,"preferred_source_address":3,
    "storages":{}})")));
  EXPECT_EQ(info.key, "k");
  EXPECT_EQ(info.iv, "i");
  EXPECT_EQ(info.cipher, ENCRYPT_SM2);
  EXPECT_FALSE(info.multidevice);
  EXPECT_EQ(info.name, "n");
  EXPECT_EQ(info.tenant_access_key, "t");
  EXPECT_EQ(info.dedup_backend_type, "b");
  EXPECT_EQ(info.preferred_source_address, "p");
  EXPECT_EQ(info.url, "u");
  EXPECT_EQ(info.uuid, "id");
}

TEST_F(Pool_Description, invalid_base64_counts_as_absent) {
  info.key = "k";
  info.iv = "i";
  EXPECT_TRUE(parse(object(R"({"key":"!!","iv":"AAE"})")));
  EXPECT_EQ(info.key, "k");
  EXPECT_EQ(info.iv, "i");
}

TEST_F(Pool_Description, an_unknown_cipher_name_is_kept_as_unknown) {
  EXPECT_TRUE(parse(object(R"({"encryption":"rot13"})")));
  EXPECT_EQ(info.cipher, ENCRYPT_UNKNOWN);
}

TEST_F(Pool_Description, empty_storages_fail) {
  EXPECT_FALSE(parse(""));
  EXPECT_THAT(messages, ElementsAre("'storages' is empty.\n"));
}

TEST_F(Pool_Description, storages_without_an_object_fail) {
  EXPECT_FALSE(parse(R"(1,"two",[3],null)"));
  EXPECT_THAT(messages, ElementsAre("Failed to get storage.\n"));
}

TEST_F(Pool_Description, the_wanted_device_is_taken_whatever_its_role_or_binding) {
  const char* storages = R"(
    {"uuid":"d1","url":"dedup://a","pool_uuid":"p1"},
    5,
    {"uuid":"d2","url":"lanfree://b","pool_uuid":"p2",
     "extended_attrs":{"role":"odd","bound_host":{"host_id":"other"}}})";
  EXPECT_TRUE(parse(storages, "h1", "d2"));
  EXPECT_EQ(info.url, "lanfree://b");
  EXPECT_EQ(info.uuid, "p2");
  EXPECT_THAT(messages, IsEmpty());
}

TEST_F(Pool_Description, a_missing_device_fails_although_there_is_a_master) {
  EXPECT_FALSE(
      parse(R"({"url":"dedup://a","pool_uuid":"p"},{"uuid":7}, {"uuid":"D1"})", nullptr, "d1"));
  EXPECT_THAT(messages, ElementsAre("Failed to get device with uuid d1.\n"));
  EXPECT_EQ(info.url, "");
}

TEST_F(Pool_Description, an_empty_device_is_none) {
  EXPECT_TRUE(parse(R"({"uuid":"d1","url":"dedup://a","pool_uuid":"p"})", nullptr, ""));
  EXPECT_EQ(info.url, "dedup://a");
}

TEST_F(Pool_Description, the_first_master_is_taken_before_slaves) {
  EXPECT_TRUE(parse(R"({"url":"dedup://slave","pool_uuid":"p","extended_attrs":{"role":"slave"}},
                       {"url":"dedup://m1","pool_uuid":"p","extended_attrs":{"role":"master"}},
                       {"url":"dedup://m2","pool_uuid":"p"})"));
  EXPECT_EQ(info.url, "dedup://m1");
}

TEST_F(Pool_Description, with_slaves_alone_the_first_object_is_taken) {
  EXPECT_TRUE(parse(R"(null,{"url":"dedup://s1","pool_uuid":"p","extended_attrs":{"role":"slave"}},
                            {"url":"dedup://s2","pool_uuid":"p","extended_attrs":{"role":"slave"}})"));
  EXPECT_EQ(info.url, "dedup://s1");
}

TEST_F(Pool_Description, a_bad_role_is_logged_and_is_no_master) {
  EXPECT_TRUE(parse(R"({"url":"dedup://odd","pool_uuid":"p","extended_attrs":{"role":"Master"}},
                       {"url":"dedup://m","pool_uuid":"p"})"));
  EXPECT_EQ(info.url, "dedup://m");
  EXPECT_THAT(messages,
              ElementsAre("Failed to get storage role: {\"extended_attrs\":{\"role\":\"Master\"},"
                          "\"pool_uuid\":\"p\",\"url\":\"dedup://odd\"}\n"));
}

TEST_F(Pool_Description, a_lanfree_storage_is_for_its_bound_host) {
  const char* storages = R"(
    {"url":"lanfree://a","pool_uuid":"p","extended_attrs":{"bound_host":{"host_id":"h1"}}},
    {"url":"lanfrees://b","pool_uuid":"p","extended_attrs":{"bound_host":{"host_id":"h2"},"role":"slave"}},
    {"url":"dedup://c","pool_uuid":"p"})";
  EXPECT_TRUE(parse(storages, "h1"));
  EXPECT_EQ(info.url, "lanfree://a");
  EXPECT_TRUE(parse(storages, "h2"));
  EXPECT_EQ(info.url, "lanfrees://b");
  EXPECT_TRUE(parse(storages, "h3"));
  EXPECT_EQ(info.url, "dedup://c");
}

TEST_F(Pool_Description, a_lanfree_storage_of_another_host_is_taken_when_nothing_else_qualifies) {
  EXPECT_TRUE(parse(
      R"({"url":"lanfree://a","pool_uuid":"p","extended_attrs":{"bound_host":{"host_id":"other"}}})",
      "h1"));
  EXPECT_EQ(info.url, "lanfree://a");
}

TEST_F(Pool_Description, without_a_host_a_lanfree_storage_is_judged_by_its_role) {
  const char* storages = R"(
    {"url":"lanfree://slave","pool_uuid":"p","extended_attrs":{"role":"slave"}},
    {"url":"lanfree://master","pool_uuid":"p","extended_attrs":{"bound_host":{"host_id":"other"}}})";
  EXPECT_TRUE(parse(storages, nullptr));
  EXPECT_EQ(info.url, "lanfree://master");
  EXPECT_TRUE(parse(storages, ""));
  EXPECT_EQ(info.url, "lanfree://master");
}

TEST_F(Pool_Description, url_and_pool_uuid_are_both_needed_and_url_is_read_first) {
  info.uuid = "before";
  EXPECT_FALSE(parse(R"({"pool_uuid":"p"})"));
  EXPECT_THAT(messages, ElementsAre("No 'url' or 'pool_uuid' in storage object.\n"));
  EXPECT_EQ(info.uuid, "before");
  EXPECT_FALSE(parse(R"({"url":"dedup://a","pool_uuid":1})"));
  EXPECT_THAT(messages, ElementsAre("No 'url' or 'pool_uuid' in storage object.\n"));
  EXPECT_EQ(info.url, "dedup://a");
  EXPECT_EQ(info.uuid, "before");
}

TEST_F(Pool_Description, a_url_that_does_not_parse_fails_whatever_its_prefix) {
  EXPECT_FALSE(parse(R"({"url":"no url","pool_uuid":"p"})"));
  EXPECT_THAT(messages, ElementsAre("Failed to parse url: no url\n"));
  EXPECT_FALSE(parse(R"({"url":"s3://h:99999/b","pool_uuid":"p"})"));
  EXPECT_THAT(messages, ElementsAre("Failed to parse url: s3://h:99999/b\n"));
}

TEST_F(Pool_Description, a_url_with_a_zero_byte_is_no_url) {
  EXPECT_FALSE(parse(R"({"url":"dedup://a\u0000b","pool_uuid":"p"})"));
  EXPECT_THAT(messages, ElementsAre("Failed to parse url: dedup://a\n"));
}

TEST_F(Pool_Description, another_url_is_taken_as_it_is) {
  EXPECT_TRUE(parse(R"({"url":"https://h:1/x","pool_uuid":"p"})"));
  EXPECT_EQ(info.url, "https://h:1/x");
  EXPECT_EQ(info.uuid, "p");
  EXPECT_THAT(info.ext_attrs, IsEmpty());
  EXPECT_THAT(info.node_addrs, IsEmpty());
}

// --- S3 family --------------------------------------------------------------------------------

TEST_F(Pool_Description, s3_needs_extended_attributes) {
  EXPECT_FALSE(parse(R"({"url":"s3://b","pool_uuid":"p"})"));
  EXPECT_THAT(messages, ElementsAre("No 'extended_attrs' in storage.\n"));
}

TEST_F(Pool_Description, s3_keys_are_taken_and_the_secret_is_deciphered) {
  set_s3_key_secret("process secret");
  std::string sealed = "clear secret";
  zqpool::test::Secrets::add(sealed);
  ASSERT_TRUE(encrypt_s3_key("s3s://h/b", sealed));
  zqpool::test::Secrets::add(sealed);
  EXPECT_TRUE(parse(R"({"url":"s3s://h/b","pool_uuid":"p","extended_attrs":{"vendor":"v",
    "region":"r","sign_method":"v4","access_key":"AK","secret_key":")" +
                    sealed + R"("}})"));
  EXPECT_THAT(info.ext_attrs, ElementsAre(Pair("access_key", "AK"), Pair("region", "r"),
                                          Pair("secret_key", "clear secret"),
                                          Pair("sign_method", "v4"), Pair("vendor", "v")));
}

TEST_F(Pool_Description, s3_keys_may_be_missing_in_two_ways) {
  const char* message =
      "Invalid storage info from backupd of s3 pool p: no access_key or secret_key\n";
  info.ext_attrs["vendor"] = "old";
  EXPECT_FALSE(
      parse(R"({"url":"s3://b","pool_uuid":"p","extended_attrs":{"secret_key":"s","region":5}})"));
  EXPECT_THAT(messages, ElementsAre(message));
  EXPECT_THAT(info.ext_attrs,
              ElementsAre(Pair("region", ""), Pair("sign_method", ""), Pair("vendor", "")));
  EXPECT_FALSE(parse(R"({"url":"s3://b","pool_uuid":"p","extended_attrs":{"access_key":"AK"}})"));
  EXPECT_THAT(messages, ElementsAre(message));
  EXPECT_EQ(info.ext_attrs.count("access_key"), 1U);
  EXPECT_EQ(info.ext_attrs.count("secret_key"), 0U);
}

TEST_F(Pool_Description, an_s3_secret_that_cannot_be_deciphered_fails) {
  EXPECT_FALSE(parse(
      R"({"url":"s3://b","pool_uuid":"p","extended_attrs":{"access_key":"A","secret_key":"x"}})"));
  EXPECT_THAT(messages, ElementsAre("Failed to decrypt s3 keys of pool info\n"));
}

TEST_F(Pool_Description, sts_takes_the_backup_service_instead_of_keys) {
  WebSocket_Options::configure("backup.example", 65535, true);
  Host_Manager::instance()->access_key("host key");
  EXPECT_TRUE(parse(R"({"uuid":"d1","url":"oss://b","pool_uuid":"p","extended_attrs":{
    "use_sts":true,"vendor":"v","access_key":"A","secret_key":"S","bucket":"no"}})"));
  EXPECT_THAT(
      info.ext_attrs,
      ElementsAre(Pair("backupd_access_key", "host key"), Pair("backupd_host", "backup.example"),
                  Pair("backupd_port", "65535"), Pair("backupd_ssl", ""), Pair("device_id", "d1"),
                  Pair("region", ""), Pair("sign_method", ""), Pair("vendor", "v")));
}

TEST_F(Pool_Description, hbr_takes_its_bucket_too) {
  WebSocket_Options::configure("backup.example", 80, false);
  info.ext_attrs["backupd_ssl"] = "";
  EXPECT_TRUE(
      parse(R"({"uuid":"d1","url":"hbrs://x","pool_uuid":"p","extended_attrs":{"bucket":"b1"}})"));
  EXPECT_EQ(info.ext_attrs["bucket"], "b1");
  EXPECT_EQ(info.ext_attrs["device_id"], "d1");
  EXPECT_EQ(info.ext_attrs["backupd_port"], "80");
  EXPECT_EQ(info.ext_attrs.count("backupd_ssl"), 0U);
}

TEST_F(Pool_Description, hbr_on_a_tls_socket) {
  WebSocket_Options::configure("backup.example", 443, true);
  EXPECT_TRUE(
      parse(R"({"uuid":"d1","url":"hbrs://x","pool_uuid":"p","extended_attrs":{"bucket":"b1"}})"));
  EXPECT_THAT(info.ext_attrs, testing::Contains(Pair("backupd_ssl", "")));
}

TEST_F(Pool_Description, hbr_fails_step_by_step) {
  EXPECT_FALSE(parse(R"({"url":"hbr://x","pool_uuid":"p","extended_attrs":{"bucket":"b"}})"));
  EXPECT_THAT(messages, ElementsAre("Failed to get device id from storage info.\n"));
  EXPECT_EQ(info.ext_attrs.count("device_id"), 0U);

  EXPECT_FALSE(parse(R"({"uuid":"d","url":"hbr://x","pool_uuid":"p","extended_attrs":{}})"));
  EXPECT_THAT(messages, ElementsAre("Failed to get bucket from hbr extended attrs.\n"));
  EXPECT_EQ(info.ext_attrs["device_id"], "d");
  EXPECT_EQ(info.ext_attrs.count("bucket"), 0U);

  const char* good =
      R"({"uuid":"d","url":"hbr://x","pool_uuid":"p","extended_attrs":{"bucket":"b"}})";
  EXPECT_FALSE(parse(good));
  EXPECT_THAT(messages, ElementsAre("Failed to get server socket info.\n"));
  WebSocket_Options::configure(nullptr, 80, false);
  EXPECT_FALSE(parse(good));
  EXPECT_THAT(messages, ElementsAre("Failed to get server socket info.\n"));
  WebSocket_Options::configure("h", 80, false);
  EXPECT_TRUE(parse(good));
}

TEST_F(Pool_Description, use_sts_of_another_type_is_not_set) {
  EXPECT_FALSE(
      parse(R"({"uuid":"d","url":"s3://b","pool_uuid":"p","extended_attrs":{"use_sts":"true"}})"));
  EXPECT_THAT(messages, ElementsAre("Invalid storage info from backupd of s3 pool p: no access_key "
                                    "or secret_key\n"));
}

// --- file -------------------------------------------------------------------------------------

TEST_F(Pool_Description, file_becomes_the_path_attached_to_the_host) {
  const char* storages = R"({"url":"file://srv/x","pool_uuid":"p","extended_attrs":{
    "attached_hosts":{"h1":"mnt/a","h2":"/mnt/a","h3":"","":"/empty","own":"/own"}}})";
  EXPECT_TRUE(parse(storages, "h1"));
  EXPECT_EQ(info.url, "file:///mnt/a");
  EXPECT_TRUE(parse(storages, "h2"));
  EXPECT_EQ(info.url, "file:///mnt/a");
  EXPECT_TRUE(parse(storages, "h3"));
  EXPECT_EQ(info.url, "file:///");
  EXPECT_TRUE(parse(storages, ""));
  EXPECT_EQ(info.url, "file:///empty");
  Host_ID::instance()->set("own");
  EXPECT_TRUE(parse(storages, nullptr));
  EXPECT_EQ(info.url, "file:///own");
}

TEST_F(Pool_Description, file_fails_step_by_step) {
  EXPECT_FALSE(parse(R"({"url":"file:///x","pool_uuid":"p"})", "h1"));
  EXPECT_THAT(messages, ElementsAre("No 'extended_attrs' in storage.\n"));
  EXPECT_FALSE(
      parse(R"({"url":"file:///x","pool_uuid":"p","extended_attrs":{"attached_hosts":[]}})", "h1"));
  EXPECT_THAT(messages, ElementsAre("No 'attached_hosts' in extended_attrs.\n"));
  EXPECT_FALSE(parse(
      R"({"url":"file:///x","pool_uuid":"p","extended_attrs":{"attached_hosts":{"h1":1}}})", "h1"));
  EXPECT_THAT(messages, ElementsAre("No 'h1' in attached_hosts.\n"));
  Host_ID::instance()->set("own");
  EXPECT_FALSE(parse(
      R"({"url":"file:///x","pool_uuid":"p","extended_attrs":{"attached_hosts":{"h1":"/a"}}})"));
  EXPECT_THAT(messages, ElementsAre("No 'own' in attached_hosts.\n"));
  EXPECT_EQ(info.url, "file:///x");
}

// --- deduplication on several devices -----------------------------------------------------------

class Multidevice : public Pool_Description {
 protected:
  bool parse_devices(const std::string& storages) {
    return parse(object(R"({"multidevice":true,"storages":[)" + storages + "]}"));
  }
};

const char* const first_node =
    R"({"url":"dedup://n1:9000/a?b","pool_uuid":"p","extended_attrs":{"node_id":1}})";

TEST_F(Multidevice, every_storage_gives_its_node) {
  info.node_addrs[9] = "old";
  EXPECT_TRUE(parse_devices(std::string(first_node) +
                            R"(,{"url":"wss://[::1]:1/x","extended_attrs":{"node_id":4294967295}},
          {"url":"dedups://n3","extended_attrs":{"node_id":-2147483648}})"));
  EXPECT_THAT(info.node_addrs,
              ElementsAre(Pair(1U, "dedup://n1:9000?b"), Pair(0x80000000U, "dedups://n3"),
                          Pair(0xffffffffU, "wss://[::1]:1")));
  EXPECT_EQ(info.url, "dedup://n1:9000/a?b");
}

TEST_F(Multidevice, a_later_storage_of_the_same_node_wins) {
  EXPECT_TRUE(parse_devices(std::string(first_node) +
                            R"(,{"url":"dedup://n2/","extended_attrs":{"node_id":1}})"));
  EXPECT_THAT(info.node_addrs, ElementsAre(Pair(1U, "dedup://n2")));
}

TEST_F(Multidevice, one_storage_or_another_scheme_or_no_flag_gives_no_nodes) {
  info.node_addrs[9] = "old";
  EXPECT_TRUE(parse_devices(first_node));
  EXPECT_TRUE(parse_devices(R"({"url":"https://a","pool_uuid":"p"},{"url":"https://b"})"));
  EXPECT_TRUE(parse(std::string(first_node) + "," + first_node));
  EXPECT_THAT(info.node_addrs, ElementsAre(Pair(9U, "old")));
}

TEST_F(Multidevice, fails_step_by_step) {
  struct {
    const char* second;
    const char* message;
  } const rows[] = {
      {R"({"url":"dedup://b"})", "No 'extended_attrs' in storage.\n"},
      {R"({"url":"dedup://b","extended_attrs":{}})", "No 'node_id' in extended_attrs.\n"},
      {R"({"url":"dedup://b","extended_attrs":{"node_id":"2"}})",
       "No 'node_id' in extended_attrs.\n"},
      {R"({"url":"dedup://b","extended_attrs":{"node_id":4294967296}})",
       "No 'node_id' in extended_attrs.\n"},
      {R"({"url":"dedup://b","extended_attrs":{"node_id":-2147483649}})",
       "No 'node_id' in extended_attrs.\n"},
      {R"({"extended_attrs":{"node_id":2}})", "No 'url' in storage object.\n"},
      {R"({"url":"no url","extended_attrs":{"node_id":2}})", "Failed to parse url: no url\n"},
  };
  for (const auto& row : rows) {
    EXPECT_FALSE(parse_devices(std::string(first_node) + "," + row.second)) << row.second;
    EXPECT_THAT(messages, ElementsAre(row.message));
    EXPECT_THAT(info.node_addrs, ElementsAre(Pair(1U, "dedup://n1:9000?b")));
  }
}

TEST_F(Multidevice, an_element_that_is_no_object_throws) {
  EXPECT_THROW(parse_devices(std::string(first_node) + ",5"), std::exception);
}

// --- Pool_Info --------------------------------------------------------------------------------

TEST(Pool_Info_Record, starts_with_its_defaults) {
  const Pool_Info info;
  EXPECT_TRUE(info.device_exists);
  EXPECT_FALSE(info.multidevice);
  EXPECT_FALSE(info.server_side_encryption);
  EXPECT_EQ(info.cipher, ENCRYPT_NONE);
  for (const std::string* text :
       {&info.uuid, &info.name, &info.host_uuid, &info.url, &info.key, &info.iv,
        &info.preferred_source_address, &info.tenant_access_key, &info.dedup_backend_type}) {
    EXPECT_EQ(*text, "");
  }
  EXPECT_THAT(info.ext_attrs, IsEmpty());
  EXPECT_THAT(info.node_addrs, IsEmpty());
}

TEST(Pool_Info_Record, what_is_stored_loads_as_it_was) {
  Pool_Info full;
  full.uuid = "u";
  full.name = "n";
  full.host_uuid = "h";
  full.url = "s3://x";
  full.device_exists = false;
  full.multidevice = true;
  full.server_side_encryption = true;
  full.cipher = ENCRYPT_EC;
  full.key = std::string("\0\xff key", 6);
  full.iv = std::string(100, '\0');
  full.preferred_source_address = "a";
  full.tenant_access_key = "t";
  full.ext_attrs = {{"vendor", ""}, {"backupd_ssl", "1"}};
  full.node_addrs = {{0, "zero"}, {4294967295U, "last"}};
  full.dedup_backend_type = "b";

  Object stored;
  full >> stored;
  std::string text = json_spirit::write(stored);
  json_spirit::Value read_back;
  ASSERT_TRUE(json_spirit::read(text, read_back));
  Pool_Info loaded;
  loaded.ext_attrs["old"] = "gone";
  loaded << read_back.get_obj();
  Object stored_again;
  loaded >> stored_again;
  EXPECT_EQ(json_spirit::write(stored_again), text);
  EXPECT_EQ(loaded.key, full.key);
  EXPECT_EQ(loaded.iv, full.iv);
  EXPECT_EQ(loaded.node_addrs, full.node_addrs);
  EXPECT_EQ(loaded.ext_attrs, full.ext_attrs);
  EXPECT_EQ(stored.size(), 15U);
}

TEST(Pool_Info_Record, empty_key_loads_over_a_full_one) {
  Object stored;
  Pool_Info() >> stored;
  Pool_Info loaded;
  loaded.key = "k";
  loaded << stored;
  EXPECT_EQ(loaded.key, "");
}

TEST(Pool_Info_Record, members_that_do_not_fit_leave_their_fields) {
  Pool_Info info;
  info.key = "k";
  info.cipher = ENCRYPT_SM3;
  info.name = "n";
  info << object(R"({"key":"?","cipher":42,"name":1,"ext_attrs":{"a":1,"b":"c"},
                     "node_addrs":{"1x":"a","-1":"b","4294967296":"c","7":"d","8":5}})");
  EXPECT_EQ(info.key, "k");
  EXPECT_EQ(info.cipher, ENCRYPT_SM3);
  EXPECT_EQ(info.name, "n");
  EXPECT_THAT(info.ext_attrs, ElementsAre(Pair("b", "c")));
  EXPECT_THAT(info.node_addrs, ElementsAre(Pair(7U, "d")));
  info << object(R"({"cipher":-2})");
  EXPECT_EQ(info.cipher, ENCRYPT_SM3);
  info << object(R"({"cipher":-1})");
  EXPECT_EQ(info.cipher, ENCRYPT_UNKNOWN);
}

}  // namespace
