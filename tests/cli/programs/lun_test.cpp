#include <gmock/gmock.h>

#include <filesystem>

#include "tests/cli/programs/command_fixture.h"

namespace zqpool::test {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

const char* const acls = R"("acls":[{"host_uuid":"0f1e2d3c-4b5a-6978-8796-a5b4c3d2e1f0",)"
                         R"("initiator":"iqn.2026-11.lab:host1"}])";

/// A host with one iSCSI initiator, and a pool whose transport is read first.
class LUN : public Command {
 protected:
  LUN() {
    std::filesystem::create_directories(directory_.path("root/etc/iscsi"));
    directory_.write("root/etc/machine-id", "0f1e2d3c4b5a69788796a5b4c3d2e1f0\n");
    directory_.write("root/etc/iscsi/initiatorname.iscsi", "InitiatorName=iqn.2026-11.lab:host1\n");
    server_.otherwise([this](const Recorded_Request& request) {
      if (request.target.rfind("/zq/r/pool?", 0) == 0) return json_answer(200, pool_);
      return json_answer(200, answer_);
    });
  }

  /// Runs zqpool on that host, with this answer to all requests but those about the pool.
  Run_Result run_on_host(const std::string& answer, std::vector<std::string> arguments) {
    answer_ = answer;
    arguments.insert(arguments.end(), {"--host-root", directory_.path("root")});
    return run(arguments);
  }

  Recorded_Request last() const { return server_.request(server_.request_count() - 1); }

  std::string pool_ = R"([{"type":"iSCSI"}])";
  std::string answer_;
};

TEST_F(LUN, is_created_as_its_options_say) {
  const Run_Result plain =
      run_on_host(R"({"lun_id":"l-1"})", {"lun", "create", "p-1", "--size", "10GiB", "-o", "json"});
  EXPECT_EQ(plain.exit_code, 0) << plain.err;
  EXPECT_EQ(plain.out, "{\"lun_id\":\"l-1\",\"lun_num\":null}\n");
  EXPECT_EQ(server_.request(0).line, "POST /zq/r/scsipool/lun HTTP/1.1");
  EXPECT_EQ(server_.request(0).header("X-Access-Key"), key_);
  EXPECT_EQ(server_.request(0).body,
            R"({"export":false,"lun_size":10737418240,"pool_id":"p-1","retention_type":"normal"})");

  const Run_Result exported =
      run_on_host(R"({"lun_id":"l-2","lun_num":3})",
                  {"lun", "create", "p-1", "--size", "18446744073709551615", "--export",
                   "--block-size", "4KiB", "--retention", "newest"});
  EXPECT_EQ(exported.out, "lun_id   l-2\nlun_num  3\n") << exported.err;
  EXPECT_EQ(last().body, std::string("{") + acls +
                             R"(,"block_size":4096,"export":true,"lun_size":18446744073709551615,)"
                             R"("pool_id":"p-1","retention_type":"newest"})");

  EXPECT_EQ(run_on_host(R"({"lun_id":"l","lun_num":0})",
                        {"lun", "create", "p-1", "--size", "1GiB", "--newest", "--initiator",
                         "iqn.x:a", "--initiator", "iqn.x:b"})
                .exit_code,
            0);
  EXPECT_THAT(last().body, HasSubstr(R"("initiator":"iqn.x:a"},{)"));
  EXPECT_THAT(last().body, HasSubstr(R"("initiator":"iqn.x:b"}],"export":true)"));
  EXPECT_THAT(last().body, HasSubstr(R"("retention_type":"newest")"));

  EXPECT_EQ(run_on_host(R"({"lun_id":"l","lun_num":0})",
                        {"lun", "create", "p-1", "--size", "1GiB", "--export", "--nobody"})
                .exit_code,
            0);
  EXPECT_THAT(last().body, Not(HasSubstr("acls")));
}

TEST_F(LUN, created_without_a_number_is_reported) {
  const Run_Result result =
      run_on_host(R"({"lun_id":"l-7"})", {"lun", "create-from", "p-1", "s-1", "--export"});
  EXPECT_EQ(result.exit_code, 1);
  EXPECT_EQ(server_.request(0).body, R"({"export":true,"pool_id":"p-1","snapshot_id":"s-1"})");
  EXPECT_THAT(result.err, StartsWith("zqpool: lun create-from: " + url_of(server_) +
                                     ": the answer is unusable (Failed to "
                                     "create lun in p-1 based on snapshot s-1: "));
  EXPECT_THAT(result.err, EndsWith("); the service made the change; it is LUN l-7\n"));
  EXPECT_EQ(run_on_host(R"({"lun_id":"l-8"})", {"lun", "create-from", "p-1", "s-1"}).out,
            "lun_id   l-8\nlun_num  -\n");
}

TEST_F(LUN, a_host_without_initiators_sends_nothing) {
  std::filesystem::remove(directory_.path("root/etc/iscsi/initiatorname.iscsi"));
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"lun", "create", "p-1", "--size", "1GiB", "--newest"},
        {"lun", "export", "p-1", "l-1"},
        {"lun", "allow", "p-1", "l-1"},
        {"snapshot", "share", "p-1", "s-1"},
        {"snapshot", "allow", "p-1", "s-1", "--lun-num", "1"}}) {
    const Run_Result result = run_on_host("{}", arguments);
    EXPECT_EQ(result.exit_code, 1);
    EXPECT_THAT(result.err, HasSubstr("this host has no SCSI initiator, nothing was sent"));
  }
  for (const Recorded_Request& request : server_.requests())
    EXPECT_EQ(request.method, "GET");
}

