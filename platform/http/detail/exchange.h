#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "platform/http/detail/deadline.h"
#include "platform/http/detail/failure.h"
#include "platform/http/detail/stream.h"
#include "platform/http/http_exchange_report.h"
#include "platform/http/http_message.h"
#include "platform/http/http_options.h"

namespace zqpool::detail {

/// Process-wide options with the trust that they describe, which is loaded on first use.
class Transport_Settings {
 public:
  explicit Transport_Settings(HTTP_Options all) : options(std::move(all)) {}
  const HTTP_Options options;
  std::shared_ptr<TLS_Context> trust() const;

 private:
  mutable std::once_flag loaded_;
  mutable std::shared_ptr<TLS_Context> trust_;
};

/// What is in force now; a call keeps what it began with.
std::shared_ptr<const Transport_Settings> transport_settings();

/// One service. `host` is without brackets.
struct Endpoint {
  std::string host;
  unsigned short port = 0;
  bool ssl = false;

  std::string authority(bool always_port) const;  ///< "host", "[::1]:8080"
};

/// `host` may have brackets, or be null.
Endpoint make_endpoint(const char* host, unsigned short port, bool ssl);

/// Refuses a host that is no name or address, or that could split a request.
bool check_host(const Endpoint& endpoint, Failure& failure);

/// A request as it goes over the wire.
struct Wire_Request {
  int method = HTTP_NO_METHOD;
  bool keep_connection = false;
  std::string text;  ///< head and body
};

struct Wire_Answer {
  unsigned status = 0;
  std::string body;  ///< with room for the JSON reader's padding
  bool keep_connection = false;
};

/// Tells the report the path as it is sent, without a query; none when it cannot be sent.
void report_path(const HTTP_Request& request, HTTP_Exchange_Report& report);

/// Makes the request's head and body, or fails with HTTP_Error::refused_request.
bool make_wire_request(const Endpoint& endpoint, const HTTP_Request& request,
                       const HTTP_Headers& defaults, const std::string* body, bool keep_connection,
                       const std::string& user_agent, const std::string& request_id,
                       Wire_Request& wire, Failure& failure);

/// Whether the process lets a request go out (HTTP_Options::may_send).
bool check_may_send(const HTTP_Options& options, const Wire_Request& wire, Failure& failure);

/// This thread's report, begun anew for a call to `endpoint`.
HTTP_Exchange_Report& begin_report(const Endpoint& endpoint, int method);

/// Opens a connection by the deadline; phases and times go to `report`.
bool open_connection(const Transport_Settings& settings, const Endpoint& endpoint,
                     Deadline deadline, Stream& stream, HTTP_Exchange_Report& report,
                     Failure& failure);

/// Sends the request and reads its final answer, over an open connection. `headers` (may be null)
/// receives the answer's headers that have an id.
bool converse(Stream& stream, const Wire_Request& request, Deadline deadline,
              std::size_t largest_answer, Wire_Answer& answer, HTTP_Headers* headers,
              HTTP_Exchange_Report& report, Failure& failure);

}  // namespace zqpool::detail
