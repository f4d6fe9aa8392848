#pragma once

#include <openssl/ssl.h>

#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "platform/http/http_options.h"

namespace zqpool::detail {

struct SSL_Deleter {
  void operator()(SSL* ssl) const noexcept { SSL_free(ssl); }
  void operator()(SSL_CTX* context) const noexcept { SSL_CTX_free(context); }
  void operator()(SSL_SESSION* session) const noexcept { SSL_SESSION_free(session); }
};
using SSL_Ptr = std::unique_ptr<SSL, SSL_Deleter>;
using SSL_Session_Ptr = std::unique_ptr<SSL_SESSION, SSL_Deleter>;

/// TLS sessions to resume, by endpoint. Bounded; the oldest goes first. Thread-safe.
class TLS_Session_Cache {
 public:
  void put(const std::string& endpoint, SSL_Session_Ptr session);
  SSL_Session_Ptr get(const std::string& endpoint);

 private:
  struct Entry {
    SSL_Session_Ptr session;
    std::list<std::string>::iterator age;
  };
  std::mutex mutex_;
  std::list<std::string> by_age_;
  std::map<std::string, Entry> entries_;
};

/// Immutable TLS client configuration with its session cache. A resumed session skips the
/// certificate checks, so sessions never outlive the configuration that they were checked under.
/// Thread-safe.
class TLS_Context {
 public:
  explicit TLS_Context(const HTTP_Options& options);
  TLS_Context(const TLS_Context&) = delete;
  TLS_Context& operator=(const TLS_Context&) = delete;

  /// Why the configuration could not be loaded; "" if it could.
  const std::string& error() const noexcept { return error_; }
  /// The client side of a connection to `host`, which resumes an earlier session of `endpoint` if
  /// there is one. `endpoint` must outlive the SSL. Null when OpenSSL fails.
  SSL_Ptr make_client(const std::string& host, bool literal, const std::string& endpoint);
  /// After the handshake: whether the peer's certificate is for `host`, or need not be. OpenSSL
  /// checks this, too, but skips it when an allocation fails.
  static bool is_certified(SSL* ssl, const std::string& host, bool literal);

 private:
  void load(const HTTP_Options& options);
  static int keep_session(SSL* ssl, SSL_SESSION* session);

  std::string error_;
  std::unique_ptr<SSL_CTX, SSL_Deleter> context_;
  TLS_Session_Cache sessions_;
};

/// The text of this thread's queued OpenSSL errors; empties the queue.
std::string openssl_error_text();

}  // namespace zqpool::detail
