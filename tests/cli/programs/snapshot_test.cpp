#include <gmock/gmock.h>

#include "tests/cli/programs/command_fixture.h"

namespace zqpool::test {
namespace {

using testing::EndsWith;
using testing::HasSubstr;

/// A service with some snapshots of LUN l-1, described by identifier or listed.
class LUN_Snapshot : public Command {
 protected:
  LUN_Snapshot() {
    server_.otherwise([this](const Recorded_Request& request) {
      const std::size_t by_id = request.target.find("snapshot_id=");
      if (request.method != "GET") return json_answer(200, R"({"snapshot_id":"s-9","lun_num":6})");
      if (by_id == std::string::npos) return json_answer(200, "[" + join(all_) + "]");
      const std::string id = request.target.substr(by_id + 12);
      std::vector<std::string> found;
      for (const std::string& snapshot : all_) {
        if (snapshot.find("\"" + id + "\"") != std::string::npos) found.push_back(snapshot);
      }
      return json_answer(200, "[" + join(found) + "]");
    });
  }

  static std::string join(const std::vector<std::string>& texts) {
    std::string out;
    for (const std::string& text : texts)
      out += (out.empty() ? "" : ",") + text;
    return out;
  }
  static std::string snapshot(const std::string& id, int seq, int excl, std::int64_t rfer,
                              const std::string& more = "") {
    return R"({"excl_size":)" + std::to_string(excl) + more + R"(,"parent_id":"l-1","rfer_size":)" +
           std::to_string(rfer) + R"(,"seq":)" + std::to_string(seq) + R"(,"snapshot_id":")" + id +
           "\"}";
  }
  Recorded_Request last() const { return server_.request(server_.request_count() - 1); }

