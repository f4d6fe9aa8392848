#include "cli/calls/outcome.h"

#include <gtest/gtest.h>

#include "cli/calls/library_call.h"
#include "platform/http/http_message.h"

namespace zqpool::cli {
namespace {

HTTP_Exchange_Report failed(HTTP_Error error, HTTP_Phase phase, bool sent, unsigned status = 0) {
  HTTP_Exchange_Report report;
  report.method = HTTP_METHOD_POST;
  report.ssl = true;
  report.host = "::1";
  report.port = 8443;
  report.path = "/zq/x";
  report.error = error;
  report.phase = phase;
  report.sent = sent;
  report.status = status;
  report.text = error == HTTP_Error::status ? "HTTP status " + std::to_string(status) : "the words";
  return report;
}

TEST(Exchange_Outcome, statuses_have_their_exit_codes) {
  struct Row {
    unsigned status;
    Exit_Code reads, changes;
  };
  for (const Row& row : {
           Row{301, Exit_Code::failed, Exit_Code::failed},
           Row{400, Exit_Code::failed, Exit_Code::failed},
           Row{401, Exit_Code::not_allowed, Exit_Code::not_allowed},
           Row{403, Exit_Code::not_allowed, Exit_Code::not_allowed},
           Row{404, Exit_Code::not_found, Exit_Code::not_found},
           Row{410, Exit_Code::not_found, Exit_Code::not_found},
           Row{408, Exit_Code::unreachable, Exit_Code::unreachable},
           Row{409, Exit_Code::conflict, Exit_Code::conflict},
           Row{412, Exit_Code::conflict, Exit_Code::conflict},
           Row{422, Exit_Code::failed, Exit_Code::failed},
           Row{423, Exit_Code::conflict, Exit_Code::conflict},
           Row{429, Exit_Code::unreachable, Exit_Code::unreachable},
           Row{500, Exit_Code::failed, Exit_Code::failed},
           Row{502, Exit_Code::unreachable, Exit_Code::outcome_unknown},
           Row{503, Exit_Code::unreachable, Exit_Code::unreachable},
           Row{504, Exit_Code::unreachable, Exit_Code::outcome_unknown},
           Row{507, Exit_Code::no_space, Exit_Code::no_space},
       }) {
    const HTTP_Exchange_Report report =
        failed(HTTP_Error::status, HTTP_Phase::done, true, row.status);
    EXPECT_EQ(judge_exchange(report, Effect::reads).code, row.reads) << row.status;
    EXPECT_EQ(judge_exchange(report, Effect::changes).code, row.changes) << row.status;
    EXPECT_EQ(judge_exchange(report, Effect::reads).cause,
              "HTTP status " + std::to_string(row.status));
  }
}

TEST(Exchange_Outcome, transport_errors_have_their_exit_codes) {
  struct Row {
    HTTP_Error error;
    Exit_Code reads, changes_unsent, changes_sent;
  };
  for (const Row& row : {
           Row{HTTP_Error::refused_request, Exit_Code::failed, Exit_Code::failed,
               Exit_Code::failed},
           Row{HTTP_Error::name, Exit_Code::unreachable, Exit_Code::unreachable,
               Exit_Code::unreachable},
           Row{HTTP_Error::connect, Exit_Code::unreachable, Exit_Code::unreachable,
               Exit_Code::unreachable},
           Row{HTTP_Error::tls, Exit_Code::unreachable, Exit_Code::unreachable,
               Exit_Code::outcome_unknown},
           Row{HTTP_Error::timeout, Exit_Code::unreachable, Exit_Code::unreachable,
               Exit_Code::outcome_unknown},
           Row{HTTP_Error::broken, Exit_Code::unreachable, Exit_Code::unreachable,
               Exit_Code::outcome_unknown},
           Row{HTTP_Error::malformed, Exit_Code::failed, Exit_Code::failed,
               Exit_Code::outcome_unknown},
           Row{HTTP_Error::too_large, Exit_Code::failed, Exit_Code::failed,
               Exit_Code::outcome_unknown},
           Row{HTTP_Error::bad_json, Exit_Code::failed, Exit_Code::failed, Exit_Code::failed},
       }) {
    const auto code = [&row](Effect effect, bool sent) {
      return judge_exchange(failed(row.error, HTTP_Phase::wait, sent), effect).code;
    };
    EXPECT_EQ(code(Effect::reads, true), row.reads) << http_error_name(row.error);
    EXPECT_EQ(code(Effect::changes, false), row.changes_unsent) << http_error_name(row.error);
    EXPECT_EQ(code(Effect::changes, true), row.changes_sent) << http_error_name(row.error);
  }
}

TEST(Exchange_Outcome, the_cause_names_phase_message_and_unknown_outcome) {
  HTTP_Exchange_Report report = failed(HTTP_Error::tls, HTTP_Phase::tls, false);
  EXPECT_EQ(judge_exchange(report, Effect::reads).cause, "TLS: the words");
  report = failed(HTTP_Error::timeout, HTTP_Phase::wait, true);
  report.total = std::chrono::milliseconds(2040);
  EXPECT_EQ(judge_exchange(report, Effect::reads).cause, "wait: the words (after 2.0 s)");
  EXPECT_EQ(judge_exchange(report, Effect::changes).cause,
            "wait: the words (after 2.0 s); it is unknown whether the change was made");
  report = failed(HTTP_Error::status, HTTP_Phase::done, true, 409);
  report.service_message = "the name is taken";
  EXPECT_EQ(judge_exchange(report, Effect::reads).cause, "HTTP status 409: the name is taken");
}

Outcome judge(const std::vector<std::string>& errors, const std::vector<Known_Failure>& known,
              Effect effect = Effect::reads) {
  return judge_answer({errors, {}}, known, effect);
}

TEST(Answer_Outcome, known_failures_differ_from_a_bad_answer) {
  const Known_Failure no_pool = {"Failed to get pool '"};
  const Known_Failure silent = {"", Exit_Code::conflict, "several"};
  EXPECT_EQ(judge({"Failed to get pool 'x' info."}, {no_pool}).code, Exit_Code::not_found);
  EXPECT_EQ(judge({"Failed to get pool info: value is string"}, {no_pool}).code, Exit_Code::failed);
  EXPECT_EQ(judge({"Failed to get pool 'x' info.", "outer"}, {silent, no_pool}).code,
            Exit_Code::not_found);
  EXPECT_EQ(judge({}, {no_pool, silent}).code, Exit_Code::conflict);
  EXPECT_EQ(judge({}, {no_pool, silent}).cause, "several");
  EXPECT_EQ(judge({"anything"}, {silent}).code, Exit_Code::failed);
  EXPECT_EQ(judge({}, {no_pool}).code, Exit_Code::failed);
  EXPECT_EQ(judge({}, {}).code, Exit_Code::failed);
}

TEST(Answer_Outcome, a_bad_answer_to_a_change_does_not_undo_it) {
  EXPECT_EQ(judge({"inner", "outer"}, {}).cause, "the answer is unusable (outer)");
  EXPECT_EQ(judge({}, {}, Effect::changes).cause,
            "the answer is unusable; the service made the change");
}

TEST(Service_Error, is_found_within_a_logged_line) {
  const Service_Error error =
      service_error_in(R"(Failed to extract response({"error":{"code":-404,"message":"gone"}}).)");
  EXPECT_EQ(error.message, "gone");
  EXPECT_EQ(error.code, -404);
  for (const char* const line : {"", "no object", "}{", R"({"error":5})", "{broken}"}) {
    EXPECT_EQ(service_error_in(line).message, "") << line;
    EXPECT_EQ(service_error_in(line).code, 0) << line;
  }
}

TEST(Exit_Codes, the_worst_is_what_needs_a_human) {
  const Exit_Code order[] = {
      Exit_Code::done,     Exit_Code::not_found,   Exit_Code::conflict,
      Exit_Code::no_space, Exit_Code::not_allowed, Exit_Code::unreachable,
      Exit_Code::usage,    Exit_Code::failed,      Exit_Code::outcome_unknown};
  for (std::size_t i = 0; i < std::size(order); ++i) {
    for (std::size_t j = i; j < std::size(order); ++j) {
      EXPECT_EQ(worse(order[i], order[j]), order[j]);
      EXPECT_EQ(worse(order[j], order[i]), order[j]);
    }
  }
}

TEST(Trace, is_one_line_with_all_phases) {
  HTTP_Exchange_Report report = failed(HTTP_Error::timeout, HTTP_Phase::wait, true);
  report.request_id = "abc";
  report.address = "::1";
  report.attempts = 2;
  report.tls_resumed = true;
  report.name_time = std::chrono::microseconds(1);
  report.connect_time = std::chrono::microseconds(20);
  report.tls_time = std::chrono::microseconds(3456);
  report.total = std::chrono::microseconds(5000123);
  report.bytes_sent = 210;
  EXPECT_EQ(trace_line(report),
            "trace: method=POST url=https://[::1]:8443/zq/x status=0 error=\"timeout\" "
            "phase=\"wait\" id=abc address=::1 attempts=2 reused=no resumed=yes name=0.001ms "
            "connect=0.020ms tls=3.456ms first_byte=0.000ms total=5000.123ms sent=210 received=0");
}

}  // namespace
}  // namespace zqpool::cli
