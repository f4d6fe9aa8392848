#include <gmock/gmock.h>
#include <signal.h>
#include <unistd.h>

#include <filesystem>
#include <sstream>

#include "tests/cli/programs/service_fixture.h"
#include "tests/support/temp_directory.h"

namespace zqpool::test {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

const char* const daily = "6f1c2f0e-5d0b-4b6e-9a55-0d6a4f1f7a01";
const char* const device_of_daily = "1e7d9b52-6a40-4c1f-8f0a-3b9c2d5e6f11";

TEST_F(Service, gives_the_same_record_over_http_and_https) {
  const Run_Result plain = run({"pool", "show", daily, "-o", "json", "--endpoint", http_});
  const Run_Result tls = run({"pool", "show", daily, "-o", "json"});
  EXPECT_EQ(plain.exit_code, 0) << plain.err;
  EXPECT_EQ(tls.exit_code, 0) << tls.err;
  EXPECT_EQ(plain.out, tls.out);
  EXPECT_THAT(plain.out, HasSubstr(R"("name":"daily")"));
}

TEST_F(Service, answers_every_read) {
  EXPECT_THAT(run({"device", "show", "--uuid", device_of_daily, "-o", "tsv"}).out,
              HasSubstr("\turl\tfile:///srv/backup/a\n"));
  EXPECT_THAT(run({"device", "show", "--url", "file:///srv/backup/a", "-o", "tsv"}).out,
              HasSubstr(std::string("\tuuid\t") + device_of_daily + "\n"));
  EXPECT_THAT(run({"device", "located", daily, "/jobs/mail", "-o", "tsv"}).out,
              HasSubstr("\ttype\tdir\n"));
  EXPECT_THAT(run({"device", "info", "file:///srv/backup/a/x", "-o", "tsv"}).out,
              HasSubstr("\tpath\t/x\n"));
}

TEST_F(Service, reports_unknown_objects_and_wrong_keys) {
  EXPECT_EQ(run({"pool", "show", "00000000-0000-0000-0000-000000000000"}).exit_code, 3);
  EXPECT_EQ(run({"device", "show", "--url", "file:///nowhere"}).exit_code, 3);
  EXPECT_EQ(run({"device", "located", daily, "/nowhere"}).exit_code, 3);
  EXPECT_EQ(run({"device", "info", "file:///nowhere"}).exit_code, 3);
  const std::string stranger = directory_.write("stranger", "another-key");
  const Run_Result refused = run({"pool", "show", daily, "--access-key-file", stranger});
  EXPECT_EQ(refused.exit_code, 6);
  EXPECT_THAT(refused.err, HasSubstr("the access key is wrong"));
}

TEST_F(Service, a_url_of_two_pools_is_a_conflict) {
  const std::string scenario =
      R"({"devices":[{"uuid":"ffffffff-0000-4000-8000-000000000001","name":"twin","type":"disk",)"
      R"("pool_uuid":"d94c1e6b-27a8-4f3b-b1de-7c0e5a8f4c03","url":"file:///srv/backup/a","size":1}]})";
  ASSERT_EQ(run({"lab", "scenario", "--merge", "-"}, scenario).exit_code, 0);
  const Run_Result result = run({"device", "show", "--url", "file:///srv/backup/a"});
  EXPECT_EQ(result.exit_code, 4);
  EXPECT_THAT(result.err, HasSubstr("several pools"));
}

TEST_F(Service, many_objects_come_in_order) {
  std::string input;
  std::string wanted;
  for (int i = 0; i < 200; ++i) {
    input += std::string(device_of_daily) + "\n";
    wanted += std::string(device_of_daily) + "\tname\tbackup1:/srv/backup/a\n";
  }
  const Run_Result result =
      run({"device", "show", "--uuid", "-", "--jobs", "16", "-o", "tsv"}, input);
  EXPECT_EQ(result.exit_code, 0) << result.err;
  std::string names;
  std::istringstream lines(result.out);
  for (std::string line; std::getline(lines, line);) {
    if (line.find("\tname\t") != std::string::npos) names += line + "\n";
  }
  EXPECT_EQ(names, wanted);
}

TEST_F(Service, resolves_every_kind_of_pool) {
  const std::string here = "8c1d5a3e-2b7f-4e60-9d14-3a5b6c7d8e9f";
  const auto resolved = [&](std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"pool", "resolve", "-o", "tsv", "--host-uuid", here});
    const Run_Result result = run(arguments);
    EXPECT_EQ(result.exit_code, 0) << result.err;
    return result.out;
  };
  EXPECT_THAT(resolved({daily}), HasSubstr("\turl\tfile:///mnt/backup/a\n"));
  const std::string dedup = resolved({"b3a0a7c4-8f5e-4d2a-8a64-2f5d1c9e7b02", "--show-secrets"});
  EXPECT_THAT(dedup, HasSubstr("\tnode_addrs.1\tdedups://dedup1.lab.example:8443\n"));
  EXPECT_THAT(dedup, HasSubstr("\tnode_addrs.2\tdedups://dedup2.lab.example:8443\n"));
  EXPECT_THAT(dedup, HasSubstr("\tkey\tbGFiIGtleSwgbmV2ZXIgdXNlZCBmb3IgcmVhbCBkYXQ=\n"));
  EXPECT_THAT(resolved({"e15a2f8d-39c4-4b5d-8f0e-1a2b3c4d5e04"}),
              HasSubstr("\ttenant_access_key\t(hidden)\n"));
  const std::string s3 = resolved({"d94c1e6b-27a8-4f3b-b1de-7c0e5a8f4c03", "--show-secrets"});
  EXPECT_THAT(s3, HasSubstr("\text_attrs.access_key\tLAB-ARCHIVE\n"));
  EXPECT_THAT(s3, HasSubstr("\text_attrs.secret_key\tsealed when it is loaded\n"));
  EXPECT_THAT(resolved({"f26b309e-4ad5-4c6e-90f1-2b3c4d5e6f05"}),
              HasSubstr("\text_attrs.backupd_host\t127.0.0.1\n"));
  EXPECT_THAT(resolved({"037c41af-5be6-4d7f-a102-3c4d5e6f7006"}),
              HasSubstr("\text_attrs.bucket\tvault-7\n"));
  EXPECT_THAT(resolved({"148d52b0-6cf7-4e80-b213-4d5e6f708107"}),
              HasSubstr("\turl\tlanfree://san.lab.example/148d52b0/1/zq\n"));
  EXPECT_THAT(resolved({"259e63c1-7d08-4f91-8324-5e6f70819208"}),
              HasSubstr("\turl\thttps://store1.lab.example:8443/zq/data/c429a60d\n"));
  const Run_Result replica =
      run({"pool", "resolve", "--replica", "5c2e9a40-1f6d-4c3b-a7e8-90b1c2d3e4f5", "-o", "tsv"});
  EXPECT_THAT(replica.out, HasSubstr("\tname\tvm-dedup\n")) << replica.err;
  EXPECT_EQ(run({"pool", "url", daily, "--host-uuid", here, "-o", "tsv"}).out,
            std::string(daily) + "\turl\tfile:///mnt/backup/a\n");
}

