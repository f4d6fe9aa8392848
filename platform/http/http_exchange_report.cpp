#include "platform/http/http_exchange_report.h"

#include <sys/random.h>

#include <algorithm>
#include <array>
#include <random>

#include "platform/http/detail/exchange.h"

namespace {

HTTP_Exchange_Report& thread_report() {
  thread_local HTTP_Exchange_Report report;
  return report;
}

/// 32 random hexadecimal digits, from the system: distinct also after a fork.
std::string make_request_id() {
  std::array<unsigned char, 16> bytes{};
  if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
    std::random_device device;
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<unsigned char>(device()); });
  }
  constexpr char digits[] = "0123456789abcdef";
  std::string id(bytes.size() * 2, '\0');
  auto out = id.begin();
  for (const unsigned char byte : bytes) {
    *out++ = digits[byte >> 4];
    *out++ = digits[byte & 0xf];
  }
  return id;
}

}  // namespace

namespace zqpool::detail {

HTTP_Exchange_Report& begin_report(const Endpoint& endpoint, int method) {
  HTTP_Exchange_Report& report = thread_report();
  report = HTTP_Exchange_Report();
  report.method = method;
  report.ssl = endpoint.ssl;
  report.host = endpoint.host;
  report.port = endpoint.port;
  report.request_id = make_request_id();
  // What stands if memory runs out on the way.
  report.error = HTTP_Error::broken;
  return report;
}

}  // namespace zqpool::detail

HTTP_Exchange_Report last_http_exchange() {
  return thread_report();
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
