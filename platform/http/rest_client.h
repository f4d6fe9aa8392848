#pragma once

#include <memory>

#include "platform/export.h"
#include "platform/http/http_message.h"
#include "platform/json/json_spirit.h"

/// A REST client for one endpoint: one HTTP(S) exchange per call, JSON in and out.
///
/// Every call blocks, and ends within HTTP_Options::exchange_timeout whatever the service, the
/// network or the name server do. A call is good when the status is 2xx and the body is empty or
/// JSON. The answer value receives the body also when the call failed, if there is one that
/// parses; otherwise it is left as it was. Nothing is thrown but std::bad_alloc.
///
/// Each call opens its own connection, unless set_header() was called: then connections are kept
/// open between calls.
///
/// Calls may run on several threads at once; retries(), retry_timeout(), logging_error() and
/// set_header() may not run beside them. last_http_exchange() tells a thread what its call did.
class ZQ_EXPORT JSON_RESTful_Client {
 public:
  /// `host` is a name or an IPv4 or IPv6 literal (brackets optional; null: ""). With `ssl`, HTTPS.
  /// `keep_error_body`: read the body of a failed exchange into the answer value, too.
  JSON_RESTful_Client(const char* host, unsigned short port, bool ssl, bool keep_error_body);
  ~JSON_RESTful_Client();
  JSON_RESTful_Client(const JSON_RESTful_Client&) = delete;
  JSON_RESTful_Client& operator=(const JSON_RESTful_Client&) = delete;

  bool get(HTTP_Request& request, json_spirit::Value* answer);
  bool get(HTTP_Request& request, HTTP_Response& response, json_spirit::Value* answer);
  /// `body` may be null (none is sent), `answer` too (it is checked and dropped).
  bool post(HTTP_Request& request, const json_spirit::Value* body, json_spirit::Value* answer);
  bool post(const char* path, const json_spirit::Value* body, json_spirit::Value* answer);
  bool put(HTTP_Request& request, const json_spirit::Value* body, json_spirit::Value* answer);
  bool del(HTTP_Request& request);
  bool del(HTTP_Request& request, HTTP_Response& response);

  /// How often the client itself repeats a failed exchange; 2 unless set, negative counts as 0.
  /// It does so only when the request provably never reached the service, or for GET on a broken
  /// exchange or a 429, 502, 503 or 504. A change is never sent twice on a guess.
  void retries(int count) noexcept;
  /// No repetition starts later than this many seconds after the call began; 30 unless set.
  void retry_timeout(int seconds) noexcept;
  /// Whether a failed call writes one LM_ERROR line (method, URL without the query, reason); true
  /// unless set.
  void logging_error(bool on) noexcept;
  /// Sets a header for every request of this client; null or "" removes it. A request's own header
  /// of the same id wins. From now on the client also keeps its connections between calls: a client
  /// with a header of its own is meant to live on.
  void set_header(int id, const char* text);

 private:
  friend class Common_JSON_RESTful_Client;

  class Impl;
  std::unique_ptr<Impl> impl_;
};

/// A client for one call to a service of this product.
class ZQ_EXPORT Common_JSON_RESTful_Client : public JSON_RESTful_Client {
 public:
  /// With `is_on_backupd` the service runs on a backup server, and this host's access key
  /// (Host_Manager) is sent with every request. The rest as for JSON_RESTful_Client.
  Common_JSON_RESTful_Client(const char* host, unsigned short port, bool ssl, bool is_on_backupd,
                             bool keep_error_body);
};

/// The process's client to its upstream service. Keeps its connections; safe from many threads.
class ZQ_EXPORT Upstream_JSON_RESTful_Client : public JSON_RESTful_Client {
 public:
  /// The client as configured last; before that one whose calls all fail. The reference stays good
  /// to the process's end.
  static Upstream_JSON_RESTful_Client& instance();
  /// Sets the service up, once at start. A null or empty `access_key` is not sent.
  static void configure(const char* host, unsigned short port, bool ssl, const char* access_key);

 private:
  Upstream_JSON_RESTful_Client(const char* host, unsigned short port, bool ssl,
                               const char* access_key);
};
