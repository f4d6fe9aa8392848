#include <gmock/gmock.h>

#include "tests/cli/programs/command_fixture.h"

namespace zqpool::test {
namespace {

using testing::EndsWith;
using testing::HasSubstr;

class Catalog_Change : public Command {};

TEST_F(Catalog_Change, metadata_is_added_as_its_options_say) {
  server_.otherwise(json_answer(201, "{}"));
  const Run_Result result = run({"metadata", "add", "p-1", "d-1", "/a b"});
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_EQ(result.out + result.err, "");
  EXPECT_EQ(server_.request(0).line, "POST /zq/r/storage/catalog/device/metadata HTTP/1.1");
  EXPECT_EQ(server_.request(0).header("X-Access-Key"), key_);
  EXPECT_EQ(server_.request(0).body, R"({"device_uuid":"d-1","file":"/a b","pool_uuid":"p-1"})");
  EXPECT_EQ(run({"metadata", "add", "p-1", "d-1", "/a", "--type", "dir", "--grouping", "", "--size",
                 "10GiB"})
                .exit_code,
            0);
  EXPECT_EQ(server_.request(1).body,
            R"({"device_uuid":"d-1","dir":"/a","grouping":"","pool_uuid":"p-1",)"
            R"("size":10737418240})");
  EXPECT_EQ(run({"metadata", "add", "p-1", "d-1", "/a", "--size", "0"}).exit_code, 0);
  EXPECT_THAT(server_.request(2).body, HasSubstr(R"("size":0)"));
}

TEST_F(Catalog_Change, metadata_is_removed_after_confirmation) {
  server_.otherwise(http_answer(204, ""));
  EXPECT_EQ(run({"metadata", "remove", "p-1", "/a b", "--yes"}).exit_code, 0);
  EXPECT_EQ(server_.request(0).line,
            "DELETE /zq/r/storage/catalog/device/metadata?pool_uuid=p-1&path=%2fa+b HTTP/1.1");
  EXPECT_EQ(run({"metadata", "remove", "p-1", "/a", "--grouping", "g", "--yes"}).exit_code, 0);
  EXPECT_THAT(server_.request(1).target, EndsWith("&path=%2fa&grouping=g"));

  const Run_Result nobody_to_ask = run({"metadata", "remove", "p-1", "/a"});
  EXPECT_EQ(nobody_to_ask.exit_code, 2);
  EXPECT_EQ(
      nobody_to_ask.err,
      "zqpool: metadata remove: Remove the catalog's entries of /a? Confirm with --yes (there "
      "is no terminal to ask on)\n");
  EXPECT_EQ(server_.request_count(), 2U);
}

TEST_F(Catalog_Change, the_terminal_asks_once_for_all) {
  server_.otherwise(http_answer(204, ""));
  const std::pair<const char*, int> table[] = {{"n\n", 1},    {"\n", 1},    {"\x04", 1},
                                               {"\x03", 130}, {"yes\n", 0}, {"y\n", 0}};
  for (const auto& [typed, exit_code] : table) {
    const std::size_t before = server_.request_count();
    Run_Options options;
    options.terminal = true;
    options.input = "/a\n/b\x1b\n";
    std::vector<std::string> arguments = with_service({"metadata", "remove", "p-1", "-"});
    arguments.insert(arguments.begin(), ZQPOOL_PROGRAM);
    Program program(arguments, options);
    ASSERT_TRUE(program.wait_for_terminal("Remove the catalog's entries of 2 paths? [y/N] "));
    program.type(typed);
    EXPECT_EQ(program.wait().exit_code, exit_code);
    EXPECT_EQ(server_.request_count() - before, exit_code == 0 ? 2U : 0U);
  }
}

TEST_F(Catalog_Change, an_empty_list_needs_no_confirmation) {
  const Run_Result result = run({"metadata", "remove", "p-1", "-"});
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_EQ(result.out + result.err, "");
}

TEST_F(Catalog_Change, a_device_is_bound_to_a_host) {
  server_.otherwise(json_answer(200, "{}"));
  Run_Options options;
  options.input = "d-2\n";
  EXPECT_EQ(
      run({"device", "bind", "d-1", "-", "--host-uuid", "h-1", "--sysname", "db1", "--jobs", "1"},
          options)
          .exit_code,
      0);
  EXPECT_EQ(server_.request(0).line, "PUT /zq/r/storage/catalog/device?uuid=d-1 HTTP/1.1");
  EXPECT_EQ(server_.request(0).body, R"({"host_id":"h-1","sysname":"db1"})");
  EXPECT_EQ(server_.request(1).target, "/zq/r/storage/catalog/device?uuid=d-2");
}

TEST_F(Catalog_Change, an_empty_offer_is_not_found) {
  server_.queue(json_answer(200, R"({"uuid":"d-1","url":"ws://n1"})"))
      .queue(json_answer(200, "{}"))
      .queue(json_answer(200, "[]"));
  EXPECT_EQ(run({"device", "offer", "p-1"}).out, "uuid  d-1\nurl   ws://n1\n");
  EXPECT_EQ(server_.request(0).line,
            "GET /zq/r/storage/catalog/device/info?pool_uuid=p-1 HTTP/1.1");
  const Run_Result none = run({"device", "offer", "p-1"});
  EXPECT_EQ(none.exit_code, 3);
  EXPECT_EQ(none.err, "zqpool: device offer: " + url_of(server_) +
                          ": not found: the catalog has no device to offer\n");
  EXPECT_EQ(run({"device", "offer", "p-1"}).exit_code, 1);
}

TEST_F(Catalog_Change, each_status_and_an_unknown_outcome_have_their_exit_codes) {
  const std::vector<std::string> changes[] = {
      {"metadata", "add", "p", "d", "/a"},
      {"metadata", "remove", "p", "/a", "--yes"},
      {"device", "bind", "d", "--host-uuid", "h", "--sysname", "s"}};
  for (const std::vector<std::string>& arguments : changes) {
    for (const auto& [status, exit_code] : {std::pair{404U, 3}, {409U, 4}, {507U, 5}, {401U, 6}}) {
      server_.otherwise(json_answer(status, R"({"error":{"code":-1,"message":"so it is"}})"));
      const Run_Result result = run(arguments);
      EXPECT_EQ(result.exit_code, exit_code);
      EXPECT_EQ(result.err, "zqpool: " + arguments[0] + " " + arguments[1] + ": " +
                                url_of(server_) + ": HTTP status " + std::to_string(status) +
                                ": so it is\n");
    }
    const std::size_t before = server_.request_count();
    server_.otherwise(reset_after_request());
    const Run_Result result = run(arguments);
    EXPECT_EQ(result.exit_code, 8);
    EXPECT_THAT(result.err, EndsWith("; it is unknown whether the change was made\n"));
    EXPECT_EQ(server_.request_count(), before + 1);
  }
}

TEST_F(Catalog_Change, wrong_calls_reach_no_service) {
  const std::vector<std::string> table[] = {
      {"metadata"},
      {"metadata", "add", "p", "d"},
      {"metadata", "add", "p", "d", "/a", "--size", "-1"},
      {"metadata", "add", "p", "d", "/a", "--size", "8EiB"},
      {"metadata", "add", "p", "d", "/a", "--type", "pool_uuid"},
      {"metadata", "add", "p", "d", "/a", "--type", "size"},
      {"metadata", "remove", "p", "--yes"},
      {"device", "bind", "d", "--host-uuid", "h"},
      {"device", "bind", "--sysname", "s"},
      {"device", "offer"}};
  for (const std::vector<std::string>& arguments : table) {
    EXPECT_EQ(run(arguments).exit_code, 2) << testing::PrintToString(arguments);
  }
  EXPECT_EQ(server_.connection_count(), 0U);
}

}  // namespace
}  // namespace zqpool::test
