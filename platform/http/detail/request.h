#pragma once

#include <string>

#include "platform/http/detail/failure.h"
#include "platform/http/http_message.h"

namespace zqpool::detail {

/// Host, port and scheme of a service. `host` has no brackets.
struct Endpoint {
  std::string host;
  unsigned short port = 0;
  bool ssl = false;

  std::string authority() const;  ///< "host:8080", "[::1]:80"
};

/// `host` may have brackets, or be null.
Endpoint make_endpoint(const char* host, unsigned short port, bool ssl);

/// Fails for a host that is neither a name nor an address, or that could split a request.
bool check_host(const Endpoint& endpoint, Failure& failure);

/// A request as it goes over the wire.
struct Wire_Request {
  int method = HTTP_NO_METHOD;
  bool keep_connection = false;
  std::string text;  ///< head and body
};

/// The request's path as it is sent, without the query; "" for a path that cannot be sent.
std::string encoded_path(const HTTP_Request& request);

/// What a client adds to its requests.
struct Request_Defaults {
  const std::string& user_agent;
  const std::string& request_id;
  const HTTP_Headers& headers;  ///< a request's own headers win
  bool keep_connection;
};

/// Serializes a request, or fails with HTTP_Error::refused_request. `body` may be null.
bool make_wire_request(const Endpoint& endpoint, const HTTP_Request& request,
                       const Request_Defaults& defaults, const std::string* body,
                       Wire_Request& wire, Failure& failure);

}  // namespace zqpool::detail
