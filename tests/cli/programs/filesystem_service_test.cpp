#include <gmock/gmock.h>

#include "tests/cli/programs/service_fixture.h"

namespace zqpool::test {
namespace {

using testing::EndsWith;
using testing::HasSubstr;

struct Kind {
  const char* noun;
  const char* pool;
};

/// Filesystems of zqpoold, on a SCSI pool and on an image pool.
class Filesystem_Service : public Service, public testing::WithParamInterface<Kind> {
 protected:
  Run_Result fs(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), GetParam().noun);
    return run(arguments);
  }
  void done(const std::vector<std::string>& arguments) {
    const Run_Result result = fs(arguments);
    EXPECT_EQ(result.exit_code, 0) << testing::PrintToString(arguments) << result.err;
  }

  const std::string pool_ = GetParam().pool;
};

INSTANTIATE_TEST_SUITE_P(Noun, Filesystem_Service,
                         testing::Values(Kind{"fs", "36af74d2-8e19-4a02-9435-6f7081920a09"},
                                         Kind{"image", "36af74d2-8e19-4aa2-9435-6f708192a309"}),
                         [](const auto& kind) { return std::string(kind.param.noun); });

TEST_P(Filesystem_Service, a_backups_cycle_from_the_first_write_to_the_end) {
  done({"create", pool_, "weekly", "--mount-point", "/srv/weekly"});
  EXPECT_THAT(fs({"list-mounted", pool_, "weekly", "-o", "tsv"}).out,
              HasSubstr("weekly\tmountpoint\t/srv/weekly\n"));
  const auto write = [this](const char* offset, const char* length) {
    const Run_Result written =
        run({"lab", "write", pool_, "--name", "weekly", "--offset", offset, "--length", length});
    EXPECT_EQ(written.exit_code, 0) << written.err;
  };
  write("0", "64MiB");
  const std::string first =
      value_of(fs({"snapshot", "create", pool_, "weekly", "-o", "tsv"}), "snapshot_id");
  write("512MiB", "32MiB");
  const std::string second =
      value_of(fs({"snapshot", "create", pool_, "weekly", "-o", "tsv"}), "snapshot_id");
  EXPECT_EQ(value_of(fs({"snapshot", "previous", pool_, second, "-o", "tsv"}), "snapshot_id"),
            first);
  EXPECT_EQ(fs({"snapshot", "previous", pool_, first}).exit_code, 3);
  EXPECT_EQ(value_of(fs({"snapshot", "size", pool_, second, "-o", "tsv"}), "size"), "33554432");
  const Run_Result tree = fs({"snapshot", "tree", pool_, "weekly"});
  EXPECT_EQ(tree.exit_code, 0) << tree.err;
  EXPECT_THAT(tree.out, EndsWith("└─ " + second + "  2    +33554432 (32 MiB)\n"));

  const Run_Result moved = fs({"move", pool_, "weekly", "/srv/elsewhere", "-o", "json"});
  EXPECT_EQ(moved.exit_code, 0) << moved.err;
  EXPECT_EQ(moved.out, R"({"mounted":true,"mountpoint":"/srv/elsewhere","name":"weekly"})"
                       "\n");
  EXPECT_EQ(fs({"rollback", pool_, "weekly", "--yes"}).exit_code, 4) << "it is mounted";
  done({"umount", pool_, "weekly"});
  const Run_Result unmounted = fs({"move", pool_, "weekly", "/srv/weekly", "-o", "json"});
  EXPECT_EQ(unmounted.out, R"({"mounted":false,"mountpoint":"/srv/weekly","name":"weekly"})"
                           "\n");
  done({"rollback", pool_, "weekly", "--yes"});
  EXPECT_EQ(value_of(fs({"mount", pool_, "weekly", "-o", "tsv"}), "mountpoint"), "/srv/weekly");
  done({"umount", pool_, "weekly"});
  done({"clone", pool_, first, "copy"});
  EXPECT_EQ(value_of(fs({"show", pool_, "copy", "-o", "tsv"}), "origin"), first);
  EXPECT_EQ(fs({"snapshot", "delete", pool_, first, "--yes"}).exit_code, 4) << "a clone needs it";
  done({"delete", pool_, "copy", "--yes"});
  done({"snapshot", "delete", pool_, first, second, "--yes", "--jobs", "1"});
  done({"delete", pool_, "weekly", "--yes"});
  EXPECT_EQ(fs({"show", pool_, "weekly"}).exit_code, 3);
}

TEST_P(Filesystem_Service, a_move_that_fails_or_loses_its_answer_is_reported) {
  done({"create", pool_, "a", "--mount-point", "/srv/a"});
  done({"create", pool_, "b", "--mount-point", "/srv/b"});
  const Run_Result taken = fs({"move", pool_, "a", "/srv/b"});
  EXPECT_EQ(taken.exit_code, 4);
  EXPECT_THAT(taken.err, HasSubstr("belongs to filesystem"));
  const auto lose = [this](const char* kind) {
    EXPECT_EQ(run({"lab", "fault", kind, "--method", "PUT", "--times", "1", "--path",
                   "/zq/r/scsipool/fs/mount"})
                  .exit_code,
              0);
  };
  lose("reset_after_commit");
  EXPECT_EQ(fs({"move", pool_, "a", "/srv/c"}).exit_code, 0) << "it was made, and that is seen";
  lose("reset_before_commit");
  const Run_Result lost = fs({"move", pool_, "a", "/srv/d"});
  EXPECT_EQ(lost.exit_code, 8);
  EXPECT_THAT(lost.err, EndsWith("; the mount point is /srv/c\n"));
}

class NFS_Service : public Service {};

TEST_F(NFS_Service, an_export_is_made_changed_and_withdrawn) {
  const Run_Result made =
      run({"nfs", "export", "--path", "/srv/lab", "--wait", "20s", "-o", "tsv"});
  EXPECT_EQ(made.exit_code, 0) << made.err;
  const std::string uuid = value_of(made, "uuid");
  EXPECT_EQ(uuid.size(), 36U);
  EXPECT_EQ(run({"nfs", "export", "--path", "/srv/other", "--pseudo", "/srv/lab"}).exit_code, 4);
  const Run_Result updated =
      run({"nfs", "update", uuid, "--path", "/srv/lab", "--readonly", "--client", "192.0.2.7"});
  EXPECT_EQ(updated.exit_code, 0) << updated.err;
  EXPECT_EQ(run({"nfs", "unexport", uuid, "--wait", "20s"}).exit_code, 0);
  EXPECT_EQ(run({"nfs", "update", uuid, "--path", "/srv/lab"}).exit_code, 3);
  EXPECT_EQ(run({"nfs", "unexport", "00000000-0000-4000-8000-000000000000"}).exit_code, 3);
  EXPECT_EQ(run({"nfs", "export", "--pool", "36af74d2-8e19-4aa2-9435-6f708192a309"}).exit_code, 0);
}

}  // namespace
}  // namespace zqpool::test
