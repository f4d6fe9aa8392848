#include "utils/pool/utils.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/support/log_capture.h"
#include "utils/pool/catalog_agent.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using zqpool::test::Log_Capture;

Object object(const std::string& text) {
  json_spirit::Value value;
  EXPECT_TRUE(json_spirit::read(text, value)) << text;
  return value.get_obj();
}

// --- Paths of devices -------------------------------------------------------------------------

struct Parts {
  std::string device_uri = "device", id = "id", lun = "lun", prefix = "prefix";
};

TEST(Parse_Http_Uri, takes_device_id_and_path_behind_it) {
  struct {
    const char *uri, *device_uri, *device_uuid, *prefix;
  } const rows[] = {
      {"/zq/data/5f3a/dir/file", "zq/data/5f3a", "5f3a", "dir/file"},
      {"/zq/ext-data/bucket7/5f3a", "zq/ext-data/bucket7/5f3a", "5f3a", "prefix"},
      {"/zq/data/5f3a", "zq/data/5f3a", "5f3a", "prefix"},
      {"/zq/data/5f3a/", "zq/data/5f3a", "5f3a", ""},
      {"/zq/data/5f3a//a", "zq/data/5f3a", "5f3a", "/a"},
      {"/zq/corundel/x y/\xc3\xa4", "zq/corundel/x y", "x y", "\xc3\xa4"},
      {"/zq/ext-data/b/d/e/f", "zq/ext-data/b/d", "d", "e/f"},
  };
  Log_Capture log;
  for (const auto& row : rows) {
    Parts got;
    EXPECT_TRUE(parse_http_uri(row.uri, &got.device_uri, &got.id, &got.prefix)) << row.uri;
    EXPECT_EQ(got.device_uri, row.device_uri) << row.uri;
    EXPECT_EQ(got.id, row.device_uuid) << row.uri;
    EXPECT_EQ(got.prefix, row.prefix) << row.uri;
    EXPECT_TRUE(parse_http_uri(row.uri, nullptr, nullptr, nullptr)) << row.uri;
  }
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(Parse_Http_Uri, another_path_is_logged_and_writes_nothing) {
  for (const char* uri : {"/zq/other/5f3a", "zq/data/5f3a", "", "/", "/zq/data/", "/zq/data//x",
                          "/zq/ext-data/5f3a", "/zq/ext-data//d", "/zq/DATA/5f3a", "x/zq/data/a"}) {
    Log_Capture log;
    Parts got;
    EXPECT_FALSE(parse_http_uri(uri, &got.device_uri, &got.id, &got.prefix)) << uri;
    EXPECT_EQ(got.device_uri + got.id + got.prefix, "deviceidprefix") << uri;
    EXPECT_THAT(log.texts("LM_ERROR"),
                ElementsAre(std::string("Failed to match regex for '") + uri + "'\n"));
  }
}

TEST(Parse_Lanfree_Uri, takes_pool_lun_and_path_behind_them) {
  struct {
    const char *uri, *device_uri, *pool, *lun, *prefix;
  } const rows[] = {
      {"/p1/l7/zq/a/b", "p1/l7/zq", "p1", "l7", "a/b"},
      {"/p1/zq", "p1/zq", "p1", "", "prefix"},
      {"/p1/zq/", "p1/zq", "p1", "", ""},
      {"//zq", "/zq", "", "", "prefix"},
      {"/p1//zq", "p1//zq", "p1", "", "prefix"},
      {"///zq/x", "//zq", "", "", "x"},
      {"/p1/zq/zq/a", "p1/zq/zq", "p1", "zq", "a"},
  };
  Log_Capture log;
  for (const auto& row : rows) {
    Parts got;
    EXPECT_TRUE(parse_lanfree_uri(row.uri, &got.device_uri, &got.id, &got.lun, &got.prefix))
        << row.uri;
    EXPECT_EQ(got.device_uri, row.device_uri) << row.uri;
    EXPECT_EQ(got.id, row.pool) << row.uri;
    EXPECT_EQ(got.lun, row.lun) << row.uri;
    EXPECT_EQ(got.prefix, row.prefix) << row.uri;
    EXPECT_TRUE(parse_lanfree_uri(row.uri, nullptr, nullptr, nullptr, nullptr)) << row.uri;
  }
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(Parse_Lanfree_Uri, another_path_is_logged_and_writes_nothing) {
  for (const char* uri : {"p1/zq", "/zq", "/p1/l7/x/zq", "/p1/l7", "/p1/zqx", ""}) {
    Log_Capture log;
    Parts got;
    EXPECT_FALSE(parse_lanfree_uri(uri, &got.device_uri, &got.id, &got.lun, &got.prefix)) << uri;
    EXPECT_EQ(got.device_uri + got.id + got.lun + got.prefix, "deviceidlunprefix") << uri;
    EXPECT_THAT(log.texts("LM_ERROR"),
                ElementsAre(std::string("Failed to match regex for '") + uri + "'\n"));
  }
}

TEST(Device_Paths, an_output_may_be_the_path_itself) {
  const Log_Capture log;
  std::string text = "/zq/data/5f3a/dir/file";
  std::string id;
  std::string prefix;
  EXPECT_TRUE(parse_http_uri(text, &text, &id, &prefix));
  EXPECT_THAT((std::vector<std::string>{text, id, prefix}),
              ElementsAre("zq/data/5f3a", "5f3a", "dir/file"));
  text = "/p1/l7/zq/a/b";
  std::string lun;
  EXPECT_TRUE(parse_lanfree_uri(text, &id, &text, &lun, &prefix));
  EXPECT_THAT((std::vector<std::string>{id, text, lun, prefix}),
              ElementsAre("p1/l7/zq", "p1", "l7", "a/b"));
}

// --- A device's URL, pointed at a backup server -------------------------------------------------

TEST(Adjust_Device_Url, replaces_what_the_backup_server_says_and_nothing_else) {
  struct {
    const char *server, *url, *expected;
  } const rows[] = {
      {R"({"host":"b"})", "https://a:1/p?q#f", "https://b:1/p?q#f"},
      {R"({"port":99})", "https://a:1/p", "https://a:99/p"},
      {R"({"port":65536})", "https://a:1/p", "https://a:0/p"},
      {R"({"port":4294967296})", "https://a:1/p", "https://a:1/p"},
      {R"({"ssl":false})", "dedups://a:1/p", "dedup://a:1/p"},
      {R"({"ssl":true})", "dedup://a:1/p", "dedups://a:1/p"},
      {R"({"host":"::1","port":7,"ssl":true})", "ws://a/p", "wss://[::1]:7/p"},
      {R"({"host":1,"port":"x","ssl":"yes"})", "ws://a:1/p", "ws://a:1/p"},
      {"{}", "s3://a/p", "s3://a/p"},
  };
  Log_Capture log;
  for (const auto& row : rows) {
    Object device = object(R"({"uuid":"d"})");
    device["url"] = row.url;
    EXPECT_TRUE(adjust_device_url_by_backupd_device(object(row.server), device)) << row.url;
    EXPECT_EQ(device["url"].get_str(), row.expected) << row.server;
    EXPECT_EQ(device["uuid"].get_str(), "d");
  }
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(Adjust_Device_Url, a_device_without_a_url_that_parses_stays_as_it_is) {
  for (const char* text : {"{}", R"({"url":5})", R"({"url":"no url"})", R"({"url":""})",
                           R"({"url":"https://a:1/p\u0000q"})"}) {
    Log_Capture log;
    Object device = object(text);
    EXPECT_FALSE(adjust_device_url_by_backupd_device(object(R"({"host":"b"})"), device)) << text;
    EXPECT_EQ(json_spirit::write(json_spirit::Value(device)),
              json_spirit::write(json_spirit::Value(object(text))));
    EXPECT_THAT(log.lines(), IsEmpty());
  }
}

// --- Module identities ------------------------------------------------------------------------

TEST(Catalog_Agent_Identity, is_three_parts_in_lower_case) {
  struct {
    const char *text, *feature, *type, *system;
  } const rows[] = {
      {"File.CDP.Linux", "file", "cdp", "linux"},
      {" \t file.cdp.linux \n", "file", "cdp", "linux"},
      {"a.b.c.d", "a.b", "c", "d"},
      {"A...B.C", "a..", "b", "c"},
      {"db.os.Windows-X86", "db", "os", "windows-x86"},
  };
  for (const auto& row : rows) {
    Catalog_Agent agent;
    EXPECT_TRUE(agent.parse(row.text)) << row.text;
    EXPECT_EQ(agent.featrue, row.feature) << row.text;
    EXPECT_EQ(agent.type, row.type) << row.text;
    EXPECT_EQ(agent.system, row.system) << row.text;
  }
}

TEST(Catalog_Agent_Identity, a_member_may_be_the_text_itself) {
  Catalog_Agent agent;
  agent.featrue = "A-very-long-feature-name-of-the-agent.OS.Windows-x86";
  EXPECT_TRUE(agent.parse(agent.featrue));
  EXPECT_EQ(agent.generate(), "a-very-long-feature-name-of-the-agent.os.windows-x86");
}

TEST(Catalog_Agent_Identity, another_text_leaves_it_as_it_was) {
  for (const char* text : {"a.b", "a..b", "", ".", "..", "a.b .c", "a b.c.d", " . . "}) {
    Catalog_Agent agent{"f", "t", "s"};
    EXPECT_FALSE(agent.parse(text)) << text;
    EXPECT_EQ(agent.featrue + agent.type + agent.system, "fts") << text;
  }
}

TEST(Catalog_Agent_Identity, a_hostile_text_is_no_identity_and_does_not_throw) {
  const std::string hostile = std::string(100000, '.') + " " + std::string(100000, '.');
  Catalog_Agent agent;
  EXPECT_FALSE(agent.parse(hostile));
  EXPECT_FALSE(is_cd_modules(Object(), &hostile));
}

TEST(Catalog_Agent_Identity, is_written_back_when_it_is_whole) {
  EXPECT_EQ((Catalog_Agent{"file", "cdp", "linux"}.generate()), "file.cdp.linux");
  EXPECT_EQ((Catalog_Agent{"", "cdp", "linux"}.generate()), "");
  EXPECT_EQ((Catalog_Agent{"file", "", "linux"}.generate()), "");
  EXPECT_EQ((Catalog_Agent{"file", "cdp", ""}.generate()), "");
  EXPECT_EQ(Catalog_Agent().generate(), "");
  const std::string part(300, 'x');
  EXPECT_EQ((Catalog_Agent{part, part, part}.generate()), part + "." + part + "." + part);
}

TEST(Is_Cd_Modules, judges_the_identity) {
  struct {
    const char* agent;
    bool expected;
  } const rows[] = {
      {" File.CDP.Linux ", true},
      {"db.os.Windows-X86", true},
      {"db.os.windows-x64", false},
      {"db.fs.windows-x86", false},
      {"x.y.VM", true},
      {"a.b.cdp.linux", true},
      {"cdp.x.y", false},
      {"vm.os.linux", false},
      {"a.b", false},
  };
  for (const auto& row : rows) {
    const std::string agent = row.agent;
    EXPECT_EQ(is_cd_modules(Object(), &agent), row.expected) << agent;
    EXPECT_EQ(is_cd_modules({{"agent", agent}}, nullptr), row.expected) << agent;
    EXPECT_EQ(is_cd_modules({{"agent", "no"}}, &agent), row.expected) << agent;
  }
}

TEST(Is_Cd_Modules, markers_of_the_record_say_no_first) {
  const std::string agent = "x.cdp.vm";
  struct {
    const char* attributes;
    bool expected;
  } const rows[] = {
      {R"({"impl_version":1})", false},
      {R"({"impl_version":2})", true},
      {R"({"impl_version":"1"})", true},
      {R"({"impl_version":1.0})", true},
      {R"({"impl_version":4294967297})", true},
      {R"({"code_name":"velmora"})", false},
      {R"({"code_name":"Velmora"})", true},
      {R"({"code_name":5})", true},
      {R"({"impl_version":2,"code_name":"velmora"})", false},
      {"{}", true},
      {"[]", true},
  };
  for (const auto& row : rows) {
    const Object catalog = object(std::string(R"({"extended_attrs":)") + row.attributes + "}");
    EXPECT_EQ(is_cd_modules(catalog, &agent), row.expected) << row.attributes;
  }
}

TEST(Is_Cd_Modules, without_any_identity_says_no) {
  EXPECT_FALSE(is_cd_modules(Object(), nullptr));
  EXPECT_FALSE(is_cd_modules({{"agent", 5}}, nullptr));
}

}  // namespace
