#pragma once

#include <chrono>
#include <cstddef>

namespace zqpool::service {

/// What one client may take. Every phase of a connection has an end.
struct Limits {
  std::size_t connections = 256;                      ///< further ones wait to be accepted
  std::size_t header_bytes = std::size_t{32} * 1024;  ///< request line and headers
  std::size_t body_bytes = std::size_t{16} * 1024 * 1024;
  std::chrono::milliseconds idle{60000};     ///< until a request's first byte
  std::chrono::milliseconds request{15000};  ///< TLS handshake; headers; body (see slowest_rate)
  std::chrono::milliseconds answer{30000};   ///< until the answer is taken (see slowest_rate)
  std::chrono::milliseconds stop{10000};     ///< for requests that run when the service is to stop

  /// Bytes a second that a client must keep up: bodies get this much more time.
  static constexpr std::size_t slowest_rate = std::size_t{64} * 1024;
};

}  // namespace zqpool::service