TEST_F(Service, unresolvable_pools_have_their_exit_codes) {
  const std::string nobody = "00000000-0000-4000-8000-000000000000";
  EXPECT_EQ(run({"pool", "resolve", nobody}).exit_code, 3);
  const Run_Result replica = run({"pool", "resolve", "--replica", nobody});
  EXPECT_EQ(replica.exit_code, 3) << replica.err;
  EXPECT_THAT(replica.err, HasSubstr("there is no replica"));
  EXPECT_EQ(run({"pool", "resolve", daily, "--device", nobody}).exit_code, 3);
  EXPECT_EQ(run({"lab", "fault", "status", "--status", "500", "--times", "1", "--body",
                 R"({"error":{"code":1,"message":"busy"}})", "--path", "/zq/r/storages/pool"})
                .exit_code,
            0);
  const Run_Result again = run({"pool", "resolve", daily, "--retry", "30s", "--host-uuid",
                                "8c1d5a3e-2b7f-4e60-9d14-3a5b6c7d8e9f"});
  EXPECT_EQ(again.exit_code, 0) << again.err;
  EXPECT_THAT(again.err, HasSubstr("HTTP status 500: busy; retrying\n"));
}

TEST_F(Service, keeps_what_was_written_to_the_catalog) {
  EXPECT_EQ(run({"device", "located", daily, "/new/a"}).exit_code, 3);
  const Run_Result added =
      run({"metadata", "add", daily, device_of_daily, "-", "--size", "10GiB"}, "/new/a\n/new/b\n");
  EXPECT_EQ(added.exit_code, 0) << added.err;
  EXPECT_THAT(run({"device", "located", daily, "/new/b", "-o", "tsv"}).out,
              HasSubstr(std::string("\tdevices.0.uuid\t") + device_of_daily + "\n"));
  EXPECT_EQ(run({"metadata", "remove", daily, "/new/a", "--yes"}).exit_code, 0);
  EXPECT_EQ(run({"device", "located", daily, "/new/a"}).exit_code, 3);
  EXPECT_THAT(run({"device", "offer", daily, "-o", "tsv"}).out, HasSubstr("\tpool_uuid\t"));
  const std::string volume = "b31895fc-04ea-46b9-83a4-d536c7f8631b";
  const Run_Result bound =
      run({"device", "bind", volume, "--host-uuid", "host-9", "--sysname", "db9"});
  EXPECT_EQ(bound.exit_code, 0) << bound.err;
  EXPECT_THAT(run({"device", "show", "--uuid", volume, "-o", "tsv"}).out, HasSubstr("\tdb9\n"));
}

