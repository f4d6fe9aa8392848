#pragma once

#include <iterator>
#include <optional>
#include <string>

#include "platform/http/http_message.h"
#include "platform/http/rest_client.h"
#include "platform/json/json_spirit.h"
#include "utils/support/http_query_string.h"

namespace zqpool::detail {

/// Where a service is, and the access key for it. Does not own its texts.
struct Service_Endpoint {
  const char* host;
  unsigned short port;
  bool ssl;
  const char* access_key;
};

/// One request to a service and the client that sends it. send() may be called again, to repeat the
/// request.
///
/// @code
///   json_spirit::Value answer;
///   const bool ok = Service_Call(endpoint, HTTP_METHOD_GET, "/zq/r/storage/catalog/device")
///                       .field("uuid", device_uuid.c_str())
///                       .send(&answer);
/// @endcode
class Service_Call {
 public:
  /// Creates a client that sends the endpoint's access key. `method` is one of HTTP_METHOD_GET,
  /// POST, PUT and DELETE.
  Service_Call(const Service_Endpoint& endpoint, int method, const char* path);
  /// Uses `client`, which adds its own access key and must outlive this object.
  Service_Call(JSON_RESTful_Client& client, int method, const char* path);
  Service_Call(const Service_Call&) = delete;
  Service_Call& operator=(const Service_Call&) = delete;

  /// Adds a field to the query string, name and value percent-encoded.
  Service_Call& field(const char* name, const std::string& value);
  /// Adds a field to the query string unescaped: the value must not contain "&", "=", "+" or "%",
  /// and ends at a zero byte.
  Service_Call& raw(const char* name, const std::string& value);
  /// The same, with "true" or "false".
  Service_Call& flag(const char* name, bool value);
  /// Sets the body of a POST or PUT.
  Service_Call& body(json_spirit::Value value);
  /// How often the client itself repeats a failed request.
  Service_Call& retries(int count);
  /// Whether the client itself logs a failed request.
  Service_Call& logging_error(bool on);
  /// Where send() stores the HTTP status of a GET or DELETE, also on failure (0: no answer). May be
  /// null.
  Service_Call& status(int* status);

  /// Sends the request. Returns whether it succeeded. `answer`, if not null, receives the body of
  /// the answer, also of a failed request; without a body it is unchanged.
  bool send(json_spirit::Value* answer = nullptr);

 private:
  bool keep_status(bool ok, const HTTP_Response& response);

  std::optional<JSON_RESTful_Client> own_client_;
  JSON_RESTful_Client& client_;
  const int method_;
  HTTP_Request request_;
  std::string query_;
  HTTP_Query_String_Builder build_query_{std::back_inserter(query_)};
  std::optional<json_spirit::Value> body_;
  int* status_ = nullptr;
};

}  // namespace zqpool::detail
