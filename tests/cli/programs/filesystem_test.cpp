#include <gmock/gmock.h>

#include <map>

#include "tests/cli/programs/command_fixture.h"

namespace zqpool::test {
namespace {

using testing::EndsWith;
using testing::HasSubstr;

/// Each test for "fs" and for "image", which send the same requests.
class Filesystem : public Command, public testing::WithParamInterface<const char*> {
 protected:
  /// zqpool NOUN with these arguments.
  Run_Result fs(std::vector<std::string> arguments, const Run_Options& options = {}) {
    arguments.insert(arguments.begin(), GetParam());
    return run(arguments, options);
  }
  std::string command(const std::string& verb) const {
    return std::string("zqpool: ") + GetParam() + " " + verb + ": " + url_of(server_) + ": ";
  }
  Recorded_Request last() const { return server_.request(server_.request_count() - 1); }
};

INSTANTIATE_TEST_SUITE_P(Noun, Filesystem, testing::Values("fs", "image"),
                         [](const auto& noun) { return std::string(noun.param); });

TEST_P(Filesystem, is_created_and_cloned) {
  server_.otherwise(json_answer(201, "{}"));
  EXPECT_EQ(fs({"create", "p-1", "daily"}).exit_code, 0);
  EXPECT_EQ(last().line, "POST /zq/r/scsipool/fs HTTP/1.1");
  EXPECT_EQ(last().header("X-Access-Key"), key_);
  EXPECT_EQ(last().body, R"({"name":"daily","pool_id":"p-1"})");
  EXPECT_EQ(fs({"create", "p-1", "daily", "--mount-point", "/srv/d"}).exit_code, 0);
  EXPECT_EQ(last().body, R"({"mount_point":"/srv/d","name":"daily","pool_id":"p-1"})");
  EXPECT_EQ(fs({"clone", "p-1", "s-1", "copy"}).exit_code, 0);
  EXPECT_EQ(last().body, R"({"name":"copy","pool_id":"p-1","snapshot_id":"s-1"})");
  EXPECT_EQ(fs({"clone", "p-1", "s-1", "copy", "--mount-point", "/c"}).exit_code, 0);
  EXPECT_EQ(last().body,
            R"({"mount_point":"/c","name":"copy","pool_id":"p-1","snapshot_id":"s-1"})");
  const std::size_t before = server_.request_count();
  EXPECT_EQ(fs({"create", "p-1", "a", "b", "--mount-point", "/srv"}).exit_code, 2);
  EXPECT_EQ(fs({"create", "p-1", "a&b"}).exit_code, 2);
  EXPECT_EQ(fs({"clone", "p-1", "s-1"}).exit_code, 2);
  EXPECT_EQ(server_.request_count(), before);
}

TEST_P(Filesystem, is_shown_or_not_found) {
  server_.otherwise(json_answer(200, R"([{"name":"daily","rfer_size":4096}])"));
  EXPECT_EQ(fs({"show", "p-1", "daily", "-o", "json"}).out,
            "{\"name\":\"daily\",\"rfer_size\":4096}\n");
  EXPECT_EQ(last().line, "GET /zq/r/scsipool/fs?pool_id=p-1&name=daily HTTP/1.1");
  const std::pair<Answer, int> table[] = {{json_answer(200, "[]"), 3},
                                          {json_answer(404, "{}"), 3},
                                          {json_answer(200, "[5]"), 1},
                                          {json_answer(403, "{}"), 6}};
  for (const auto& [answer, exit_code] : table) {
    server_.otherwise(answer);
    EXPECT_EQ(fs({"show", "p-1", "daily"}).exit_code, exit_code);
  }
}

TEST_P(Filesystem, mounts_are_listed) {
  server_.otherwise(json_answer(200, R"([{"name":"a","mountpoint":"/a"},{"name":"b"}])"));
  EXPECT_EQ(fs({"list-mounted", "p-1", "-o", "tsv"}).out,
            "a\tmountpoint\t/a\na\tname\ta\nb\tname\tb\n");
  EXPECT_EQ(last().target, "/zq/r/scsipool/fs/mount?pool_id=p-1");
  EXPECT_EQ(fs({"list-mounted", "p-1", "a"}).exit_code, 0);
  EXPECT_EQ(last().target, "/zq/r/scsipool/fs/mount?pool_id=p-1&name=a");
  server_.otherwise(json_answer(200, "[5]"));
  EXPECT_EQ(fs({"list-mounted", "p-1"}).exit_code, 1);
}

TEST_P(Filesystem, mounting_tells_where) {
  server_.otherwise(json_answer(200, R"({"mountpoint":"/srv/daily"})"));
  EXPECT_EQ(fs({"mount", "p-1", "daily", "-o", "json"}).out,
            R"({"mounted":true,"mountpoint":"/srv/daily","name":"daily"})"
            "\n");
  EXPECT_EQ(last().line, "POST /zq/r/scsipool/fs/mount HTTP/1.1");
  EXPECT_EQ(last().body, R"({"name":"daily","pool_id":"p-1"})");
  // An answer without the mount point: the mounts are read.
  server_.queue(json_answer(200, "{}")).queue(json_answer(200, R"([{"mountpoint":"/x"}])"));
  EXPECT_THAT(fs({"mount", "p-1", "daily"}).out, HasSubstr("mountpoint  /x\n"));
  server_.queue(json_answer(200, "{}")).queue(json_answer(200, "{}"));
  const Run_Result unsaid = fs({"mount", "p-1", "daily"});
  EXPECT_EQ(unsaid.exit_code, 1);
  EXPECT_EQ(unsaid.err, command("mount") + "the answer is unusable; the service made the change\n");
}

TEST_P(Filesystem, a_move_is_verified) {
  server_.queue(json_answer(200, "\"/new\""))
      .queue(json_answer(200, R"([{"name":"daily","mountpoint":"/new"}])"));
  const Run_Result result = fs({"move", "p-1", "daily", "/new/", "-o", "json"});
  EXPECT_EQ(result.exit_code, 0) << result.err;
  EXPECT_EQ(result.out, R"({"mounted":true,"mountpoint":"/new","name":"daily"})"
                        "\n");
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(server_.request(0).line, "PUT /zq/r/scsipool/fs/mount HTTP/1.1");
  EXPECT_EQ(server_.request(0).body, R"({"mount_point":"/new/","name":"daily","pool_id":"p-1"})");
  EXPECT_EQ(server_.request(1).target, "/zq/r/scsipool/fs/mount?pool_id=p-1&name=daily");

  // The same when the answer is an object, which the library refuses.
  server_.queue(json_answer(200, R"({"mountpoint":"/new"})"))
      .queue(json_answer(200, R"([{"name":"daily","mountpoint":"/new"}])"));
  EXPECT_EQ(fs({"move", "p-1", "daily", "/new"}).exit_code, 0);

  // One that is not mounted is described.
  server_.queue(json_answer(200, "\"/new\""))
      .queue(json_answer(200, "[]"))
      .queue(json_answer(200, R"([{"name":"daily","mountpoint":"/new"}])"));
  EXPECT_THAT(fs({"move", "p-1", "daily", "/new"}).out, HasSubstr("mounted     false\n"));
}

TEST_P(Filesystem, a_move_without_effect_is_reported) {
  server_.queue(json_answer(200, "\"/new\""))
      .queue(json_answer(200, R"([{"name":"daily","mountpoint":"/old"}])"));
  const Run_Result elsewhere = fs({"move", "p-1", "daily", "/new"});
  EXPECT_EQ(elsewhere.exit_code, 1);
  EXPECT_EQ(elsewhere.out, "");
  EXPECT_EQ(elsewhere.err,
            command("move") + "the service accepted the move, but the mount point is /old\n");

  server_.queue(json_answer(200, "\"/new\"")).queue(json_answer(500, "{}"));
  const Run_Result blind = fs({"move", "p-1", "daily", "/new"});
  EXPECT_EQ(blind.exit_code, 8);
  EXPECT_EQ(blind.err, command("move") +
                           "the service accepted the move, but the mount point cannot be read: "
                           "HTTP status 500\n");

  server_.queue(json_answer(409, R"({"error":{"code":-1,"message":"it is taken"}})"));
  const std::size_t before = server_.request_count();
  EXPECT_EQ(fs({"move", "p-1", "daily", "/new"}).exit_code, 4);
  EXPECT_EQ(server_.request_count(), before + 1) << "a refusal needs no second look";
}

TEST_P(Filesystem, a_move_whose_answer_was_lost_is_verified) {
  server_.queue(reset_after_request()).queue(json_answer(200, R"([{"mountpoint":"/new"}])"));
  EXPECT_EQ(fs({"move", "p-1", "daily", "/new"}).exit_code, 0);
  server_.queue(reset_after_request()).queue(json_answer(200, R"([{"mountpoint":"/old"}])"));
  const Run_Result old = fs({"move", "p-1", "daily", "/new"});
  EXPECT_EQ(old.exit_code, 8);
  EXPECT_THAT(old.err, EndsWith("; it is unknown whether the change was made; the mount point is "
                                "/old\n"));
  server_.queue(reset_after_request()).queue(json_answer(500, "{}"));
  EXPECT_EQ(fs({"move", "p-1", "daily", "/new"}).exit_code, 8);
}

TEST_P(Filesystem, is_unmounted_rolled_back_and_deleted) {
  server_.otherwise(json_answer(200, "{}"));
  EXPECT_EQ(fs({"umount", "p-1", "daily"}).exit_code, 0);
  EXPECT_EQ(last().line, "DELETE /zq/r/scsipool/fs/mount?pool_id=p-1&name=daily HTTP/1.1");
  EXPECT_EQ(fs({"rollback", "p-1", "daily", "--yes"}).exit_code, 0);
  EXPECT_EQ(last().line, "PUT /zq/r/scsipool/fs HTTP/1.1");
  EXPECT_EQ(last().body, R"({"name":"daily","pool_id":"p-1"})");
  Run_Options options;
  options.input = "a\nb c\n";
  EXPECT_EQ(fs({"delete", "p-1", "-", "--yes", "--jobs", "1"}, options).exit_code, 0);
  EXPECT_EQ(last().line, "DELETE /zq/r/scsipool/fs?pool_id=p-1&name=b%20c HTTP/1.1");
  const std::size_t before = server_.request_count();
  EXPECT_EQ(fs({"rollback", "p-1", "daily"}).exit_code, 2);
  EXPECT_EQ(fs({"delete", "p-1", "daily"}).exit_code, 2);
  EXPECT_EQ(server_.request_count(), before);
}

TEST_P(Filesystem, failed_changes_and_unknown_outcomes_have_their_exit_codes) {
  const std::vector<std::string> changes[] = {{"create", "p", "f"},
                                              {"clone", "p", "s", "f"},
                                              {"mount", "p", "f"},
                                              {"move", "p", "f", "/x"},
                                              {"umount", "p", "f"},
                                              {"rollback", "p", "f", "--yes"},
                                              {"delete", "p", "f", "--yes"},
                                              {"snapshot", "create", "p", "f"},
                                              {"snapshot", "delete", "p", "s", "--yes"}};
  for (const std::vector<std::string>& arguments : changes) {
    for (const auto& [status, exit_code] : {std::pair{404U, 3}, {507U, 5}}) {
      server_.otherwise(json_answer(status, R"({"error":{"code":-1,"message":"so it is"}})"));
      const Run_Result result = fs(arguments);
      EXPECT_EQ(result.exit_code, exit_code) << testing::PrintToString(arguments);
      EXPECT_THAT(result.err, EndsWith(": HTTP status " + std::to_string(status) + ": so it is\n"));
    }
    server_.otherwise(close_after_request());
    EXPECT_EQ(fs(arguments).exit_code, 8) << testing::PrintToString(arguments);
  }
}

/// A service with snapshots of the filesystem "daily".
class Filesystem_Snapshot : public Filesystem {
 protected:
  Filesystem_Snapshot() {
    server_.otherwise([this](const Recorded_Request& request) {
      if (request.method == "POST") return json_answer(201, R"([{"snapshot_id":"s-9"}])");
      const std::size_t by_id = request.target.find("snapshot_id=");
      std::string list;
      for (const char* const id : {"s-2", "s-1", "s-3"}) {
        if (by_id != std::string::npos && request.target.substr(by_id + 12) != id) continue;
        list += (list.empty() ? "" : ",") + snapshots_.at(id);
      }
      return json_answer(200, "[" + list + "]");
    });
  }

