#pragma once

#include <stdexcept>
#include <string>

namespace zqpool::cli {

/// The exit codes of the process. Scripts rely on these numbers.
enum class Exit_Code : int {
  done = 0,
  failed = 1,
  usage = 2,
  not_found = 3,
  conflict = 4,
  no_space = 5,
  not_allowed = 6,
  unreachable = 7,      ///< unreachable or too late
  outcome_unknown = 8,  ///< a change may or may not have been made
  interrupted = 130,    ///< SIGINT
  output_closed = 141,  ///< nobody reads standard output any more
};

/// The worse of two, for commands over many objects: outcome unknown, then failed, usage,
/// unreachable, not allowed, no space, conflict, not found. Codes that need a human outrank those a
/// script can handle.
Exit_Code worse(Exit_Code a, Exit_Code b) noexcept;

/// Ends the command with a message and an exit code.
struct Command_Error : std::runtime_error {
  Command_Error(Exit_Code exit_code, const std::string& message)
      : std::runtime_error(message), code(exit_code) {}
  Exit_Code code;
};

/// A mistake in the call or the settings, which the user can correct.
struct Usage_Error : Command_Error {
  explicit Usage_Error(const std::string& message) : Command_Error(Exit_Code::usage, message) {}
};

}  // namespace zqpool::cli
