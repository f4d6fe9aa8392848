#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "platform/http/detail/deadline.h"
#include "platform/http/detail/failure.h"
#include "platform/http/detail/resolver.h"
#include "platform/http/detail/tls.h"

namespace zqpool::detail {

/// A TCP socket, or none. Closed when destroyed.
class Socket {
 public:
  Socket() noexcept = default;
  explicit Socket(int fd) noexcept : fd_(fd) {}
  Socket(Socket&& other) noexcept { *this = std::move(other); }
  Socket& operator=(Socket&& other) noexcept;
  ~Socket() { close(); }

  int fd() const noexcept { return fd_; }
  bool is_open() const noexcept { return fd_ >= 0; }
  void close() noexcept;

  /// Limits send() and receive(): they wait until the deadline, or not at all. Once it has passed
  /// they fail even if they need not wait, so that no peer keeps OpenSSL busy beyond it.
  void limit(Deadline deadline, bool may_wait = true) noexcept {
    deadline_ = deadline;
    may_wait_ = may_wait;
  }
  /// Like the system's send() and recv(). Fail with EAGAIN at the limit; never raise SIGPIPE or
  /// fail with EINTR.
  ssize_t send(const void* data, std::size_t size) noexcept;
  ssize_t receive(void* buffer, std::size_t size) noexcept;

 private:
  bool wait_for(short event) noexcept;

  int fd_ = -1;
  Deadline deadline_{Clock::time_point()};
  bool may_wait_ = true;
};

/// A TCP connection, with or without TLS. Every call ends by a deadline and none raises SIGPIPE.
/// Not thread-safe.
class Stream {
 public:
  Stream() noexcept = default;
  ~Stream();
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  /// Connects to the first of `addresses` that answers. The next one is tried once all before it
  /// have failed, or in parallel after 250 ms.
  bool connect(const Addresses& addresses, Deadline deadline, Failure& failure);
  /// Takes over a connected socket.
  void adopt(Socket socket) noexcept { socket_ = std::move(socket); }
  const Address& peer() const noexcept { return peer_; }

  /// Starts TLS with the service `host`; `endpoint` is the key in the session cache.
  bool start_tls(std::shared_ptr<TLS_Context> context, const std::string& host,
                 std::string endpoint, Deadline deadline, Failure& failure);
  bool tls_resumed() const noexcept { return ssl_ != nullptr && SSL_session_reused(ssl_.get()); }

  /// Sends all of `data`. Sets `touched` once any byte may have left, also when the call then
  /// fails.
  bool send(std::string_view data, Deadline deadline, bool& touched, Failure& failure);

  /// Returns the number of bytes received, 0 at the peer's orderly end, -1 on failure.
  ssize_t receive(char* buffer, std::size_t size, Deadline deadline, Failure& failure);

  /// Whether the connection can carry another request: it is open, and no data has come.
  bool is_idle() noexcept;

  /// Gives the peer until the deadline to close first, which leaves TIME_WAIT on its side, then
  /// closes.
  void close_after_peer(Deadline deadline);

 private:
  bool tls_failure(int result, const char* doing, Failure& failure);

  Socket socket_;
  Address peer_{};
  std::shared_ptr<TLS_Context> context_;  // outlives ssl_, whose callbacks use it
  std::string endpoint_;                  // as does this
  SSL_Ptr ssl_;
};

}  // namespace zqpool::detail
