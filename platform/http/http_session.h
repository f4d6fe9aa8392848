#pragma once

#include <ace/Intrusive_Auto_Ptr.h>

#include <atomic>
#include <memory>

#include "platform/export.h"
#include "platform/http/http_message.h"
#include "platform/json/json_spirit.h"

class ACE_SSL_Context;

/// One open connection to an HTTP service, held by counted references.
class ZQ_EXPORT HTTP_Session {
 public:
  ~HTTP_Session();
  HTTP_Session(const HTTP_Session&) = delete;
  HTTP_Session& operator=(const HTTP_Session&) = delete;

  /// What ACE_Intrusive_Auto_Ptr counts with. Null is fine; thread-safe.
  static void intrusive_add_ref(HTTP_Session* session) noexcept;
  static void intrusive_remove_ref(HTTP_Session* session) noexcept;

 private:
  friend class HTTP_Session_Factory;
  friend class JSON_HTTP_Session;

  class Impl;
  explicit HTTP_Session(std::unique_ptr<Impl> impl) noexcept;

  std::unique_ptr<Impl> impl_;
  std::atomic<long> references_{0};
};

using HTTP_Session_Ptr = ACE_Intrusive_Auto_Ptr<HTTP_Session>;

class ZQ_EXPORT HTTP_Session_Factory {
 public:
  /// Connects, with TLS where `ssl` says so, and returns the session; an empty pointer when that
  /// fails, and then last_http_exchange() says why. Blocks for at most `connect_timeout` seconds
  /// over all of the `connect_attempts`, and never longer than HTTP_Options::exchange_timeout.
  ///
  /// `io_timeout` (seconds) limits each exchange over the session. With `keep_alive` the service is
  /// asked to keep the connection for a further exchange, else it is good for one.
  /// `local_address` and `context` are to be null (any address; HTTP_Options say whom to trust),
  /// `buffer_size` and `flags` 0; otherwise there is no session.
  HTTP_Session_Ptr create(const char* host, unsigned short port, bool ssl,
                          const char* local_address, int connect_attempts, ACE_SSL_Context* context,
                          bool keep_alive, int connect_timeout, int io_timeout, int buffer_size,
                          unsigned int flags);
};

/// JSON exchanges over a session. One thread at a time.
class ZQ_EXPORT JSON_HTTP_Session {
 public:
  /// A session that was idle for `max_idle` seconds counts as lost. An exchange ends after
  /// `max_exchange` seconds, if neither the session's own limit nor that of HTTP_Options is
  /// sooner. `session` may be empty.
  JSON_HTTP_Session(HTTP_Session_Ptr session, int max_idle, int max_exchange);

  void reset(HTTP_Session_Ptr session);
  /// Whether there is a session that can carry an exchange.
  operator bool() const;

  /// Makes one GET exchange. True when an answer came, of whatever status, whose body is empty or
  /// JSON. `response` receives its status (0 when none came) and headers, `answer` its body, when
  /// there is one. Nothing is repeated.
  bool get(HTTP_Request& request, HTTP_Response& response, json_spirit::Value& answer);

 private:
  HTTP_Session_Ptr session_;
  int max_idle_;
  int max_exchange_;
};
