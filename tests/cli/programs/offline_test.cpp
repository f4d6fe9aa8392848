#include <gmock/gmock.h>

#include "tests/cli/programs/program.h"
#include "tests/support/temp_directory.h"

namespace zqpool::test {
namespace {

using testing::HasSubstr;

/// Commands that need neither an endpoint nor a key.
TEST(Offline_URI, a_path_of_a_device_is_parsed) {
  const std::pair<const char*, const char*> table[] = {
      {"/zq/data/5f3a/dir/file",
       R"({"device_uri":"zq/data/5f3a","device_uuid":"5f3a","kind":"http","prefix_path":"dir/file"})"},
      {"/zq/ext-data/bucket7/5f3a",
       R"({"device_uri":"zq/ext-data/bucket7/5f3a","device_uuid":"5f3a","kind":"http",)"
       R"("prefix_path":null})"},
      {"/zq/data/5f3a/",
       R"({"device_uri":"zq/data/5f3a","device_uuid":"5f3a","kind":"http","prefix_path":""})"},
      {"/p1/l7/zq/a/b",
       R"({"device_uri":"p1/l7/zq","kind":"lanfree","lun_id":"l7","pool_uuid":"p1",)"
       R"("prefix_path":"a/b"})"},
      {"/p1/zq", R"({"device_uri":"p1/zq","kind":"lanfree","lun_id":"","pool_uuid":"p1",)"
                 R"("prefix_path":null})"}};
  for (const auto& [path, record] : table) {
    const Run_Result result = zqpool({"uri", "parse", path, "-o", "json"});
    EXPECT_EQ(result.exit_code, 0) << result.err;
    EXPECT_EQ(result.out, std::string(record) + "\n");
    EXPECT_EQ(result.err, "");
  }
}

TEST(Offline_URI, a_url_is_parsed_with_its_path) {
  EXPECT_EQ(zqpool({"uri", "parse", "wss://[::1]/zq/data/d1", "-o", "json"}).out,
            R"({"device_uri":"zq/data/d1","device_uuid":"d1","host":"::1","kind":"http",)"
            R"("path":"/zq/data/d1","port":443,"prefix_path":null,"scheme":"wss","ssl":true})"
            "\n");
  EXPECT_THAT(zqpool({"uri", "parse", "lanfree://store1:81/p1/l7/zq", "-o", "tsv"}).out,
              HasSubstr("\tkind\tlanfree\n"));
}

TEST(Offline_URI, scheme_or_flag_decides_an_ambiguous_path) {
  const char* const path = "/zq/data/zq";
  EXPECT_THAT(zqpool({"uri", "parse", path}).out, HasSubstr("kind         http\n"));
  EXPECT_THAT(zqpool({"uri", "parse", path, "--lanfree"}).out, HasSubstr("lun_id       data\n"));
  EXPECT_THAT(zqpool({"uri", "parse", std::string("lanfree://h") + path}).out,
              HasSubstr("lun_id       data\n"));
}

TEST(Offline_URI, an_invalid_path_fails_and_the_rest_continues) {
  Run_Options options;
  options.input = "/zq/other/5f3a\nzq/data/5f3a\n/zq/data/d2\ns3://store/bucket\n";
  const Run_Result result = zqpool({"uri", "parse", "-", "-o", "tsv"}, options);
  EXPECT_EQ(result.exit_code, 1);
  EXPECT_EQ(result.out,
            "/zq/data/d2\tdevice_uri\tzq/data/d2\n/zq/data/d2\tdevice_uuid\td2\n"
            "/zq/data/d2\tkind\thttp\n/zq/data/d2\tprefix_path\t\\N\n");
  EXPECT_EQ(result.err,
            "zqpool: uri parse: /zq/other/5f3a: it is not the path of a device\n"
            "zqpool: uri parse: zq/data/5f3a: it is neither a URL nor an absolute path\n"
            "zqpool: uri parse: s3://store/bucket: it is not the path of a device\n");
}

TEST(Offline_URI, a_url_is_pointed_at_another_server) {
  const std::string url = "ws://old:9080/zq/data/5f3a";
  const auto adjusted = [&](std::vector<std::string> more) {
    more.insert(more.begin(), {"uri", "adjust", url, "-o", "json"});
    return zqpool(more).out;
  };
  EXPECT_EQ(adjusted({"--host", "backup1"}), "{\"url\":\"ws://backup1:9080/zq/data/5f3a\"}\n");
  EXPECT_EQ(adjusted({"--port", "65535"}), "{\"url\":\"ws://old:65535/zq/data/5f3a\"}\n");
  EXPECT_EQ(adjusted({"--ssl", "true"}), "{\"url\":\"wss://old:9080/zq/data/5f3a\"}\n");
  EXPECT_EQ(adjusted({"--host", "::1", "--port", "9443", "--ssl", "true"}),
            "{\"url\":\"wss://[::1]:9443/zq/data/5f3a\"}\n");
  const Run_Result none = zqpool({"uri", "adjust", "x", "--host", "h"});
  EXPECT_EQ(none.exit_code, 1);
  EXPECT_EQ(none.err, "zqpool: uri adjust: it is not a URL\n");
}

TEST(Offline_Module, an_identity_is_parsed) {
  EXPECT_EQ(zqpool({"module", "parse", " File.CDP.Linux ", "-o", "json"}).out,
            R"({"feature":"file","identity":"file.cdp.linux","system":"linux","type":"cdp"})"
            "\n");
  const Run_Result result = zqpool({"module", "parse", "a.b", "a.b.c.d", "-o", "tsv"});
  EXPECT_EQ(result.exit_code, 1);
  EXPECT_THAT(result.out, HasSubstr("a.b.c.d\tfeature\ta.b\n"));
  EXPECT_EQ(result.err,
            "zqpool: module parse: a.b: it is not a module identity, FEATURE.TYPE.SYSTEM\n");
}

TEST(Offline_Module, a_cd_module_is_recognised_by_identity_record_or_both) {
  const Temp_Directory directory;
  const std::string cdp = directory.write("cdp", R"({"agent":"x.cdp.y"})");
  const std::string barred =
      directory.write("barred", R"({"agent":"x.cdp.y","extended_attrs":{"impl_version":1}})");
  const std::string nobody = directory.write("nobody", "{}");
  const std::pair<std::vector<std::string>, bool> table[] = {
      {{"file.cdp.linux"}, true},
      {{"db.os.windows-x86"}, true},
      {{"db.os.windows-x64"}, false},
      {{"a.b"}, false},
      {{"--catalog", cdp}, true},
      {{"--catalog", barred}, false},
      {{"--catalog", nobody}, false},
      {{"x.y.vm", "--catalog", barred}, false},
      {{"x.y.vm", "--catalog", nobody}, true},
      {{"x.y.z", "--catalog", cdp}, false}};
  for (const auto& [more, is_cd] : table) {
    std::vector<std::string> arguments = {"module", "is-cd", "-o", "tsv"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    const Run_Result result = zqpool(arguments);
    EXPECT_EQ(result.exit_code, 0);
    EXPECT_THAT(result.out, HasSubstr(std::string("\tis_cd\t") + (is_cd ? "true\n" : "false\n")))
        << testing::PrintToString(more);
  }
  Run_Options options;
  options.input = R"({"agent":"x.y.vm"})";
  EXPECT_EQ(zqpool({"module", "is-cd", "--catalog", "-", "-o", "json"}, options).out,
            "{\"identity\":\"x.y.vm\",\"is_cd\":true}\n");
}

TEST(Offline, wrong_calls_are_usage_errors) {
  const Temp_Directory directory;
  const std::vector<std::string> table[] = {
      {"uri"},
      {"uri", "parse"},
      {"uri", "adjust", "ws://a"},
      {"uri", "adjust", "ws://a", "--port", "0"},
      {"uri", "adjust", "ws://a", "--port", "65536"},
      {"uri", "adjust", "ws://a", "--ssl", "perhaps"},
      {"module", "parse"},
      {"module", "is-cd"},
      {"module", "is-cd", "--catalog", directory.path("nothing")},
      {"module", "is-cd", "--catalog", directory.write("bad", "{")},
      {"module", "is-cd", "--catalog", directory.write("list", "[]")},
      {"module", "is-cd", "--catalog", "-", "-"}};
  for (const std::vector<std::string>& arguments : table) {
    const Run_Result result = zqpool(arguments);
    EXPECT_EQ(result.exit_code, 2) << testing::PrintToString(arguments);
    EXPECT_EQ(result.out, "");
  }
}

}  // namespace
}  // namespace zqpool::test
