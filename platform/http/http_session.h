#pragma once

#include <ace/Intrusive_Auto_Ptr.h>

#include <atomic>
#include <memory>

#include "platform/export.h"
#include "platform/http/http_message.h"
#include "platform/json/json_spirit.h"

class ACE_SSL_Context;

/// A reference-counted open connection to an HTTP service.
class ZQ_EXPORT HTTP_Session {
 public:
  ~HTTP_Session();
  HTTP_Session(const HTTP_Session&) = delete;
  HTTP_Session& operator=(const HTTP_Session&) = delete;

  /// For ACE_Intrusive_Auto_Ptr. `session` may be null. Thread-safe.
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
  /// Connects, with TLS if `ssl`, and returns the session, or an empty pointer on failure;
  /// last_http_exchange() says why. All `connect_attempts` together take at most `connect_timeout`
  /// seconds, and never more than HTTP_Options::exchange_timeout.
  ///
  /// `io_timeout` (seconds) limits each exchange over the session. With `keep_alive` the service is
  /// asked to keep the connection; without, the session is good for one exchange.
  ///
  /// `local_address` and `context` must be null, `buffer_size` and `flags` 0: other values are not
  /// supported and fail. HTTP_Options set which certificates are trusted.
  HTTP_Session_Ptr create(const char* host, unsigned short port, bool ssl,
                          const char* local_address, int connect_attempts, ACE_SSL_Context* context,
                          bool keep_alive, int connect_timeout, int io_timeout, int buffer_size,
                          unsigned int flags);
};

/// Makes JSON exchanges over a session. Not thread-safe.
class ZQ_EXPORT JSON_HTTP_Session {
 public:
  /// A session that has been idle for `max_idle` seconds counts as lost. An exchange is limited to
  /// `max_exchange` seconds, the session's `io_timeout` or HTTP_Options::exchange_timeout,
  /// whichever is shortest. `session` may be empty.
  JSON_HTTP_Session(HTTP_Session_Ptr session, int max_idle, int max_exchange);

  void reset(HTTP_Session_Ptr session);
  /// Whether the session can make another exchange.
  operator bool() const;

  /// Makes one GET exchange, without retries. Returns true if a response of any status was received
  /// whose body is empty or JSON. `response` receives its status (0 if there was none) and headers,
  /// `answer` the body unless it is empty.
  bool get(HTTP_Request& request, HTTP_Response& response, json_spirit::Value& answer);

 private:
  HTTP_Session_Ptr session_;
  int max_idle_;
  int max_exchange_;
};
