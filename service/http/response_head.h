#pragma once

#include <cstdint>
#include <string>

#include "service/api/message.h"

namespace zqpool::service {

/// What a response's head depends on beside the response itself.
struct Response_Context {
  std::string request_id;
  bool to_head = false;  ///< the request was HEAD
  bool http_1_0 = false;
  bool keep_alive = false;
};

/// Whether the body is sent.
bool has_body(const Response& response, const Response_Context& context);

/// Status line and headers with the empty line after them.
std::string response_head(const Response& response, std::uint64_t content_length,
                          const Response_Context& context);

}  // namespace zqpool::service
