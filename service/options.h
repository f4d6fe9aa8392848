#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "service/http/server.h"

namespace zqpool::service {

/// The command line's options.
struct Options {
  Server_Settings server;
  std::string state_file;
  std::string scenario_file;
  bool reload_scenario = false;
  std::string access_key_file;
  bool no_access_key = false;
  std::string s3_secret_file;
  std::string make_certificate;  ///< directory; if set, nothing else is done
  std::string access_log = "-";
  std::string ready_file;
  bool lab = false;
  std::chrono::milliseconds nfs_delay{50};
};

/// Reads the command line. None if the process is to end with `exit_code`: after --help, --version
/// or a usage error.
std::optional<Options> read_options(int argc, char** argv, int& exit_code);

}  // namespace zqpool::service
