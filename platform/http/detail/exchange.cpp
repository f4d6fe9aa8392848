#include "platform/http/detail/exchange.h"

#include <sys/random.h>

#include <algorithm>
#include <array>
#include <random>
#include <utility>

#include "platform/text/hex.h"

namespace zqpool::detail {
namespace {

/// 32 random hexadecimal digits. They come from the system, so a forked child gets others.
std::string make_request_id() {
  std::array<unsigned char, 16> bytes{};
  if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
    std::random_device device;
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<unsigned char>(device()); });
  }
  std::string id;
  id.reserve(bytes.size() * 2);
  for (const unsigned char byte : bytes)
    text::append_hex(id, byte);
  return id;
}

HTTP_Exchange_Report& begin_report(const Endpoint& endpoint, int method) {
  HTTP_Exchange_Report& report = thread_report();
  report = HTTP_Exchange_Report();
  report.method = method;
  report.ssl = endpoint.ssl;
  report.host = endpoint.host;
  report.port = endpoint.port;
  report.request_id = make_request_id();
  // What the report says if std::bad_alloc ends the call.
  report.error = HTTP_Error::broken;
  return report;
}

}  // namespace

Exchange::Exchange(const Endpoint& service, int method,
                   std::shared_ptr<const Transport_Settings> in_force,
                   std::chrono::milliseconds timeout)
    : endpoint(service),
      settings(std::move(in_force)),
      start(Clock::now()),
      deadline(Deadline::after(start, std::min(timeout, settings->options.exchange_timeout))),
      report(begin_report(service, method)) {}

bool Exchange::make_request(const HTTP_Request& message, const HTTP_Headers& default_headers,
                            const std::string* content, bool keep_connection) {
  report.path = encoded_path(message);
  if (message.method() != report.method) {
    return failure.set(HTTP_Error::refused_request, "the request was made for another method");
  }
  const HTTP_Options& options = settings->options;
  const Request_Defaults defaults{options.user_agent, report.request_id, default_headers,
                                  keep_connection};
  if (!make_wire_request(endpoint, message, defaults, content, request, failure)) return false;
  return !options.may_send || options.may_send(request.text) ||
         failure.set(HTTP_Error::refused_request, "the request was held back");
}

bool Exchange::connect(Stream& stream, Deadline end) {
  report.phase = HTTP_Phase::name;
  const Clock::time_point begin = Clock::now();
  Addresses addresses;
  const bool resolved = resolve(endpoint.host, endpoint.port, end, addresses, failure);
  report.name_time = micros_since(begin);
  if (!resolved) return false;

  report.phase = HTTP_Phase::connect;
  const Clock::time_point named = Clock::now();
  const bool connected = stream.connect(addresses, end, failure);
  report.connect_time = micros_since(named);
  if (!connected) return false;
  report.address = stream.peer().text();

  if (endpoint.ssl) {
    report.phase = HTTP_Phase::tls;
    const Clock::time_point joined = Clock::now();
    const bool secured = stream.start_tls(settings->tls_context(), endpoint.host,
                                          endpoint.authority(), end, failure);
    report.tls_time = micros_since(joined);
    if (!secured) return false;
    report.tls_resumed = stream.tls_resumed();
  }
  return true;
}

bool Exchange::send_and_receive(Stream& stream, HTTP_Headers* headers) {
  report.phase = HTTP_Phase::send;
  Failure send_failure;
  const bool all_sent = stream.send(request.text, deadline, report.sent, send_failure);
  if (!all_sent && (!report.sent || send_failure.error == HTTP_Error::timeout)) {
    failure = std::move(send_failure);
    return false;
  }
  // A service may refuse a large body by responding and closing early: that response says more than
  // the broken pipe.
  report.bytes_sent = all_sent ? request.text.size() : 0;
  report.phase = HTTP_Phase::wait;
  if (!receive_response(stream, deadline, settings->options.largest_answer, response, headers,
                        report, failure)) {
    if (!all_sent) failure = std::move(send_failure);
    return false;
  }
  response.keep_connection = response.keep_connection && all_sent;
  report.phase = HTTP_Phase::done;
  return true;
}

bool Exchange::read_body(json_spirit::Value& value) {
  if (response.body.empty()) return false;
  std::string why;
  if (json_spirit::read(std::move(response.body), value, why)) return true;
  if (failure.error == HTTP_Error::none) {
    failure.set(HTTP_Error::bad_json, "the answer's body is not JSON: " + why);
  }
  return false;
}

bool Exchange::finish(HTTP_Response* caller_response) {
  if (caller_response != nullptr) caller_response->status(response.status);
  report.status = response.status;
  report.error = failure.error;
  report.text = std::move(failure.text);
  report.total = micros_since(start);
  return report.ok();
}

}  // namespace zqpool::detail
