#include <gmock/gmock.h>

#include <filesystem>

#include "tests/cli/programs/service_fixture.h"

namespace zqpool::test {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

const char* const pool = "36af74d2-8e19-4a02-9435-6f7081920a09";
const char* const host = "iqn.2026-11.lab:host1";

/// Commands on a SCSI pool of zqpoold, for a host that is an initiator by name.
class SCSI_Service : public Service {
 protected:
  SCSI_Service() {
    std::filesystem::create_directories(directory_.path("root/etc"));
    directory_.write("root/etc/machine-id", "8c1d5a3e2b7f4e609d143a5b6c7d8e9f\n");
  }

  /// Runs a command that must succeed and returns the value of this member of its record.
  std::string value(const std::string& key, std::vector<std::string> arguments) {
    arguments.insert(arguments.end(), {"-o", "tsv"});
    const Run_Result result = run(arguments);
    EXPECT_EQ(result.exit_code, 0) << testing::PrintToString(arguments) << result.err;
    return value_of(result, key);
  }

  void done(const std::vector<std::string>& arguments) {
    const Run_Result result = run(arguments);
    EXPECT_EQ(result.exit_code, 0) << testing::PrintToString(arguments) << result.err;
  }

  /// Runs on a host whose identity is in files: the test machine may have none.
  std::vector<std::string> as_host(std::vector<std::string> arguments,
                                   const std::string& initiator = host) const {
    arguments.insert(arguments.end(),
                     {"--initiator", initiator, "--host-root", directory_.path("root")});
    return arguments;
  }
};

TEST_F(SCSI_Service, a_backups_cycle_from_the_first_write_to_the_end) {
  const std::string lun =
      value("lun_id", as_host({"lun", "create", pool, "--size", "1GiB", "--newest"}));
  const std::string number = value("lun_num", {"lun", "number", pool, lun});
  EXPECT_EQ(value("retention_type", {"lun", "show", pool, lun}), "newest");
  EXPECT_FALSE(value("serial_number", {"lun", "serial", pool, lun}).empty());
  EXPECT_THAT(run({"lab", "visible", host, "-o", "tsv"}).out,
              HasSubstr(lun + "\tlun_num\t" + number + "\n"));

  const std::string target = value("target", {"pool", "scsi", pool});
  done({"lab", "write", "--initiator", host, "--target", target, "--lun-num", number, "--length",
        "64MiB"});
  const std::string first = value("snapshot_id", {"snapshot", "create", pool, lun});
  done({"lab", "write", pool, lun, "--offset", "512MiB", "--length", "32MiB"});
  const std::string second = value("snapshot_id", {"snapshot", "create", pool, lun});
  EXPECT_EQ(value("snapshot_id", {"snapshot", "previous", pool, second}), first);
  EXPECT_EQ(run({"snapshot", "previous", pool, first}).exit_code, 3);
  EXPECT_EQ(value("size", {"snapshot", "size", pool, second}), "33554432");
  const Run_Result tree = run({"snapshot", "tree", pool, lun});
  EXPECT_EQ(tree.exit_code, 0) << tree.err;
  EXPECT_THAT(tree.out, HasSubstr("├─ " + first + "  1"));
  EXPECT_THAT(tree.out, EndsWith("└─ " + second + "  2    +33554432 (32 MiB)\n"));

  const std::string share = value("lun_num", as_host({"snapshot", "share", pool, first}));
  EXPECT_EQ(value("lun_num", {"snapshot", "show", pool, first}), share);
  done(as_host({"snapshot", "allow", pool, first, "--lun-num", share}, "iqn.x:b"));
  EXPECT_THAT(run({"lab", "visible", "iqn.x:b", "-o", "tsv"}).out, HasSubstr("\tsnapshot_id\t"));
  done({"snapshot", "unshare", pool, first, "--lun-num", share});
  EXPECT_EQ(run({"lab", "visible", "iqn.x:b"}).out, "");

  const Run_Result in_use = run({"lun", "rollback", pool, lun, "--yes"});
  EXPECT_EQ(in_use.exit_code, 4);
  EXPECT_THAT(in_use.err, HasSubstr("is exported"));
  EXPECT_EQ(run({"lun", "delete", pool, lun, "--yes"}).exit_code, 4);
  done({"lun", "unexport", pool, lun});
  done({"lun", "rollback", pool, lun, "--yes"});
  const std::string clone = value("lun_id", {"lun", "create-from", pool, first});
  EXPECT_EQ(value("origin", {"lun", "show", pool, clone}), first);
  done({"lun", "delete", pool, clone, "--yes"});
  done({"snapshot", "delete", pool, first, second, "--yes", "--jobs", "1"});
  EXPECT_EQ(run({"snapshot", "tree", pool, lun}).out, lun + "  SEQ  ADDS\n");
  done({"lun", "delete", pool, lun, "--yes"});
  EXPECT_EQ(run({"lun", "show", pool, lun}).exit_code, 3);
  EXPECT_THAT(run({"lun", "list", pool, "-o", "tsv"}).out, Not(HasSubstr(lun)));
}

TEST_F(SCSI_Service, a_dry_run_changes_nothing) {
  const std::string before = run({"lun", "list", pool, "-o", "json"}).out;
  const Run_Result shown =
      run(as_host({"lun", "create", pool, "--size", "1GiB", "--newest", "--dry-run"}));
  EXPECT_EQ(shown.exit_code, 0) << shown.err;
  EXPECT_THAT(shown.out, HasSubstr("POST /zq/r/scsipool/lun HTTP/1.1\n"));
  EXPECT_EQ(run({"lun", "list", pool, "-o", "json"}).out, before);
}

TEST_F(SCSI_Service, a_full_and_an_unknown_pool_have_their_exit_codes) {
  EXPECT_EQ(run({"lun", "create", pool, "--size", "2TiB"}).exit_code, 5);
  EXPECT_EQ(
      run({"lun", "create", "00000000-0000-4000-8000-000000000000", "--size", "1GiB"}).exit_code,
      3);
  EXPECT_EQ(run({"pool", "scsi", "00000000-0000-4000-8000-000000000000"}).exit_code, 3);
  const std::string fabric = "47b085e3-9f2a-4b13-a546-708192a31b0a";
  EXPECT_THAT(run({"pool", "scsi", fabric, "-o", "tsv"}).out, HasSubstr("\ttransport\tFC\n"));
}

TEST_F(SCSI_Service, a_change_whose_answer_is_lost_is_in_doubt_and_was_made) {
  const auto luns = [this] { return run({"lun", "list", pool, "-o", "json"}).out; };
  const std::string before = luns();
  done({"lab", "fault", "reset_after_commit", "--method", "POST", "--times", "1", "--path",
        "/zq/r/scsipool/lun"});
  const Run_Result result = run({"lun", "create", pool, "--size", "1GiB"});
  EXPECT_EQ(result.exit_code, 8);
  EXPECT_THAT(result.err, EndsWith("; it is unknown whether the change was made\n"));
  EXPECT_NE(luns(), before);
}

}  // namespace
}  // namespace zqpool::test
