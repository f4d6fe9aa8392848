#pragma once

#include <optional>
#include <string>
#include <vector>

#include "cli/support/exit_code.h"
#include "platform/http/http_exchange_report.h"
#include "platform/json/json_spirit.h"

namespace zqpool::cli {

/// Whether what was asked of the service may have changed something there.
enum class Effect { reads, changes };

/// What came of a call: its exit code, and on failure the phase and cause in words.
struct Outcome {
  Exit_Code code = Exit_Code::done;
  std::string cause;
  std::optional<std::string> held_back = {};  ///< the request that a dry run did not send
  bool answered = false;  ///< the service was content, even if its answer is of no use

  /// Whether there is something to go on with.
  bool done() const noexcept { return code == Exit_Code::done && !held_back; }
};

/// What a failed exchange means. The only place where exchanges become exit codes.
Outcome judge_exchange(const HTTP_Exchange_Report& report, Effect effect);

/// What a refusal by this HTTP status means.
Exit_Code judge_status(unsigned status, Effect effect);

/// What a refused answer means: the exchange was good, yet the operation returned false. `said` are
/// the library's error messages, of which the last is the operation's own. `absent` is how the one
/// begins that says that there is not exactly one such object: "" when that is said by silence,
/// null when it never is. What was to change something has done so.
Outcome judge_answer(const std::vector<std::string>& said, const char* absent, Effect effect);

/// A bare HTTP session takes any status for a good exchange; this makes its report say what that of
/// a client would say. `said`: as above.
void judge_status_of_session(HTTP_Exchange_Report& report, const std::vector<std::string>& said);

/// The JSON object that a message of the library shows, an empty one when there is none.
Object object_within(const std::string& message);

/// One exchange as one line: "trace: method=GET url=... status=200 ...".
std::string trace_line(const HTTP_Exchange_Report& report);

}  // namespace zqpool::cli
