#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "service/app/dispatcher.h"
#include "service/http/access_log.h"
#include "service/http/limits.h"

namespace zqpool::service {

struct Listen_Address {
  std::string address;      ///< an IPv4 or IPv6 address, without brackets
  unsigned short port = 0;  ///< 0: any free one
};

struct Server_Settings {
  std::vector<Listen_Address> plain;
  std::vector<Listen_Address> tls;
  std::string certificate_file;  ///< PEM chain, for `tls`
  std::string key_file;
  unsigned threads = 4;  ///< that carry out operations
  Limits limits;
};

/// Serves HTTP/1.1, plain and over TLS 1.2 or newer.
class Server {
 public:
  /// Binds and listens. Throws std::runtime_error with a text that says what failed.
  Server(Dispatcher& dispatcher, Access_Log& log, const Server_Settings& settings);
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  /// "http://127.0.0.1:40000", in the order of the settings, plain ones first.
  std::vector<std::string> urls() const;

  /// Serves until SIGTERM or SIGINT: no new connections then, running requests get their answers as
  /// far as limits.stop allows, and it returns. A second signal returns at once. SIGHUP opens the
  /// access log again.
  void run();

 private:
  class Implementation;
  std::unique_ptr<Implementation> implementation_;
};

}  // namespace zqpool::service
