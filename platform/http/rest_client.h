#pragma once

#include <memory>

#include "platform/export.h"
#include "platform/http/http_message.h"
#include "platform/json/json_spirit.h"

/// A REST client for one service: one HTTP or HTTPS exchange per call, JSON in and out.
///
/// Calls block, and end within HTTP_Options::exchange_timeout whatever the service, the network or
/// the name server do. A call returns true if the status is 2xx and the body is empty or JSON. The
/// answer value receives the body, also that of a failed call; it is left alone if the body is
/// empty or not JSON. Throws only std::bad_alloc. last_http_exchange() reports on the thread's last
/// call.
///
/// Every call opens a new connection. After set_header() the client keeps connections open between
/// calls.
///
/// Thread-safe, except that retries(), retry_timeout(), logging_error() and set_header() must not
/// run while another thread makes a call.
///
/// @code
///   JSON_RESTful_Client client("catalog", 8480, false, true);
///   HTTP_Request request(HTTP_METHOD_GET, "/zq/r/storage/catalog/pool", false);
///   json_spirit::Value pools;
///   if (!client.get(request, &pools)) return false;
/// @endcode
class ZQ_EXPORT JSON_RESTful_Client {
 public:
  /// `host` is a name or an IPv4 or IPv6 literal, with or without brackets; null counts as "".
  /// Without `keep_error_body` the answer value never receives the body of a failed call.
  JSON_RESTful_Client(const char* host, unsigned short port, bool ssl, bool keep_error_body);
  ~JSON_RESTful_Client();
  JSON_RESTful_Client(const JSON_RESTful_Client&) = delete;
  JSON_RESTful_Client& operator=(const JSON_RESTful_Client&) = delete;

  bool get(HTTP_Request& request, json_spirit::Value* answer);
  bool get(HTTP_Request& request, HTTP_Response& response, json_spirit::Value* answer);
  /// Both `body` and `answer` may be null: then no body is sent, and the answer is only checked.
  bool post(HTTP_Request& request, const json_spirit::Value* body, json_spirit::Value* answer);
  bool post(const char* path, const json_spirit::Value* body, json_spirit::Value* answer);
  bool put(HTTP_Request& request, const json_spirit::Value* body, json_spirit::Value* answer);
  bool del(HTTP_Request& request);
  bool del(HTTP_Request& request, HTTP_Response& response);

  /// Sets how often a call is retried; the default is 2, negative counts as 0. A call is retried
  /// only if nothing of the request was sent, or if it is a GET and the exchange broke or ended
  /// with status 429, 502, 503 or 504. A change is never sent twice.
  void retries(int count) noexcept;
  /// No retry starts later than this many seconds after the call began. The default is 30.
  void retry_timeout(int seconds) noexcept;
  /// Sets whether a failed call logs one LM_ERROR line with its method, its URL without the query,
  /// and the reason. The default is true.
  void logging_error(bool on) noexcept;
  /// Sets a header for every request of this client; null or "" removes it. A request's own header
  /// of the same id wins.
  ///
  /// Also makes the client keep its connections between calls, whatever `id` and `text` are.
  void set_header(int id, const char* text);

 private:
  friend class Common_JSON_RESTful_Client;

  class Impl;
  std::unique_ptr<Impl> impl_;
};

/// A client for services of this product.
class ZQ_EXPORT Common_JSON_RESTful_Client : public JSON_RESTful_Client {
 public:
  /// With `is_on_backupd` the service runs on a backup server, and every request carries this
  /// host's access key (Host_Manager). The rest is as for JSON_RESTful_Client.
  Common_JSON_RESTful_Client(const char* host, unsigned short port, bool ssl, bool is_on_backupd,
                             bool keep_error_body);
};

/// The process's client for its upstream service. Keeps its connections between calls. Thread-safe.
class ZQ_EXPORT Upstream_JSON_RESTful_Client : public JSON_RESTful_Client {
 public:
  /// Returns the client configured last; before configure(), one whose calls all fail. The
  /// reference is valid until the process ends.
  static Upstream_JSON_RESTful_Client& instance();
  /// Sets the service. Call it once, at start. A null or empty `access_key` is not sent.
  static void configure(const char* host, unsigned short port, bool ssl, const char* access_key);

 private:
  Upstream_JSON_RESTful_Client(const char* host, unsigned short port, bool ssl,
                               const char* access_key);
};
