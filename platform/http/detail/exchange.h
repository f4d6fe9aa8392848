#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "platform/http/detail/deadline.h"
#include "platform/http/detail/failure.h"
#include "platform/http/detail/request.h"
#include "platform/http/detail/response.h"
#include "platform/http/detail/stream.h"
#include "platform/http/detail/transport_settings.h"
#include "platform/http/http_exchange_report.h"
#include "platform/http/http_message.h"
#include "platform/json/json_spirit.h"

namespace zqpool::detail {

/// The report of this thread's last call.
HTTP_Exchange_Report& thread_report();

/// One client call: its deadline, request, response and report. A step that fails sets `failure`.
struct Exchange {
  /// Begins this thread's report. The deadline is `timeout` from now, or
  /// HTTP_Options::exchange_timeout if that is shorter.
  Exchange(const Endpoint& service, int method, std::shared_ptr<const Transport_Settings> in_force,
           std::chrono::milliseconds timeout = std::chrono::milliseconds::max());

  /// Serializes the request and asks HTTP_Options::may_send. `content` may be null.
  bool make_request(const HTTP_Request& message, const HTTP_Headers& default_headers,
                    const std::string* content, bool keep_connection);

  /// Opens a connection to the endpoint: name look-up, TCP, TLS.
  bool connect(Stream& stream, Deadline end);

  /// Sends the request over an open connection and reads its final response. `headers` (may be
  /// null) receives the response's headers that have an id.
  bool send_and_receive(Stream& stream, HTTP_Headers* headers);

  /// Parses the response's body into `value`. Returns false and leaves `value` alone if the body is
  /// empty or not JSON. A body that is not JSON fails the exchange, unless it has failed already.
  bool read_body(json_spirit::Value& value);

  /// Completes the report and sets the status of `caller_response` (may be null). Returns whether
  /// the call succeeded.
  bool finish(HTTP_Response* caller_response);

  const Endpoint& endpoint;
  const std::shared_ptr<const Transport_Settings> settings;
  const Clock::time_point start;
  const Deadline deadline;
  HTTP_Exchange_Report& report;
  Wire_Request request;
  Wire_Response response;
  Failure failure;
};

}  // namespace zqpool::detail
