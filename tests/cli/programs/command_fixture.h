#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/cli/programs/program.h"
#include "tests/support/scripted_server.h"
#include "tests/support/temp_directory.h"

namespace zqpool::test {

inline std::string url_of(const Scripted_Server& server) {
  return (server.ssl() ? "https://" : "http://") + server.host() + ":" +
         std::to_string(server.port());
}

/// A service on loopback, and zqpool called with it as its endpoint and a key file.
class Command : public testing::Test {
 protected:
  Command() : key_file_(directory_.write("key", key_ + "\n")) {}

  /// Runs zqpool with the endpoint and the key of the test. Synchronises with the service's threads
  /// before and after.
  Run_Result run(const std::vector<std::string>& arguments, const Run_Options& options = {}) {
    server_.settle();
    Run_Result result = zqpool(with_service(arguments), options);
    server_.settle();
    return result;
  }

  std::vector<std::string> with_service(std::vector<std::string> arguments) const {
    arguments.insert(arguments.end(),
                     {"--endpoint", url_of(server_), "--access-key-file", key_file_});
    return arguments;
  }

  const std::string key_ = "a-key-nobody-may-see";
  Temp_Directory directory_;
  const std::string key_file_;
  Scripted_Server server_;
};

}  // namespace zqpool::test
