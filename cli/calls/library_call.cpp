#include "cli/calls/library_call.h"

#include <exception>
#include <utility>

#include "cli/calls/dry_run.h"
#include "cli/support/messages.h"
#include "platform/http/http_message.h"
#include "platform/json/json_spirit.h"

namespace zqpool::cli {

namespace {

/// A bare HTTP session reports any status as success; this makes it report like a client does.
void report_status_of_session(HTTP_Exchange_Report& report, const Captured_Log& log) {
  if (!report.ok() || report.status == 0 || report.status / 100 == 2) return;
  report.error = HTTP_Error::status;
  report.text = "HTTP status " + std::to_string(report.status);
  if (!log.errors.empty()) report.service_message = service_error_in(log.errors.back()).message;
}

}  // namespace

Outcome call_library(const Call_Policy& policy, const Call_Options& options,
                     const std::function<bool()>& operation) {
  Library_Log::take();
  const std::string previous_exchange = last_http_exchange().request_id;
  std::optional<Dry_Run> dry_run;
  if (options.dry_run) dry_run.emplace(policy.effect);
  bool good = false;
  std::optional<std::string> thrown;
  try {
    good = operation();
  } catch (const std::exception& error) {
    thrown = error.what();
  }

  Captured_Log log = Library_Log::take();
  HTTP_Exchange_Report report = last_http_exchange();
  // An operation may fail before it sends anything.
  const bool sent = report.request_id != previous_exchange;
  if (!sent) report = HTTP_Exchange_Report();
  report_status_of_session(report, log);
  // A change may begin with reading.
  const bool changes = sent && report.method != HTTP_METHOD_GET;
  const Effect effect = changes ? policy.effect : Effect::reads;

  Outcome outcome;
  if (dry_run && dry_run->request()) {
    outcome.held_back = dry_run->request();
  } else {
    if (options.trace && sent) say(trace_line(report));
    if (thrown) {
      outcome = {Exit_Code::failed, "the answer cannot be read: " + *thrown};
    } else if (!good || (policy.log_error_fails && !log.errors.empty())) {
      outcome = report.ok() ? judge_answer(log, policy.known_failures, effect)
                            : judge_exchange(report, effect);
    }
  }
  outcome.answered = sent && report.ok();
  outcome.log = std::move(log);
  return outcome;
}

Outcome judge_answer(const Captured_Log& log, const std::vector<Known_Failure>& known_failures,
                     Effect effect) {
  for (const Known_Failure& known : known_failures) {
    const bool silent = known.log_prefix.empty();
    if (silent ? log.errors.empty() : log.has_error(known.log_prefix)) {
      return {known.code, known.cause};
    }
  }
  Outcome outcome = {Exit_Code::failed, "the answer is unusable"};
  if (!log.errors.empty()) outcome.cause += " (" + log.errors.back() + ')';
  if (effect == Effect::changes) outcome.cause += "; the service made the change";
  return outcome;
}

Service_Error service_error_in(const std::string& line) {
  Service_Error found;
  const std::size_t begin = line.find('{');
  const std::size_t end = line.rfind('}');
  json_spirit::Value value;
  if (begin == std::string::npos || end == std::string::npos || begin > end ||
      !json_spirit::read(line.substr(begin, end + 1 - begin), value) ||
      value.type() != json_spirit::obj_type) {
    return found;
  }
  if (const Object* const error = json_spirit::object_get_object(value.get_obj(), "error")) {
    json_spirit::object_get(*error, "message", found.message);
    json_spirit::object_get(*error, "code", found.code);
  }
  return found;
}

}  // namespace zqpool::cli
