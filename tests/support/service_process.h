#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

#include "tests/support/scripted_server.h"
#include "tests/support/sockets.h"
#include "tests/support/temp_directory.h"

namespace zqpool::test {

struct Service_Settings {
  /// JSON text to fill a new state with; "" for an empty state.
  std::string scenario;
  /// Further arguments of the command line.
  std::vector<std::string> arguments;
  bool lab = true;         ///< serve /zq/lab/
  bool access_key = true;  ///< ask for a key
};

/// The real zqpoold in a child process: HTTP and HTTPS on free ports of 127.0.0.1, with state, key
/// and log in a temporary directory. Trust its certificate with
/// Test_Certificates::instance().ca_file, or options_with_test_ca().
///
/// The process ends at the latest with this object or with the thread that started it. The test
/// fails if one of the known Secrets was logged.
class Service_Process {
 public:
  /// Starts it and waits until it listens. Throws std::runtime_error, with what the process said,
  /// when it does not within two minutes.
  explicit Service_Process(const Service_Settings& settings = {});
  ~Service_Process();
  Service_Process(const Service_Process&) = delete;
  Service_Process& operator=(const Service_Process&) = delete;

  Endpoint http() const { return {"127.0.0.1", http_port_, false}; }
  Endpoint https() const { return {"127.0.0.1", https_port_, true}; }
  Endpoint endpoint(bool ssl) const { return ssl ? https() : http(); }
  /// "" when none is asked for.
  const std::string& access_key() const { return access_key_; }
  std::string state_file() const { return directory_.path("state"); }
  const Temp_Directory& directory() const { return directory_; }

  /// 0 while it is not running.
  pid_t pid() const { return pid_; }
  void signal(int number) const;
  /// SIGTERM, then as wait().
  int stop();
  /// SIGKILL, and waits for its end.
  void kill();
  /// Waits for its end; returns the exit code, or minus the signal that ended it. After `patience`
  /// kills the process and throws std::runtime_error.
  int wait(std::chrono::seconds patience = std::chrono::minutes(2));
  /// Starts it again on the same state, key and certificate, on other ports. Must not be running.
  void start();

  /// Lines of the access log so far.
  std::vector<std::string> access_log() const;
  /// Its standard error so far.
  std::string messages() const;

 private:
  void read_ready_line();

  Temp_Directory directory_;
  std::string access_key_;
  std::vector<std::string> command_;
  pid_t pid_ = 0;
  File_Descriptor process_;
  File_Descriptor output_;
  unsigned short http_port_ = 0;
  unsigned short https_port_ = 0;
};

struct Service_Result {
  int exit_code = 0;  ///< minus the signal that ended it
  std::string output;
  std::string messages;
};

/// Runs zqpoold with a command line that ends by itself. After two minutes kills it and throws
/// std::runtime_error.
Service_Result run_service(const std::vector<std::string>& arguments);

}  // namespace zqpool::test