  std::vector<std::string> all_ = {snapshot("s-2", 2, 5, 80), snapshot("s-1", 1, 10, 100),
                                   snapshot("s-3", 3, 1, 10000)};
};

TEST_F(LUN_Snapshot, is_taken_shared_withdrawn_and_deleted) {
  EXPECT_EQ(run({"snapshot", "create", "p-1", "l-1", "-o", "json"}).out,
            "{\"lun_id\":\"l-1\",\"snapshot_id\":\"s-9\"}\n");
  EXPECT_EQ(last().line, "POST /zq/r/scsipool/snapshot HTTP/1.1");
  EXPECT_EQ(last().body, R"({"lun_id":"l-1","pool_id":"p-1","recycle":false})");
  EXPECT_EQ(run({"snapshot", "create", "p-1", "l-1", "--recyclable"}).exit_code, 0);
  EXPECT_THAT(last().body, HasSubstr(R"("recycle":true)"));
  EXPECT_EQ(
      run({"snapshot", "share", "p-1", "s-1", "--type", "iSCSI", "--initiator", "iqn.x:a"}).out,
      "lun_num      6\nsnapshot_id  s-1\n");
  EXPECT_EQ(last().line, "POST /zq/r/scsipool/snapshot/export HTTP/1.1");
  EXPECT_EQ(run({"snapshot", "allow", "p-1", "s-1", "--lun-num", "6", "--initiator", "iqn.x:a"})
                .exit_code,
            1)
      << "the pool's type is asked for, and this service does not know it";
  EXPECT_EQ(run({"snapshot", "unshare", "p-1", "s-1", "--lun-num", "6"}).exit_code, 0);
  EXPECT_EQ(last().line,
            "DELETE /zq/r/scsipool/snapshot/export?pool_id=p-1&snapshot_id=s-1&lun_num=6 HTTP/1.1");
  EXPECT_EQ(run({"snapshot", "delete", "p-1", "s-1", "--yes"}).exit_code, 0);
  EXPECT_EQ(last().target,
            "/zq/r/scsipool/snapshot?pool_id=p-1&snapshot_id=s-1&delete_empty_lun=false");
  EXPECT_EQ(run({"snapshot", "delete", "p-1", "s-1", "--yes", "--delete-empty-lun"}).exit_code, 0);
  EXPECT_THAT(last().target, EndsWith("&delete_empty_lun=true"));
  EXPECT_EQ(run({"snapshot", "delete", "p-1", "s-1"}).exit_code, 2);
}

TEST_F(LUN_Snapshot, is_listed_and_shown) {
  EXPECT_EQ(run({"snapshot", "show", "p-1", "s-2", "-o", "json"}).out, all_[0] + "\n");
  EXPECT_EQ(run({"snapshot", "list", "p-1", "l-1", "-o", "json"}).out,
            all_[0] + "\n" + all_[1] + "\n" + all_[2] + "\n");
  EXPECT_EQ(last().target, "/zq/r/scsipool/snapshot?pool_id=p-1&lun_id=l-1");
  EXPECT_THAT(run({"snapshot", "list", "p-1", "l-1", "-o", "tsv"}).out,
              HasSubstr("s-2\texcl_size\t5\n"));
  const Run_Result none = run({"snapshot", "show", "p-1", "s-9"});
  EXPECT_EQ(none.exit_code, 3);
  EXPECT_THAT(none.err, EndsWith(": not found: there is no such snapshot\n"));
}

TEST_F(LUN_Snapshot, shared_several_times_needs_its_number) {
  all_ = {snapshot("s-1", 1, 1, 1, R"(,"lun_num":2)"), snapshot("s-1", 1, 1, 1, R"(,"lun_num":5)")};
  EXPECT_THAT(run({"snapshot", "show", "p-1", "s-1", "--lun-num", "5"}).out,
              HasSubstr("lun_num      5\n"));
  const Run_Result unsaid = run({"snapshot", "show", "p-1", "s-1"});
  EXPECT_EQ(unsaid.exit_code, 4);
  EXPECT_THAT(unsaid.err,
              EndsWith(": it is shared under 2 numbers: say which one with --lun-num\n"));
  const Run_Result wrong = run({"snapshot", "show", "p-1", "s-1", "--lun-num", "7"});
  EXPECT_EQ(wrong.exit_code, 3);
  EXPECT_THAT(wrong.err, EndsWith(": not found: it is not shared under number 7\n"));
  for (const char* const verb : {"size", "previous"}) {
    const Run_Result result = run({"snapshot", verb, "p-1", "s-1"});
    EXPECT_EQ(result.exit_code, 4);
    EXPECT_THAT(result.err, HasSubstr(": it is shared under 2 numbers, and a snapshot with "
                                      "several cannot be compared\n"));
  }
}

TEST_F(LUN_Snapshot, previous_is_shown_although_the_call_returns_false) {
  EXPECT_EQ(run({"snapshot", "previous", "p-1", "s-3", "-o", "json"}).out, all_[0] + "\n");
  EXPECT_EQ(run({"snapshot", "previous", "p-1", "s-3"}).exit_code, 0);
  const Run_Result first = run({"snapshot", "previous", "p-1", "s-1"});
  EXPECT_EQ(first.exit_code, 3);
  EXPECT_EQ(first.out, "");
  EXPECT_THAT(first.err, EndsWith(": not found: no snapshot comes before it\n"));
  const Run_Result absent = run({"snapshot", "previous", "p-1", "s-9"});
  EXPECT_EQ(absent.exit_code, 3);
  EXPECT_THAT(absent.err, EndsWith(": not found: there is no such snapshot\n"));
}

TEST_F(LUN_Snapshot, a_failed_search_finds_nothing) {
  const std::string current = snapshot("s-3", 3, 1, 1);
  // The unreadable element follows a candidate.
  server_.queue(json_answer(200, "[" + current + "]"))
      .queue(json_answer(200, "[" + all_[0] + ",5]"))
      .queue(json_answer(200, "[" + current + "]"))
      .queue(json_answer(200, "[" + all_[0] + R"(,{"seq":"x"}])"))
      .queue(json_answer(200, "[" + current + "]"))
      .queue(json_answer(200, "[]"))
      .queue(json_answer(200, "[" + current + "]"))
      .queue(json_answer(507, "{}"));
  for (const int exit_code : {1, 1, 1, 5}) {
    const Run_Result result = run({"snapshot", "previous", "p-1", "s-3"});
    EXPECT_EQ(result.exit_code, exit_code) << result.err;
    EXPECT_EQ(result.out, "");
  }
  EXPECT_EQ(server_.unused_answers(), 0U);
}

TEST_F(LUN_Snapshot, size_is_what_it_adds) {
  EXPECT_EQ(run({"snapshot", "size", "p-1", "s-1", "s-2", "s-3", "-o", "tsv"}).out,
            "s-1\tsize\t110\ns-2\tsize\t0\ns-3\tsize\t9925\n");
  all_[0] = snapshot("s-2", 2, 0, 80);
  const Run_Result shrunk = run({"snapshot", "size", "p-1", "s-2", "-o", "tsv"});
  EXPECT_EQ(shrunk.exit_code, 0);
  EXPECT_EQ(shrunk.out, "s-2\tsize\t0\n");
  EXPECT_THAT(shrunk.err, HasSubstr("what it adds counts as 0"));
  EXPECT_EQ(run({"snapshot", "size", "p-1", "s-2", "--quiet"}).err, "");
  EXPECT_EQ(run({"snapshot", "size", "p-1", "s-9"}).exit_code, 3);
}

TEST_F(LUN_Snapshot, size_fails_without_its_predecessor) {
  // For the library a failed listing means that there is no previous snapshot.
  server_.queue(json_answer(200, "[" + all_[2] + "]"))
      .queue(json_answer(200, "[" + all_[2] + "]"))
      .queue(json_answer(409, R"({"error":{"code":-1,"message":"busy"}})"));
  const Run_Result result = run({"snapshot", "size", "p-1", "s-3"});
  EXPECT_EQ(result.exit_code, 4);
  EXPECT_EQ(result.out, "");
  EXPECT_THAT(result.err, EndsWith(": HTTP status 409: busy\n"));
}

TEST_F(LUN_Snapshot, the_tree_draws_the_chain) {
  EXPECT_EQ(run({"snapshot", "tree", "p-1", "l-1"}).out,
            "l-1     SEQ  ADDS\n"
            "├─ s-1  1    +110\n"
            "├─ s-2  2    +0\n"
            "└─ s-3  3    +9925 (9.69 KiB)\n");
  EXPECT_EQ(run({"snapshot", "tree", "p-1", "l-1", "-o", "json"}).out,
            R"({"adds":110,"seq":1,"snapshot_id":"s-1"})"
            "\n"
            R"({"adds":0,"seq":2,"snapshot_id":"s-2"})"
            "\n"
            R"({"adds":9925,"seq":3,"snapshot_id":"s-3"})"
            "\n");
  all_.clear();
  const Run_Result none = run({"snapshot", "tree", "p-1", "l-1"});
  EXPECT_EQ(none.exit_code, 0);
  EXPECT_EQ(none.out, "l-1  SEQ  ADDS\n");
}

TEST_F(LUN_Snapshot, the_tree_lists_snapshots_of_unknown_size) {
  all_.push_back(snapshot("s-4", 4, 1, 1, R"(,"lun_num":1)"));
  all_.push_back(snapshot("s-4", 4, 1, 1, R"(,"lun_num":2)"));
  const Run_Result result = run({"snapshot", "tree", "p-1", "l-1"});
  EXPECT_EQ(result.exit_code, 4);
  EXPECT_THAT(result.out, EndsWith("└─ s-4  4    ?\n"));
  EXPECT_THAT(result.err, HasSubstr("snapshot tree: s-4: "));
  all_ = {"5"};
  EXPECT_EQ(run({"snapshot", "tree", "p-1", "l-1"}).exit_code, 1);
}

TEST_F(LUN_Snapshot, a_pool_is_described_with_its_transport_and_target) {
  const std::string description = R"({"target":"iqn.t","total_size":10737418240,"type":"iSCSI"})";
  server_.otherwise(json_answer(200, "[" + description + "]"));
  EXPECT_EQ(run({"pool", "scsi", "p-1", "-o", "json"}).out,
            R"({"description":)" + description +
                R"(,"pool_uuid":"p-1","portal":"127.0.0.1:3260","size":10737418240,)"
                R"("target":"iqn.t","transport":"iSCSI"})"
                "\n");
  EXPECT_EQ(server_.request(0).line, "GET /zq/r/pool?type=scsi&pool_id=p-1 HTTP/1.1");
  server_.otherwise(json_answer(200, R"([{"type":"FC"}])"));
  EXPECT_EQ(run({"pool", "scsi", "p-1", "-o", "json"}).out,
            R"({"description":{"type":"FC"},"pool_uuid":"p-1","portal":null,"size":null,)"
            R"("target":null,"transport":"FC"})"
            "\n");
  server_.otherwise(json_answer(200, "[]"));
  EXPECT_EQ(run({"pool", "scsi", "p-1"}).exit_code, 3);
  server_.otherwise(json_answer(200, "{}"));
  EXPECT_EQ(run({"pool", "scsi", "p-1"}).exit_code, 1);
}

}  // namespace
}  // namespace zqpool::test
