#pragma once

#include <iterator>
#include <optional>
#include <string>

#include "platform/http/http_message.h"
#include "platform/http/rest_client.h"
#include "platform/json/json_spirit.h"
#include "utils/support/http_query_string.h"

namespace zqpool::detail {

/// Where a service is, and the key that it is asked with. Borrows its texts.
struct Service_Endpoint {
  const char* host;
  unsigned short port;
  bool ssl;
  const char* access_key;
};

/// One exchange with a service: what is asked, and the client that asks. Lives on the stack of one
/// operation; send() may be called again, with the same request over the same client.
///
/// @code
///   json_spirit::Value answer;
///   const bool ok = Service_Call(endpoint, HTTP_METHOD_GET, "/zq/r/storage/catalog/device")
///                       .field("uuid", device_uuid.c_str())
///                       .send(&answer);
/// @endcode
class Service_Call {
 public:
  /// Asks with a client of its own, which ends with the call, and sends the endpoint's access key.
  /// `method` is one of HTTP_METHOD_GET, POST, PUT and DELETE.
  Service_Call(const Service_Endpoint& endpoint, int method, const char* path);
  /// Asks with `client`, which knows its key itself and outlives the call.
  Service_Call(JSON_RESTful_Client& client, int method, const char* path);
  Service_Call(const Service_Call&) = delete;
  Service_Call& operator=(const Service_Call&) = delete;

  /// Adds a field to the query string, name and value percent-encoded.
  Service_Call& field(const char* name, const std::string& value);
  /// Adds a field to the query string as it stands: a "&", "=", "+" or "%" in the value is not
  /// escaped, and the value ends at a zero byte.
  Service_Call& raw(const char* name, const std::string& value);
  /// The same, with "true" or "false".
  Service_Call& flag(const char* name, bool value);
  /// What POST and PUT carry; they carry nothing without it.
  Service_Call& body(json_spirit::Value value);
  /// How often the client itself repeats a failed exchange.
  Service_Call& retries(int count);
  /// Whether the client itself logs a failed exchange.
  Service_Call& logging_error(bool on);
  /// Where every GET and DELETE leaves its HTTP status, good or bad; 0 when no answer came. Null:
  /// not wanted.
  Service_Call& status(int* status);

  /// Makes the exchange; true when it succeeded. `answer` receives the answer's body when there is
  /// one, also of a failed exchange, and keeps what it has otherwise; null when it is not wanted.
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