TEST_F(Service, shows_its_space) {
  const Run_Result result = run({"space", "-o", "tsv"});
  EXPECT_EQ(result.exit_code, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr("\tsize\t"));
  EXPECT_THAT(result.out, HasSubstr("\tavailable\t"));
}

TEST_F(Service, a_scripted_fault_is_survived) {
  EXPECT_EQ(
      run({"lab", "fault", "reset_before_commit", "--path", "/zq/r/*", "--times", "1"}).exit_code,
      0);
  const Run_Result shown = run({"pool", "show", daily, "--trace", "-o", "json"});
  EXPECT_EQ(shown.exit_code, 0) << shown.err;
  EXPECT_THAT(shown.err, HasSubstr(" attempts=2 "));
  EXPECT_THAT(run({"lab", "faults", "-o", "tsv"}).out, HasSubstr("1\tfired\t1\n"));
  EXPECT_EQ(run({"lab", "clear"}).exit_code, 0);
  EXPECT_EQ(run({"lab", "faults"}).out, "");
}

TEST_F(Service, answered_changes_survive_a_kill) {
  const std::string pool = "e05d2f7c-38b9-4a4c-8ef1-8d1f6b905d04";
  ASSERT_EQ(run({"lab", "scenario", "--merge", "-"},
                R"({"pools":[{"uuid":")" + pool + R"(","name":"weekly","type":"file"}]})")
                .exit_code,
            0);
  service_->send(SIGKILL);
  EXPECT_EQ(service_->wait().signal, SIGKILL);
  EXPECT_EQ(run({"pool", "show", pool}).exit_code, 7);
  start();
  EXPECT_THAT(run({"pool", "show", pool, "-o", "json"}).out, HasSubstr(R"("name":"weekly")"));
  service_->send(SIGTERM);
  EXPECT_EQ(service_->wait().exit_code, 0);
}

class Demo : public testing::Test {
 protected:
  static std::vector<std::string> call() {
    return {"/bin/bash", ZQPOOL_SOURCE_DIR "/examples/demo.sh",
            std::filesystem::path(ZQPOOL_PROGRAM).parent_path()};
  }
  Run_Options in_directory() const {
    Run_Options options;
    options.environment = {"TMPDIR=" + directory_.path()};
    return options;
  }
  Temp_Directory directory_;
};

TEST_F(Demo, runs_to_its_end_and_leaves_nothing_behind) {
  const Run_Result result = run_program(call(), in_directory());
  EXPECT_EQ(result.exit_code, 0) << result.out << result.err;
  EXPECT_EQ(result.err, "");
  EXPECT_THAT(result.out, HasSubstr("exit code 3\n"));
  EXPECT_THAT(result.out, HasSubstr("certificate refused"));
  EXPECT_THAT(result.out, HasSubstr(" attempts=2 "));
  EXPECT_THAT(result.out, HasSubstr("the service ended with 0"));
  EXPECT_THAT(result.out, HasSubstr("Where to go next\n"));
  EXPECT_TRUE(std::filesystem::is_empty(directory_.path()));
}

TEST_F(Demo, an_interrupt_ends_its_service_too) {
  Program demo(call(), in_directory());
  ASSERT_TRUE(demo.wait_for_output("(process "));
  ASSERT_TRUE(demo.wait_for_output("\n2. "));
  const std::string& shown = demo.output();
  const pid_t service = std::stoi(shown.substr(shown.find("(process ") + 9));
  demo.send(SIGTERM);
  EXPECT_EQ(demo.wait().exit_code, 143);
  EXPECT_EQ(kill(service, 0), -1) << "the service still runs";
  EXPECT_TRUE(std::filesystem::is_empty(directory_.path()));
}

TEST_F(Demo, without_programs_it_names_what_it_needs) {
  const Run_Result result = run_program(
      {"/bin/bash", ZQPOOL_SOURCE_DIR "/examples/demo.sh", directory_.path()}, in_directory());
  EXPECT_EQ(result.exit_code, 2);
  EXPECT_THAT(result.err, StartsWith("usage: "));
}

}  // namespace
}  // namespace zqpool::test
