#pragma once

#include <functional>
#include <string>
#include <vector>

#include "cli/calls/outcome.h"

namespace zqpool::cli {

/// A failure with a known meaning, recognised by the library's log.
struct Known_Failure {
  std::string log_prefix;  ///< how one of the logged errors begins; "": no error is logged
  Exit_Code code = Exit_Code::not_found;
  std::string cause = "not found: the service does not hold exactly one such object";
};

/// How a call of the library is judged.
struct Call_Policy {
  Effect effect = Effect::reads;
  std::vector<Known_Failure> known_failures = {};
  bool log_error_fails = false;  ///< a logged error is a failure even if the call returns true
};

struct Call_Options {
  bool dry_run = false;  ///< hold back requests, see Dry_Run
  bool trace = false;    ///< show the exchange on standard error
};

/// Calls one operation of the library on this thread and judges its result.
Outcome call_library(const Call_Policy& policy, const Call_Options& options,
                     const std::function<bool()>& operation);

/// The outcome of an operation that failed although its exchange, if any, succeeded. `effect` is
/// that of the exchange.
Outcome judge_answer(const Captured_Log& log, const std::vector<Known_Failure>& known_failures,
                     Effect effect);

/// The service's error in a line that the library logged.
struct Service_Error {
  std::string message;
  int code = 0;
};
Service_Error service_error_in(const std::string& line);

}  // namespace zqpool::cli
