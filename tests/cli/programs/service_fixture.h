#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "tests/cli/programs/program.h"
#include "tests/support/temp_directory.h"

namespace zqpool::test {

/// The value of a member of a record that was printed as tsv, "" when it has none of that name.
inline std::string value_of(const Run_Result& result, const std::string& key) {
  EXPECT_EQ(result.exit_code, 0) << result.err;
  const std::string field = "\t" + key + "\t";
  const std::size_t begin = result.out.find(field);
  if (begin == std::string::npos) return "";
  const std::size_t start = begin + field.size();
  return result.out.substr(start, result.out.find('\n', start) - start);
}

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
                           "ZQPOOL_S3_SECRET_FILE=" + directory_.path("s3-secret"),
                           "ZQPOOL_CACERT=" + directory_.path("tls/certificate.pem")};
    return zqpool(arguments, options);
  }

  Temp_Directory directory_;
  std::string key_file_;
  std::string http_;
  std::string https_;
  std::unique_ptr<Program> service_;
};

}  // namespace zqpool::test
