#include "utils/support/service_call.h"

#include <utility>

#include "utils/support/log.h"

namespace zqpool::detail {

Service_Call::Service_Call(const Service_Endpoint& endpoint, int method, const char* path)
    : own_client_(std::in_place, endpoint.host, endpoint.port, endpoint.ssl, true),
      client_(*own_client_),
      method_(method),
      request_(method, path, false) {
  request_.headers().put(HTTP_HEAD_X_ACCESS_KEY, endpoint.access_key, true);
}

Service_Call::Service_Call(JSON_RESTful_Client& client, int method, const char* path)
    : client_(client), method_(method), request_(method, path, false) {}

Service_Call& Service_Call::field(const char* name, const std::string& value) {
  build_query_(name, value.c_str());
  return *this;
}

Service_Call& Service_Call::raw(const char* name, const std::string& value) {
  build_query_(name, value.c_str(), false, false);
  return *this;
}

Service_Call& Service_Call::flag(const char* name, bool value) {
  return raw(name, value ? "true" : "false");
}

Service_Call& Service_Call::body(json_spirit::Value value) {
  body_ = std::move(value);
  return *this;
}

Service_Call& Service_Call::retries(int count) {
  client_.retries(count);
  return *this;
}

Service_Call& Service_Call::logging_error(bool on) {
  client_.logging_error(on);
  return *this;
}

Service_Call& Service_Call::status(int* status) {
  status_ = status;
  return *this;
}

bool Service_Call::send(json_spirit::Value* answer) {
  if (!query_.empty()) request_.query_string(query_.c_str());
  const json_spirit::Value* const body = body_ ? &*body_ : nullptr;
  switch (method_) {
    case HTTP_METHOD_GET: {
      if (status_ == nullptr) return client_.get(request_, answer);
      HTTP_Response response;
      return keep_status(client_.get(request_, response, answer), response);
    }
    case HTTP_METHOD_DELETE: {
      if (status_ == nullptr) return client_.del(request_);
      HTTP_Response response;
      return keep_status(client_.del(request_, response), response);
    }
    case HTTP_METHOD_POST:
      return client_.post(request_, body, answer);
    case HTTP_METHOD_PUT:
      return client_.put(request_, body, answer);
    default:
      return ZQ_EMERGENCY("Unexpected error in %s:%d, no call for method %d:\n%s\n", __FILE__,
                          __LINE__, method_, call_stack().c_str());
  }
}

bool Service_Call::keep_status(bool ok, const HTTP_Response& response) {
  *status_ = static_cast<int>(response.status());
  return ok;
}

}  // namespace zqpool::detail
