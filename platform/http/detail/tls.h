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

/// Sessions to resume, by the endpoint they were made with. Bounded; the oldest goes first.
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

/// Whom a process trusts and who it is, loaded once and never changed: the certificates, the
/// client's own certificate, and the sessions made under them. A resumed session skips the
/// certificate checks, so sessions live and die with the trust they were checked against.
class TLS_Context {
 public:
  explicit TLS_Context(const HTTP_Options& options);
  TLS_Context(const TLS_Context&) = delete;
  TLS_Context& operator=(const TLS_Context&) = delete;

  /// Why nothing can be done under this trust; "" when it is good.
  const std::string& error() const noexcept { return error_; }
  /// A client side for one connection to `host`, which may resume an earlier session of
  /// `endpoint`. `endpoint` must outlive the SSL. Null when memory is out.
  SSL_Ptr make_client(const std::string& host, bool literal, const std::string& endpoint);

 private:
  void load(const HTTP_Options& options);
  static int keep_session(SSL* ssl, SSL_SESSION* session);

  std::string error_;
  std::unique_ptr<SSL_CTX, SSL_Deleter> context_;
  TLS_Session_Cache sessions_;
};

/// The words of this thread's OpenSSL errors, which are taken off the queue.
std::string openssl_error_text();

}  // namespace zqpool::detail
