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
  unsigned short port = 0;  ///< 0: any free port
};

struct Server_Settings {
  std::vector<Listen_Address> plain;
  std::vector<Listen_Address> tls;
  std::string certificate_file;  ///< PEM chain for `tls`
  std::string key_file;
  unsigned threads = 4;  ///< that run handlers
  Limits limits;
};

/// Serves HTTP/1.1, plain and over TLS 1.2 or newer.
class Server {
 public:
  /// Binds and listens. Throws std::runtime_error.
  Server(Dispatcher& dispatcher, Access_Log& log, const Server_Settings& settings);
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  /// Such as "http://127.0.0.1:40000"; HTTP before HTTPS, each in the order of the settings.
  std::vector<std::string> urls() const;

  /// Serves until SIGTERM or SIGINT. Then it accepts no more connections, gives running requests up
  /// to limits.stop to finish, and returns; a second signal makes it return at once. SIGHUP reopens
  /// the access log.
  void run();

 private:
  class Implementation;
  std::unique_ptr<Implementation> implementation_;
};

}  // namespace zqpool::service
