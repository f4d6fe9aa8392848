#pragma once

#include <optional>
#include <string>

#include "cli/calls/library_log.h"
#include "cli/support/exit_code.h"
#include "platform/http/http_exchange_report.h"

namespace zqpool::cli {

/// Whether a call only reads or may change something at the service.
enum class Effect { reads, changes };

/// The result of a call: its exit code and, on failure, the cause in words.
struct Outcome {
  Exit_Code code = Exit_Code::done;
  std::string cause;
  std::optional<std::string> held_back = {};  ///< the request that a dry run did not send
  bool answered = false;  ///< the service reported success, even if its answer is unusable
  Captured_Log log = {};  ///< what the library logged

  /// Whether the call was made and succeeded.
  bool done() const noexcept { return code == Exit_Code::done && !held_back; }
};

/// The outcome of a failed exchange. The only place where exchanges become exit codes.
Outcome judge_exchange(const HTTP_Exchange_Report& report, Effect effect);

/// The exit code for an HTTP status that is not 2xx.
Exit_Code judge_status(unsigned status, Effect effect);

/// One exchange as one line: "trace: method=GET url=... status=200 ...".
std::string trace_line(const HTTP_Exchange_Report& report);

}  // namespace zqpool::cli
