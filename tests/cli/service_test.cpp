#include <gmock/gmock.h>
#include <signal.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <sstream>

#include "tests/cli/program.h"
#include "tests/support/temp_directory.h"

namespace zqpool::test {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

const char* const daily = "6f1c2f0e-5d0b-4b6e-9a55-0d6a4f1f7a01";
const char* const device_of_daily = "1e7d9b52-6a40-4c1f-8f0a-3b9c2d5e6f11";

/// zqpoold with the example's scenario, over HTTP and HTTPS.
class Service : public testing::Test {
 protected:
  Service() {
    key_file_ = directory_.write("key", "a-key-nobody-may-see\n");
    const Run_Result made =
        run_program({ZQPOOLD_PROGRAM, "--make-certificate", directory_.path("tls")});
    EXPECT_EQ(made.exit_code, 0) << made.err;
    start({"--scenario", ZQPOOL_SOURCE_DIR "/examples/scenario.json", "--s3-secret-file",
           directory_.write("s3-secret", "shared\n")});
  }

  void start(const std::vector<std::string>& more = {}) {
    std::vector<std::string> arguments = {ZQPOOLD_PROGRAM,
                                          "--listen",
                                          "127.0.0.1:0",
                                          "--tls-listen",
                                          "127.0.0.1:0",
                                          "--certificate",
                                          directory_.path("tls/certificate.pem"),
                                          "--private-key",
                                          directory_.path("tls/key.pem"),
                                          "--state",
                                          directory_.path("state"),
                                          "--access-key-file",
                                          key_file_,
                                          "--access-log",
                                          directory_.path("access.log"),
                                          "--lab"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    service_ = std::make_unique<Program>(arguments);
    if (!service_->wait_for_output("\n")) FAIL() << service_->wait().err;
    std::istringstream line(service_->output());
    std::string word;
    line >> word >> word >> http_ >> https_;
  }

  /// Over HTTPS unless `arguments` name an endpoint.
  Run_Result run(const std::vector<std::string>& arguments, const std::string& input = "") {
    Run_Options options;
    options.input = input;
    options.environment = {"ZQPOOL_ENDPOINT=" + https_, "ZQPOOL_ACCESS_KEY_FILE=" + key_file_,
                           "ZQPOOL_CACERT=" + directory_.path("tls/certificate.pem")};
    return zqpool(arguments, options);
  }

  Temp_Directory directory_;
  std::string key_file_;
  std::string http_;
  std::string https_;
  std::unique_ptr<Program> service_;
};

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

TEST_F(Service, says_what_is_not_there_and_who_may_not_ask) {
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

TEST_F(Service, a_scripted_fault_happens_and_is_survived) {
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

TEST_F(Service, what_was_answered_survives_a_kill) {
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

TEST_F(Demo, without_programs_it_says_what_it_needs) {
  const Run_Result result = run_program(
      {"/bin/bash", ZQPOOL_SOURCE_DIR "/examples/demo.sh", directory_.path()}, in_directory());
  EXPECT_EQ(result.exit_code, 2);
  EXPECT_THAT(result.err, StartsWith("usage: "));
}

}  // namespace
}  // namespace zqpool::test
