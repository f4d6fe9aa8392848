#pragma once

#include <cstddef>
#include <string>

#include "platform/http/detail/failure.h"
#include "platform/http/detail/stream.h"
#include "platform/http/http_exchange_report.h"
#include "platform/http/http_message.h"

namespace zqpool::detail {

struct Wire_Response {
  unsigned status = 0;
  std::string body;  ///< with room for the JSON reader's padding
  bool keep_connection = false;
};

/// Reads responses up to the final one. `headers` (may be null) receives the headers that have an
/// id, `report` the phase, the number of bytes and the time of the first one.
bool receive_response(Stream& stream, Deadline deadline, std::size_t max_body,
                      Wire_Response& response, HTTP_Headers* headers, HTTP_Exchange_Report& report,
                      Failure& failure);

}  // namespace zqpool::detail
