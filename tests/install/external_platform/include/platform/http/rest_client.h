#pragma once

#include <vector>

#include "platform/http/http_message.h"
#include "platform/json/json_spirit.h"

// The services of this product live in memory: a table says what is answered to which request.
namespace product {

/// Adds an answer to requests that begin with `line`, such as "GET https://host:8443/path?query".
/// Of several to the same line each is given once, in their order, and the last from then on.
void answers(const std::string& line, unsigned status, const json_spirit::Value& body);

/// The requests since the last call: the line, the access key if one came, the body if there is
/// one.
std::vector<std::string> take_requests();

/// A service's root: "https://host:8443".
std::string root_of(const char* host, unsigned port, bool tls);

bool exchange(const std::string& root, const std::string& own_key, HTTP_Request& request,
              const json_spirit::Value* body, HTTP_Response& response, json_spirit::Value* answer);

}  // namespace product

class JSON_RESTful_Client {
 public:
  JSON_RESTful_Client(const char* host, unsigned port, bool tls, bool /*bodies_of_errors*/)
      : root_(product::root_of(host, port, tls)) {}

  bool get(HTTP_Request& request, json_spirit::Value* to) { return ask(request, nullptr, to); }
  bool get(HTTP_Request& request, HTTP_Response& response, json_spirit::Value* to) {
    return ask(request, nullptr, to, response);
  }
  bool post(HTTP_Request& request, const json_spirit::Value* body, json_spirit::Value* to) {
    return ask(request, body, to);
  }
  bool post(const char* path, const json_spirit::Value* body, json_spirit::Value* to) {
    HTTP_Request request(HTTP_METHOD_POST, path, false);
    return ask(request, body, to);
  }
  bool put(HTTP_Request& request, const json_spirit::Value* body, json_spirit::Value* to) {
    return ask(request, body, to);
  }
  bool del(HTTP_Request& request) { return ask(request, nullptr, nullptr); }
  bool del(HTTP_Request& request, HTTP_Response& response) {
    return ask(request, nullptr, nullptr, response);
  }

  // A service in memory fails or does not; there is nothing to repeat.
  void retries(int) {}
  void retry_timeout(int) {}
  void logging_error(bool on) { log_ = on; }
  void set_header(int head, const char* value) {
    if (head == HTTP_HEAD_X_ACCESS_KEY) key_ = value;
  }

 private:
  bool ask(HTTP_Request& request, const json_spirit::Value* body, json_spirit::Value* to) {
    HTTP_Response unused;
    return ask(request, body, to, unused);
  }
  bool ask(HTTP_Request&, const json_spirit::Value* body, json_spirit::Value* to, HTTP_Response&);

  std::string root_, key_;
  bool log_ = true;
};

struct Common_JSON_RESTful_Client : JSON_RESTful_Client {
  Common_JSON_RESTful_Client(const char* host, unsigned port, bool tls, bool backup_server, bool);
};

struct Upstream_JSON_RESTful_Client : JSON_RESTful_Client {
  using JSON_RESTful_Client::JSON_RESTful_Client;
  static Upstream_JSON_RESTful_Client& instance();
};
