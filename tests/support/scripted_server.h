#pragma once

#include <openssl/types.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/answer.h"
#include "tests/support/sockets.h"
#include "tests/support/test_certificates.h"

namespace zqpool::test {

/// How long to wait for what must happen, also on a slow machine.
constexpr std::chrono::milliseconds max_wait = std::chrono::minutes(1);

/// The address of a service.
struct Endpoint {
  std::string host;
  unsigned short port = 0;
  bool ssl = false;
};

/// One request exactly as it came.
struct Recorded_Request {
  std::string line;  ///< "GET /zq/x?y=1 HTTP/1.1"
  std::string method;
  std::string target;   ///< path and query
  Header_List headers;  ///< in their order, names as they were spelt
  std::string body;
  std::string raw;                 ///< all of it, from the first byte to the last of the body
  std::size_t connection = 0;      ///< number of the connection, from 0
  std::size_t on_connection = 0;   ///< number of the request on it, from 0
  std::size_t first_piece = 0;     ///< how many bytes came with the first read
  bool tls_resumed = false;        ///< the connection's TLS session was resumed
  std::string sni;                 ///< server name the client asked for, "" if none
  std::string client_certificate;  ///< common name of the client's certificate, "" if none

  /// The header's value; "" when it is absent. Names are compared without case.
  std::string header(const std::string& name) const;
  std::size_t header_count(const std::string& name) const;
};

struct Server_Options {
  bool ipv6 = false;                     ///< [::1] instead of 127.0.0.1
  const Identity* identity = nullptr;    ///< TLS with this certificate
  bool want_client_certificate = false;  ///< one signed by the test CA, or no handshake
  int receive_buffer = 0;   ///< bytes; 0: the system's. Small: an unread request stalls soon
  int max_tls_version = 0;  ///< e.g. TLS1_2_VERSION; 0: the newest
};

/// A real HTTP or HTTPS server on loopback, with a thread per connection, that plays a script.
///
/// Queued answers are given once each, in order; after them every request gets that of otherwise().
/// An answer about the connection (close_at_once() and the like) is given to the next connection if
/// it is at the head of the queue then; a function passed to otherwise() is called for requests
/// only. Thread-safe. The destructor closes every connection.
class Scripted_Server {
 public:
  explicit Scripted_Server(const Server_Options& options = {});
  ~Scripted_Server();
  Scripted_Server(const Scripted_Server&) = delete;
  Scripted_Server& operator=(const Scripted_Server&) = delete;

  const std::string& host() const { return host_; }
  unsigned short port() const { return port_; }
  bool ssl() const { return context_ != nullptr; }
  Endpoint endpoint() const { return {host_, port_, ssl()}; }

  Scripted_Server& queue(Answer answer);
  Scripted_Server& otherwise(Answer answer);
  Scripted_Server& otherwise(std::function<Answer(const Recorded_Request&)> answer);

  std::vector<Recorded_Request> requests() const;
  /// Throws std::out_of_range when there are not so many.
  Recorded_Request request(std::size_t number) const;
  std::size_t request_count() const;
  std::size_t connection_count() const;
  /// How many answers of the queue were not given.
  std::size_t unused_answers() const;
  /// How many requests found nothing scripted (they got a 599).
  std::size_t unscripted_requests() const;
  /// Bytes of requests that came, also of incomplete ones; under TLS those within it.
  std::uint64_t bytes_received() const;
  std::size_t failed_handshakes() const;

  /// Waits until so many requests came; false after max_wait.
  bool wait_for_requests(std::size_t count) const;
  /// Waits until so many connections were taken; false after max_wait.
  bool wait_for_connections(std::size_t count) const;
  /// Waits until so many connections were ended by the server (in order or abruptly), so that their
  /// clients can see it; false after max_wait.
  bool wait_for_closes(std::size_t count) const;
  /// Waits until every connection taken has ended, so that all that was sent has been recorded;
  /// false after max_wait.
  bool settle() const;
  /// Closes the listener and every connection. Further connections are refused.
  void stop();

 private:
  class Stream;
  struct Connection {
    std::thread thread;
    std::atomic<bool> done{false};
  };

  void accept_connections();
  void serve(Stream& stream, std::size_t number, const std::optional<Answer>& special);
  bool read_request(Stream& stream, std::string& buffer, Recorded_Request& request);
  /// False when the connection is over.
  bool answer_request(Stream& stream, const Recorded_Request& request);
  Answer next_answer(const Recorded_Request& request);
  std::optional<Answer> take_connection_answer();
  void received(std::size_t bytes);
  void count_close();
  template <typename Done>
  bool wait_until(Done done) const;

  std::string host_;
  unsigned short port_ = 0;
  std::shared_ptr<SSL_CTX> context_;
  File_Descriptor listener_;
  File_Descriptor stop_;

  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  std::deque<Answer> queue_;
  std::optional<Answer> otherwise_;
  std::function<Answer(const Recorded_Request&)> otherwise_made_;
  std::vector<Recorded_Request> requests_;
  std::size_t taken_ = 0;
  std::size_t open_ = 0;
  std::size_t closed_ = 0;
  std::size_t unscripted_ = 0;
  std::size_t failed_handshakes_ = 0;
  std::uint64_t bytes_ = 0;

  std::list<Connection> connections_;
  std::thread acceptor_;
};

}  // namespace zqpool::test
