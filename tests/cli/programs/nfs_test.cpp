#include <gmock/gmock.h>

#include "tests/cli/programs/command_fixture.h"

namespace zqpool::test {
namespace {

using testing::EndsWith;
using testing::MatchesRegex;

class NFS : public Command {
 protected:
  /// The body of the first request without its UUID, and the UUID.
  std::pair<std::string, std::string> first_record() const {
    std::string body = server_.request(0).body;
    const std::size_t begin = body.find(R"(,"uuid":")");
    return {body.substr(0, begin) + "}", body.substr(begin + 9, 36)};
  }
  Recorded_Request last() const { return server_.request(server_.request_count() - 1); }
};

TEST_F(NFS, a_path_is_published_and_its_uuid_shown) {
  server_.otherwise(json_answer(201, "{}"));
  const Run_Result result = run({"nfs", "export", "--path", "/srv/backup", "-o", "json"});
  EXPECT_EQ(result.exit_code, 0) << result.err;
  EXPECT_EQ(server_.request(0).line, "POST /zq/r/nfs HTTP/1.1");
  EXPECT_EQ(server_.request(0).header("X-Access-Key"), key_);
  const auto [body, uuid] = first_record();
  EXPECT_EQ(body, R"({"access_type":"RW","clients":["*"],"fsal":"","path":"/srv/backup",)"
                  R"("protocols":"4","pseudo":"/srv/backup","squash":"","state":"pending"})");
  EXPECT_EQ(result.out, "{\"uuid\":\"" + uuid + "\"}\n");
}

TEST_F(NFS, a_pool_is_published_as_its_options_say) {
  server_.otherwise(json_answer(201, "{}"));
  EXPECT_EQ(run({"nfs",          "export",     "--pool",  "p-1",        "--sub-dir",
                 "/jobs",        "--pseudo",   "/p",      "--fsal",     "VFS",
                 "--squash",     "all_squash", "--nfsv3", "--readonly", "--client",
                 "192.0.2.0/24", "--client",   "h1",      "--wait",     "1500ms"})
                .exit_code,
            0);
  EXPECT_EQ(server_.request(0).target, "/zq/r/nfs?sync=2");
  EXPECT_EQ(first_record().first,
            R"({"access_type":"RO","clients":["192.0.2.0/24","h1"],"fsal":"VFS",)"
            R"("pool_uuid":"p-1","protocols":"3","pseudo":"/p","squash":"all_squash",)"
            R"("state":"pending","sub_dir":"/jobs"})");
}

TEST_F(NFS, a_record_is_replaced_and_withdrawn) {
  server_.otherwise(json_answer(200, "{}"));
  EXPECT_EQ(run({"nfs", "update", "u-1", "--path", "/srv"}).exit_code, 0);
  EXPECT_EQ(last().line, "PUT /zq/r/nfs HTTP/1.1");
  EXPECT_THAT(last().body, EndsWith(R"("uuid":"u-1"})"));
  EXPECT_EQ(run({"nfs", "unexport", "u-1"}).exit_code, 0);
  EXPECT_EQ(last().line, "DELETE /zq/r/nfs?uuid=u-1&sync=0 HTTP/1.1");
  EXPECT_EQ(run({"nfs", "unexport", "u-1", "u-2", "--wait", "10s", "--jobs", "1"}).exit_code, 0);
  EXPECT_EQ(last().target, "/zq/r/nfs?uuid=u-2&sync=10");
}

TEST_F(NFS, a_lost_answer_is_looked_up) {
  // The record exists: the command succeeded.
  server_.queue(reset_after_request()).queue(json_answer(200, R"([{"state":"exported"}])"));
  const Run_Result there = run({"nfs", "export", "--path", "/srv"});
  EXPECT_EQ(there.exit_code, 0) << there.err;
  EXPECT_EQ(there.out, "uuid  " + first_record().second + "\n");
  EXPECT_EQ(server_.request(1).target, "/zq/r/nfs?uuid=" + first_record().second);

  server_.queue(reset_after_request()).queue(json_answer(404, "{}"));
  const Run_Result absent = run({"nfs", "export", "--path", "/srv"});
  EXPECT_EQ(absent.exit_code, 8);
  EXPECT_THAT(absent.err, MatchesRegex(".*; it is unknown whether the change was made; there is no "
                                       "record [-0-9a-f]*\n"));
  server_.queue(reset_after_request()).queue(json_answer(500, "{}"));
  const Run_Result blind = run({"nfs", "export", "--path", "/srv"});
  EXPECT_EQ(blind.exit_code, 8);
  EXPECT_THAT(blind.err, MatchesRegex(".*; its record would be [-0-9a-f]*\n"));
}

TEST_F(NFS, a_slow_export_is_reported_with_its_record) {
  server_.queue(json_answer(503, R"({"error":{"code":1,"message":"still pending"}})"))
      .queue(json_answer(200, R"([{"state":"pending"}])"));
  const Run_Result result = run({"nfs", "export", "--path", "/srv", "--wait", "1s"});
  EXPECT_EQ(result.exit_code, 7);
  EXPECT_THAT(result.err,
              MatchesRegex(".*: HTTP status 503: still pending; record [-0-9a-f]* is pending\n"));
}

TEST_F(NFS, errors_and_unknown_outcomes_have_their_exit_codes) {
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"nfs", "export", "--path", "/srv"},
        {"nfs", "update", "u", "--path", "/srv"},
        {"nfs", "unexport", "u"}}) {
    for (const auto& [status, exit_code] : {std::pair{404U, 3}, {409U, 4}, {422U, 1}}) {
      server_.otherwise(json_answer(status, R"({"error":{"code":-1,"message":"so it is"}})"));
      const Run_Result result = run(arguments);
      EXPECT_EQ(result.exit_code, exit_code);
      EXPECT_THAT(result.err, EndsWith(": HTTP status " + std::to_string(status) + ": so it is\n"));
    }
    server_.otherwise(close_after_request());
    EXPECT_EQ(run(arguments).exit_code, 8);
  }
}

TEST_F(NFS, wrong_calls_reach_no_service) {
  const std::vector<std::string> table[] = {
      {"nfs"},
      {"nfs", "export"},
      {"nfs", "export", "--path", "/a", "--pool", "p"},
      {"nfs", "export", "--path", "/a", "--sub-dir", "b"},
      {"nfs", "export", "--path", "/a", "--wait", "soon"},
      {"nfs", "export", "--path", "/a", "--wait", "1m"},
      {"nfs", "export", "--path", "/a", "--wait", "10s", "--timeout", "5s"},
      {"nfs", "update", "u"},
      {"nfs", "update", "--path", "/a"},
      {"nfs", "unexport"},
      {"nfs", "unexport", "u&sync=9"}};
  for (const std::vector<std::string>& arguments : table) {
    EXPECT_EQ(run(arguments).exit_code, 2) << testing::PrintToString(arguments);
  }
  EXPECT_EQ(server_.connection_count(), 0U);
}

}  // namespace
}  // namespace zqpool::test