TEST_F(LUN, an_unreadable_pool_is_no_unknown_outcome) {
  server_.otherwise(reset_after_request());
  const Run_Result result = run_on_host("", {"lun", "export", "p-1", "l-1"});
  EXPECT_EQ(result.exit_code, 7);
  EXPECT_THAT(result.err, Not(HasSubstr("whether the change was made")));
  server_.otherwise(json_answer(404, R"({"error":{"code":-1,"message":"no such pool"}})"));
  EXPECT_EQ(run_on_host("", {"lun", "export", "p-1", "l-1"}).exit_code, 3);
}

TEST_F(LUN, descriptions_numbers_and_serials_are_shown) {
  const std::string one = R"([{"lun_id":"l-1","lun_num":4,"vpd_serial_number":"abc"}])";
  EXPECT_EQ(run_on_host(one, {"lun", "show", "p-1", "l-1", "-o", "json"}).out,
            one.substr(1, one.size() - 2) + "\n");
  EXPECT_EQ(server_.request(0).line, "GET /zq/r/scsipool/lun?pool_id=p-1&lun_id=l-1 HTTP/1.1");
  EXPECT_EQ(run_on_host(one, {"lun", "number", "p-1", "l-1", "-o", "tsv"}).out,
            "l-1\tlun_num\t4\n");
  EXPECT_EQ(run_on_host(one, {"lun", "serial", "p-1", "l-1"}).out, "serial_number  abc\n");
  EXPECT_EQ(run_on_host(R"([{"lun_id":"l-1"},{"lun_id":"l-2"}])", {"lun", "list", "p-1"}).out,
            "LUN_ID\nl-1\nl-2\n");
  EXPECT_EQ(last().target, "/zq/r/scsipool/lun?pool_id=p-1");
  EXPECT_EQ(run_on_host("[]", {"lun", "list", "p-1"}).exit_code, 0);
  EXPECT_EQ(run_on_host("[5]", {"lun", "list", "p-1"}).exit_code, 1);
  EXPECT_EQ(run_on_host("{}", {"lun", "list", "p-1"}).exit_code, 1);
}

TEST_F(LUN, unknown_luns_are_not_found) {
  for (const char* const verb : {"show", "number", "serial"}) {
    const Run_Result none = run_on_host("[]", {"lun", verb, "p-1", "l-1"});
    EXPECT_EQ(none.exit_code, 3) << none.err;
    EXPECT_EQ(run_on_host("[1,2]", {"lun", verb, "p-1", "l-1"}).exit_code, 1);
    EXPECT_EQ(run_on_host("{}", {"lun", verb, "p-1", "l-1"}).exit_code, 1);
  }
  const Run_Result number = run_on_host("[{}]", {"lun", "number", "p-1", "l-1"});
  EXPECT_EQ(number.exit_code, 3);
  EXPECT_THAT(number.err, EndsWith(": not found: the LUN has no number, it is not exported\n"));
  const Run_Result serial = run_on_host("[{}]", {"lun", "serial", "p-1", "l-1"});
  EXPECT_EQ(serial.exit_code, 3);
  EXPECT_THAT(serial.err, EndsWith(": not found: the LUN has no serial number\n"));
}

TEST_F(LUN, is_exported_to_this_host_and_others) {
  const Run_Result result =
      run_on_host(R"({"lun_num":5})", {"lun", "export", "p-1", "l-1", "-o", "json"});
  EXPECT_EQ(result.out, "{\"lun_id\":\"l-1\",\"lun_num\":5}\n") << result.err;
  EXPECT_EQ(last().line, "POST /zq/r/scsipool/lun/export HTTP/1.1");
  EXPECT_EQ(last().body, std::string("{") + acls + R"(,"lun_id":"l-1","pool_id":"p-1"})");
  EXPECT_EQ(run_on_host(R"({"lun_num":5})",
                        {"lun", "export", "p-1", "l-1", "--type", "iscsi", "--target", "iqn.t"})
                .exit_code,
            0);
  EXPECT_THAT(last().body, EndsWith(R"("pool_id":"p-1","target":"iqn.t","type":"iscsi"})"));
  EXPECT_EQ(run_on_host("{}", {"lun", "allow", "p-1", "l-1"}).exit_code, 0);
  EXPECT_EQ(last().line, "PUT /zq/r/scsipool/lun/export HTTP/1.1");
  EXPECT_EQ(last().body,
            std::string("{") + acls + R"(,"action":"add","lun_id":"l-1","pool_id":"p-1"})");
  EXPECT_EQ(run_on_host("{}", {"lun", "unexport", "p-1", "l-1", "--force"}).exit_code, 0);
  EXPECT_EQ(last().line,
            "DELETE /zq/r/scsipool/lun/export?pool_id=p-1&lun_id=l-1&force=true HTTP/1.1");
}

