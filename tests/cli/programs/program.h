#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "tests/support/sockets.h"

namespace zqpool::test {

/// How a program is started: with an environment of its own, without a configuration and by default
/// without a terminal.
struct Run_Options {
  std::vector<std::string> environment;  ///< "NAME=value", besides PATH and HOME
  std::string home = "/nonexistent";
  std::string input;               ///< standard input
  std::string output_file;         ///< standard output goes there instead of to Program
  bool terminal = false;           ///< a controlling terminal
  bool error_on_terminal = false;  ///< standard error is that terminal
  bool output_on_terminal = false;
  unsigned short columns = 0;  ///< the terminal's width
};

struct Run_Result {
  int exit_code = -1;  ///< -1 when a signal ended it
  int signal = 0;
  std::string out;
  std::string err;
  std::string terminal;  ///< all that the terminal showed
};

/// A running program. The destructor kills it if it still runs.
class Program {
 public:
  /// `arguments` begin with the program's path. Throws std::system_error when it cannot start.
  Program(const std::vector<std::string>& arguments, const Run_Options& options = {});
  ~Program();
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  pid_t pid() const { return pid_; }
  /// Types on the program's terminal.
  void type(const std::string& text);
  /// Reads until the terminal shows `text`; false after fifty seconds or when the program has
  /// ended.
  bool wait_for_terminal(const std::string& text);
  /// The same for its standard output.
  bool wait_for_output(const std::string& text);
  /// What standard output showed so far.
  const std::string& output() const { return result_.out; }
  void send(int signal_number);
  /// Closes our end of its standard output.
  void close_output();
  /// Reads all its output until it ends. After fifty seconds it is killed (signal 9 then).
  Run_Result wait();

 private:
  bool read_some(int milliseconds);
  bool wait_for(const std::string& shown, const std::string& text);

  pid_t pid_ = -1;
  File_Descriptor out_;
  File_Descriptor err_;
  File_Descriptor terminal_;
  Run_Result result_;
};

/// Runs a program to its end.
Run_Result run_program(const std::vector<std::string>& arguments, const Run_Options& options = {});

/// The same for zqpool.
Run_Result zqpool(std::vector<std::string> arguments, const Run_Options& options = {});

}  // namespace zqpool::test
