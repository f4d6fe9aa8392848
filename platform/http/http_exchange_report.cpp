#include "platform/http/http_exchange_report.h"

#include "platform/http/detail/exchange.h"

HTTP_Exchange_Report& zqpool::detail::thread_report() {
  thread_local HTTP_Exchange_Report report;
  return report;
}

HTTP_Exchange_Report last_http_exchange() {
  return zqpool::detail::thread_report();
}

const char* http_error_name(HTTP_Error error) noexcept {
  switch (error) {
    case HTTP_Error::none:
      return "none";
    case HTTP_Error::refused_request:
      return "refused request";
    case HTTP_Error::name:
      return "name";
    case HTTP_Error::connect:
      return "connect";
    case HTTP_Error::tls:
      return "TLS";
    case HTTP_Error::timeout:
      return "timeout";
    case HTTP_Error::broken:
      return "broken";
    case HTTP_Error::malformed:
      return "malformed";
    case HTTP_Error::too_large:
      return "too large";
    case HTTP_Error::bad_json:
      return "bad JSON";
    case HTTP_Error::status:
      return "status";
  }
  return "";
}

const char* http_phase_name(HTTP_Phase phase) noexcept {
  switch (phase) {
    case HTTP_Phase::none:
      return "request";
    case HTTP_Phase::name:
      return "name look-up";
    case HTTP_Phase::connect:
      return "connect";
    case HTTP_Phase::tls:
      return "TLS";
    case HTTP_Phase::send:
      return "send";
    case HTTP_Phase::wait:
      return "wait";
    case HTTP_Phase::body:
      return "answer";
    case HTTP_Phase::done:
      return "done";
  }
  return "";
}