TEST_F(LUN, is_rolled_back_and_deleted_after_confirmation) {
  EXPECT_EQ(run_on_host("{}", {"lun", "rollback", "p-1", "l-1", "--yes"}).exit_code, 0);
  EXPECT_EQ(last().line, "PUT /zq/r/scsipool/lun HTTP/1.1");
  EXPECT_EQ(last().body, R"({"force":false,"lun_id":"l-1","pool_id":"p-1"})");
  EXPECT_EQ(
      run_on_host("{}", {"lun", "delete", "p-1", "l-1", "l-2", "--yes", "--force", "--jobs", "1"})
          .exit_code,
      0);
  EXPECT_EQ(last().line, "DELETE /zq/r/scsipool/lun?pool_id=p-1&lun_id=l-2&force=true HTTP/1.1");
  const std::size_t before = server_.request_count();
  EXPECT_EQ(run_on_host("{}", {"lun", "rollback", "p-1", "l-1"}).exit_code, 2);
  const Run_Result unasked = run_on_host("{}", {"lun", "delete", "p-1", "l-1"});
  EXPECT_EQ(unasked.exit_code, 2);
  EXPECT_THAT(unasked.err, HasSubstr("Delete l-1? Confirm with --yes"));
  EXPECT_EQ(server_.request_count(), before);
  // The status of the rollback counts, not the body.
  const Run_Result odd = run_on_host("[]", {"lun", "rollback", "p-1", "l-1", "--yes"});
  EXPECT_EQ(odd.exit_code, 1);
  EXPECT_THAT(odd.err, EndsWith("; the service made the change\n"));
}

TEST_F(LUN, failed_changes_and_unknown_outcomes_have_their_exit_codes) {
  const std::vector<std::string> changes[] = {{"lun", "create", "p", "--size", "1"},
                                              {"lun", "create-from", "p", "s"},
                                              {"lun", "export", "p", "l", "--type", "iSCSI"},
                                              {"lun", "unexport", "p", "l"},
                                              {"lun", "allow", "p", "l", "--type", "iSCSI"},
                                              {"lun", "rollback", "p", "l", "--yes"},
                                              {"lun", "delete", "p", "l", "--yes"},
                                              {"snapshot", "create", "p", "l"},
                                              {"snapshot", "share", "p", "s", "--type", "iSCSI"},
                                              {"snapshot", "unshare", "p", "s", "--lun-num", "1"},
                                              {"snapshot", "delete", "p", "s", "--yes"}};
  for (const std::vector<std::string>& arguments : changes) {
    for (const auto& [status, exit_code] : {std::pair{404U, 3}, {507U, 5}}) {
      server_.otherwise(json_answer(status, R"({"error":{"code":-1,"message":"so it is"}})"));
      const Run_Result result = run_on_host("", arguments);
      EXPECT_EQ(result.exit_code, exit_code) << testing::PrintToString(arguments);
      EXPECT_THAT(result.err, EndsWith(": HTTP status " + std::to_string(status) + ": so it is\n"));
    }
    server_.otherwise(close_after_request());
    EXPECT_EQ(run_on_host("", arguments).exit_code, 8) << testing::PrintToString(arguments);
  }
}

TEST_F(LUN, wrong_calls_reach_no_service) {
  const std::vector<std::string> table[] = {
      {"lun", "create", "p"},
      {"lun", "create", "p", "--size", "1GB"},
      {"lun", "create", "p", "--size", "1GiB", "--block-size", "0"},
      {"lun", "create", "p", "--size", "1GiB", "--block-size", "2GiB"},
      {"lun", "create", "p", "--size", "1GiB", "--retention", "oldest"},
      {"lun", "create", "p", "--size", "1GiB", "--nobody"},
      {"lun", "create", "p", "--size", "1GiB", "--newest", "--export"},
      {"lun", "export", "p", "l", "--target", "t"},
      {"lun", "show", "p"},
      {"lun", "show", "p", "l&force=true"},
      {"lun", "show", "p=q", "l"},
      {"lun", "delete", "p", "l%31", "--yes"},
      {"lun", "list"},
      {"snapshot", "show", "p", "a+b"},
      {"snapshot", "tree", "p"},
      {"snapshot", "unshare", "p", "s"},
      {"snapshot", "allow", "p", "s", "--lun-num", "-1"}};
  for (const std::vector<std::string>& arguments : table) {
    EXPECT_EQ(run(arguments).exit_code, 2) << testing::PrintToString(arguments);
  }
  EXPECT_EQ(server_.connection_count(), 0U);
}

}  // namespace
}  // namespace zqpool::test
