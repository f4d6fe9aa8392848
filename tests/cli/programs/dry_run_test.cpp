#include <gmock/gmock.h>

#include "tests/cli/programs/command_fixture.h"

namespace zqpool::test {
namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class Dry_Run : public Command {
 protected:
  Dry_Run() { server_.otherwise(json_answer(200, R"([{"type":"iSCSI"}])")); }
};

/// A request as it was sent, without what differs from one to the next and without the key.
std::string sent(const Recorded_Request& request) {
  std::string text = request.line + "\n";
  for (const auto& [name, value] : request.headers) {
    if (name == "X-Request-Id") continue;
    text += name + ": " + (name == "X-Access-Key" ? "(hidden)" : value) + "\n";
  }
  return text + (request.body.empty() ? "" : "\n" + request.body + "\n");
}

std::string without_identifier(const std::string& text) {
  const std::size_t begin = text.find("X-Request-Id: ");
  if (begin == std::string::npos) return text;
  return text.substr(0, begin) + text.substr(text.find('\n', begin) + 1);
}

TEST_F(Dry_Run, shows_the_exact_request_and_sends_none) {
  const std::vector<std::string> table[] = {
      {"metadata", "add", "p", "d", "/a b", "--size", "10GiB"},
      {"metadata", "remove", "p", "/a", "--yes"},
      {"device", "bind", "d", "--host-uuid", "h", "--sysname", "s"},
      {"lun", "create", "p", "--size", "10GiB"},
      {"lun", "unexport", "p", "l"},
      {"lun", "rollback", "p", "l", "--yes"},
      {"lun", "delete", "p", "l", "--yes"},
      {"snapshot", "create", "p", "l"},
      {"snapshot", "unshare", "p", "s", "--lun-num", "3"},
      {"snapshot", "delete", "p", "s", "--yes"},
      {"pool", "show", "p"},
      {"pool", "resolve", "p", "--host-uuid", "h", "--retry", "1m"},
      {"device", "show", "--url", "u"},
      {"lun", "show", "p", "l"},
      {"snapshot", "tree", "p", "l"},
      {"fs", "create", "p", "f", "--mount-point", "/m"},
      {"fs", "move", "p", "f", "/m"},
      {"image", "mount", "p", "f"},
      {"image", "snapshot", "delete", "p", "s", "--yes"},
      {"nfs", "update", "u", "--path", "/srv"},
      {"nfs", "unexport", "u", "--wait", "1s"},
      {"lab", "clear"},
      {"lab", "write", "p", "l", "--length", "4KiB"},
      {"space"}};
  for (const std::vector<std::string>& arguments : table) {
    const std::size_t before = server_.request_count();
    std::vector<std::string> dry = arguments;
    dry.emplace_back("--dry-run");
    const Run_Result shown = run(dry);
    EXPECT_EQ(shown.exit_code, 0) << testing::PrintToString(arguments) << shown.err;
    EXPECT_EQ(shown.err, "");
    EXPECT_EQ(server_.request_count(), before);
    EXPECT_THAT(shown.out, Not(HasSubstr(key_)));
    run(arguments);
    ASSERT_GT(server_.request_count(), before) << testing::PrintToString(arguments);
    EXPECT_EQ(without_identifier(shown.out), sent(server_.request(before)));
  }
}

TEST_F(Dry_Run, reads_before_a_change_are_sent) {
  const Run_Result result =
      run({"lun", "export", "p", "l", "--initiator", "iqn.x:a", "--dry-run", "-o", "json"});
  EXPECT_EQ(result.exit_code, 0) << result.err;
  ASSERT_EQ(server_.request_count(), 1U);
  EXPECT_EQ(server_.request(0).line, "GET /zq/r/pool?type=scsi&pool_id=p HTTP/1.1");
  EXPECT_THAT(result.out, StartsWith(R"({"body":{"acls":[{"host_uuid":)"));
  EXPECT_THAT(result.out, HasSubstr(R"("initiator":"iqn.x:a"}],"lun_id":"l","pool_id":"p"},)"));
  EXPECT_THAT(result.out, HasSubstr("\"X-Access-Key\":\"(hidden)\""));
  EXPECT_THAT(result.out,
              testing::EndsWith(R"("method":"POST","target":"/zq/r/scsipool/lun/export"})"
                                "\n"));
  server_.otherwise(json_answer(404, R"({"error":{"code":-1,"message":"no pool"}})"));
  EXPECT_EQ(run({"lun", "export", "p", "l", "--dry-run"}).exit_code, 3);
}

TEST_F(Dry_Run, shows_no_key_of_a_scenario) {
  const std::string file = directory_.write(
      "scenario.json", R"({"devices":[{"name":"d","secret_key":"the-secret-itself"}]})");
  for (const char* const format : {"table", "json"}) {
    const Run_Result result = run({"lab", "scenario", file, "--dry-run", "-o", format});
    EXPECT_EQ(result.exit_code, 0) << result.err;
    EXPECT_THAT(result.out, HasSubstr("{\"name\":\"d\",\"secret_key\":\"(hidden)\"}"));
  }
}

TEST_F(Dry_Run, a_new_export_is_shown_with_a_uuid_that_will_not_be_used) {
  const Run_Result result = run({"nfs", "export", "--path", "/srv", "--dry-run"});
  EXPECT_EQ(result.exit_code, 0) << result.err;
  EXPECT_THAT(result.out, StartsWith("POST /zq/r/nfs HTTP/1.1\n"));
  EXPECT_THAT(result.out, HasSubstr(R"("path":"/srv")"));
  EXPECT_EQ(server_.connection_count(), 0U);
}

TEST_F(Dry_Run, many_objects_are_many_requests) {
  Run_Options options;
  options.input = "l-1\nl-2\n";
  const Run_Result result = run({"lun", "delete", "p", "-", "--dry-run"}, options);
  EXPECT_EQ(result.exit_code, 0) << "nobody is asked, nothing is destroyed";
  EXPECT_THAT(result.out, HasSubstr("DELETE /zq/r/scsipool/lun?pool_id=p&lun_id=l-1&force=false "));
  EXPECT_THAT(result.out,
              HasSubstr("\n\nDELETE /zq/r/scsipool/lun?pool_id=p&lun_id=l-2&force=false "));
  EXPECT_EQ(server_.connection_count(), 0U);
}

TEST_F(Dry_Run, needs_no_service_for_a_first_request) {
  const Refused_Port port;
  const Run_Result result =
      zqpool({"lun", "delete", "p", "l", "--dry-run", "--endpoint",
              "http://127.0.0.1:" + std::to_string(port.port()), "--access-key-file", key_file_});
  EXPECT_EQ(result.exit_code, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr("Host: 127.0.0.1:" + std::to_string(port.port()) + "\n"));
}

}  // namespace
}  // namespace zqpool::test
