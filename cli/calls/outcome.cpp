#include "cli/calls/outcome.h"

#include <chrono>
#include <cstdio>

#include "cli/support/endpoint.h"
#include "platform/http/http_message.h"

namespace zqpool::cli {

namespace {

std::string milliseconds(std::chrono::microseconds time) {
  char text[32];
  std::snprintf(text, sizeof text, "%.3fms", static_cast<double>(time.count()) / 1000);
  return text;
}

std::string seconds(std::chrono::microseconds time) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f s", static_cast<double>(time.count()) / 1'000'000);
  return text;
}

}  // namespace

Exit_Code judge_status(unsigned status, Effect effect) {
  switch (status) {
    case 401:
    case 403:
      return Exit_Code::not_allowed;
    case 404:
    case 410:
      return Exit_Code::not_found;
    case 409:
    case 412:
    case 423:
      return Exit_Code::conflict;
    case 507:
      return Exit_Code::no_space;
    case 408:
    case 429:
    case 503:
      return Exit_Code::unreachable;
    case 502:
    case 504:
      // A proxy lost the service's answer.
      return effect == Effect::changes ? Exit_Code::outcome_unknown : Exit_Code::unreachable;
    default:
      return Exit_Code::failed;
  }
}

Outcome judge_exchange(const HTTP_Exchange_Report& report, Effect effect) {
  Outcome outcome;
  const std::string phase = std::string(http_phase_name(report.phase)) + ": ";
  switch (report.error) {
    case HTTP_Error::none:
      break;
    case HTTP_Error::refused_request:
    case HTTP_Error::bad_json:
      outcome = {Exit_Code::failed, report.text};
      break;
    case HTTP_Error::malformed:
    case HTTP_Error::too_large:
      outcome = {Exit_Code::failed, phase + report.text};
      break;
    case HTTP_Error::name:
    case HTTP_Error::connect:
    case HTTP_Error::tls:
    case HTTP_Error::broken:
      outcome = {Exit_Code::unreachable, phase + report.text};
      break;
    case HTTP_Error::timeout:
      outcome = {Exit_Code::unreachable,
                 phase + report.text + " (after " + seconds(report.total) + ")"};
      break;
    case HTTP_Error::status:
      outcome = {judge_status(report.status, effect), report.text};
      if (!report.service_message.empty()) outcome.cause += ": " + report.service_message;
      break;
  }
  if (effect == Effect::changes && report.outcome_unknown()) {
    outcome.code = Exit_Code::outcome_unknown;
  }
  if (outcome.code == Exit_Code::outcome_unknown) {
    outcome.cause += "; it is unknown whether the change was made";
  }
  return outcome;
}

std::string trace_line(const HTTP_Exchange_Report& report) {
  std::string line = "trace: method=";
  line += http_method_name(report.method);
  line += " url=" + Endpoint{report.ssl, report.host, report.port}.text() + report.path;
  line += " status=" + std::to_string(report.status);
  if (!report.ok()) {
    line += std::string(" error=\"") + http_error_name(report.error) + "\" phase=\"" +
            http_phase_name(report.phase) + '"';
  }
  line += " id=" + report.request_id;
  line += " address=" + (report.address.empty() ? "-" : report.address);
  line += " attempts=" + std::to_string(report.attempts);
  line += report.connection_reused ? " reused=yes" : " reused=no";
  line += report.tls_resumed ? " resumed=yes" : " resumed=no";
  line += " name=" + milliseconds(report.name_time);
  line += " connect=" + milliseconds(report.connect_time);
  line += " tls=" + milliseconds(report.tls_time);
  line += " first_byte=" + milliseconds(report.first_byte_time);
  line += " total=" + milliseconds(report.total);
  line += " sent=" + std::to_string(report.bytes_sent);
  line += " received=" + std::to_string(report.bytes_received);
  return line;
}

}  // namespace zqpool::cli
