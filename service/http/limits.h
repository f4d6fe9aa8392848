#pragma once

#include <chrono>
#include <cstddef>

namespace zqpool::service {

/// Limits for each client. Every phase of a connection has a deadline.
struct Limits {
  std::size_t connections = 256;                      ///< more wait to be accepted
  std::size_t header_bytes = std::size_t{32} * 1024;  ///< request line and headers
  std::size_t body_bytes = std::size_t{16} * 1024 * 1024;
  std::chrono::milliseconds idle{60000};     ///< until the first byte of a request
  std::chrono::milliseconds request{15000};  ///< TLS handshake; headers; body (see min_rate)
  std::chrono::milliseconds answer{30000};   ///< sending a response (see min_rate)
  std::chrono::milliseconds stop{10000};     ///< at shutdown, for requests that are running

  /// Bytes per second: the deadline of a body is extended by its size divided by this.
  static constexpr std::size_t min_rate = std::size_t{64} * 1024;
};

}  // namespace zqpool::service