  std::map<std::string, std::string> snapshots_ = {
      {"s-1",
       R"({"excl_size":10,"parent_id":"daily","rfer_size":100,"seq":1,"snapshot_id":"s-1"})"},
      {"s-2", R"({"excl_size":5,"parent_id":"daily","rfer_size":80,"seq":2,"snapshot_id":"s-2"})"},
      {"s-3", R"({"excl_size":1,"parent_id":"daily","rfer_size":99,"seq":3,"snapshot_id":"s-3"})"}};
};

INSTANTIATE_TEST_SUITE_P(Noun, Filesystem_Snapshot, testing::Values("fs", "image"),
                         [](const auto& noun) { return std::string(noun.param); });

TEST_P(Filesystem_Snapshot, is_taken_listed_shown_and_deleted) {
  EXPECT_EQ(fs({"snapshot", "create", "p-1", "daily", "-o", "json"}).out,
            "{\"name\":\"daily\",\"snapshot_id\":\"s-9\"}\n");
  EXPECT_EQ(last().line, "POST /zq/r/scsipool/fs/snapshot HTTP/1.1");
  EXPECT_EQ(last().body, R"({"names":["daily"],"pool_id":"p-1","recycle":false})");
  EXPECT_EQ(fs({"snapshot", "create", "p-1", "daily", "--recyclable"}).exit_code, 0);
  EXPECT_THAT(last().body, HasSubstr(R"("recycle":true)"));
  EXPECT_EQ(fs({"snapshot", "show", "p-1", "s-2", "-o", "json"}).out, snapshots_["s-2"] + "\n");
  EXPECT_EQ(fs({"snapshot", "list", "p-1", "daily", "-o", "json"}).out,
            snapshots_["s-2"] + "\n" + snapshots_["s-1"] + "\n" + snapshots_["s-3"] + "\n");
  EXPECT_EQ(last().target, "/zq/r/scsipool/fs/snapshot?pool_id=p-1&name=daily");
  EXPECT_EQ(fs({"snapshot", "delete", "p-1", "s-1", "--yes", "--delete-empty-fs"}).exit_code, 0);
  EXPECT_EQ(last().target,
            "/zq/r/scsipool/fs/snapshot?pool_id=p-1&snapshot_id=s-1&delete_empty_fs=true");
  EXPECT_EQ(fs({"snapshot", "delete", "p-1", "s-1"}).exit_code, 2);
}

TEST_P(Filesystem_Snapshot, previous_is_shown_although_the_call_returns_false) {
  EXPECT_EQ(fs({"snapshot", "previous", "p-1", "s-3", "-o", "json"}).out, snapshots_["s-2"] + "\n");
  const Run_Result first = fs({"snapshot", "previous", "p-1", "s-1"});
  EXPECT_EQ(first.exit_code, 3);
  EXPECT_EQ(first.err, command("snapshot previous") + "not found: no snapshot comes before it\n");
}

TEST_P(Filesystem_Snapshot, unknown_snapshots_are_not_found_and_unexpected_answers_fail) {
  for (const char* const verb : {"show", "previous", "size"}) {
    const Run_Result absent = fs({"snapshot", verb, "p-1", "s-7"});
    EXPECT_EQ(absent.exit_code, 3);
    EXPECT_EQ(absent.err,
              command(std::string("snapshot ") + verb) + "not found: there is no such snapshot\n");
  }
  server_.otherwise(json_answer(200, "{}"));
  for (const char* const verb : {"show", "previous", "size"}) {
    EXPECT_EQ(fs({"snapshot", verb, "p-1", "s-1"}).exit_code, 1);
  }
  server_.otherwise(json_answer(404, R"({"error":{"code":-1,"message":"no snapshot"}})"));
  for (const char* const verb : {"show", "previous", "size"}) {
    EXPECT_EQ(fs({"snapshot", verb, "p-1", "s-1"}).exit_code, 3);
  }
}

TEST_P(Filesystem_Snapshot, size_is_what_it_adds_and_the_tree_draws_it) {
  EXPECT_EQ(fs({"snapshot", "size", "p-1", "s-1", "s-3", "-o", "tsv"}).out,
            "s-1\tsize\t110\ns-3\tsize\t24\n");
  EXPECT_EQ(fs({"snapshot", "tree", "p-1", "daily"}).out,
            "daily   SEQ  ADDS\n"
            "├─ s-1  1    +110\n"
            "├─ s-2  2    +0\n"
            "└─ s-3  3    +24\n");
  EXPECT_THAT(fs({"snapshot", "tree", "p-1", "daily", "-o", "tsv"}).out,
              HasSubstr("s-3\tadds\t24\n"));
}

TEST_P(Filesystem_Snapshot, size_fails_without_its_predecessor) {
  server_.queue(json_answer(200, "[" + snapshots_["s-3"] + "]"))
      .queue(json_answer(200, "[" + snapshots_["s-3"] + "]"))
      .queue(json_answer(409, "{}"));
  const Run_Result result = fs({"snapshot", "size", "p-1", "s-3"});
  EXPECT_EQ(result.exit_code, 4);
  EXPECT_EQ(result.out, "");
}

TEST_P(Filesystem_Snapshot, the_inner_noun_has_help_and_needs_a_verb) {
  const Run_Result help = fs({"snapshot", "--help"});
  EXPECT_EQ(help.exit_code, 0);
  EXPECT_THAT(help.out, HasSubstr("\n  tree "));
  const Run_Result none = fs({"snapshot"});
  EXPECT_EQ(none.exit_code, 2);
  EXPECT_THAT(none.err, HasSubstr(std::string("zqpool: ") + GetParam() +
                                  " snapshot: a verb is needed: create"));
  EXPECT_EQ(fs({"snapshot", "nonsense"}).exit_code, 2);
}

}  // namespace
}  // namespace zqpool::test
