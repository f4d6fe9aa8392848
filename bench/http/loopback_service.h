#pragma once

#include <openssl/ssl.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "bench/http/clients.h"
#include "tests/support/sockets.h"

namespace zqpool::bench {

/// The response to a request that contains `asked`.
struct Prepared_Answer {
  std::string asked;
  std::string answer;  ///< HTTP, from the status line on
};

/// A service on loopback that sends prepared responses and then closes the connection, under TLS
/// (1.3) with close_notify. It does as little work as possible: a few threads block in accept(),
/// read up to the request's blank line, and send.
class Loopback_Service {
 public:
  /// With Transport::https_full there are no session tickets.
  Loopback_Service(Transport transport, const std::string& certificate_file,
                   const std::string& key_file, std::string answer);
  /// HTTP, with the first of these responses that matches.
  explicit Loopback_Service(std::vector<Prepared_Answer> answers);
  ~Loopback_Service();
  Loopback_Service(const Loopback_Service&) = delete;
  Loopback_Service& operator=(const Loopback_Service&) = delete;

  unsigned short port() const { return test::port_of(listener_); }
  std::uint64_t answered() const { return answered_; }
  std::uint64_t resumed() const { return resumed_; }

 private:
  void start();
  void serve();
  const std::string& answer_to(std::string_view request) const;
  bool answer_plain(int fd);
  bool answer_tls(int fd);

  const std::vector<Prepared_Answer> answers_;
  std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context_{nullptr, &SSL_CTX_free};
  test::File_Descriptor listener_;
  std::atomic<std::uint64_t> answered_{0};
  std::atomic<std::uint64_t> resumed_{0};
  std::vector<std::thread> threads_;
};

}  // namespace zqpool::bench
