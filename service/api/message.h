#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/json/json_spirit.h"

namespace zqpool::service {

enum class Method { get, head, post, put, del, options, other };

/// "GET", "DELETE"...; "" for Method::other.
const char* method_name(Method method);
/// Method::other for an unknown name. Methods are case-sensitive.
Method method_from(std::string_view name);

/// An HTTP request, as read from the connection.
struct Request {
  Method method = Method::other;
  std::string path;   ///< as it was sent, without the query
  std::string query;  ///< as it was sent, without the question mark; "" for none
  std::string content_type;
  std::string access_key;  ///< "" when there was none, or more than one
  std::string body;
};

/// An HTTP response. A body is always JSON.
struct Response {
  unsigned status = 200;
  std::string body;                                          ///< "" for none
  std::vector<std::pair<std::string, std::string>> headers;  ///< besides those of every response
};

Response json_response(const json_spirit::Value& value, unsigned status = 200);

/// {"error":{"code":...,"message":...}}: `code` is the status, positive if the same request may
/// succeed later (408, 429, 503, 507), else negative. `message` may contain any bytes.
Response error_response(unsigned status, std::string_view message);

/// Refuses a request: the client gets error_response(status(), what()), and the transaction is
/// rolled back.
class Request_Error : public std::runtime_error {
 public:
  Request_Error(unsigned status, const std::string& message)
      : std::runtime_error(message), status_(status) {}
  unsigned status() const noexcept { return status_; }

 private:
  unsigned status_;
};

}  // namespace zqpool::service
