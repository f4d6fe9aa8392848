#pragma once

#include <sys/socket.h>

#include <string>
#include <vector>

#include "platform/http/detail/deadline.h"
#include "platform/http/detail/failure.h"

namespace zqpool::detail {

struct Address {
  sockaddr_storage storage;
  socklen_t length;

  const sockaddr* get() const noexcept { return reinterpret_cast<const sockaddr*>(&storage); }
  std::string text() const;  ///< numeric, without port
};

using Addresses = std::vector<Address>;

/// Whether `host` is an IPv4 or IPv6 literal, the latter without brackets, with or without a zone.
bool is_address_literal(const std::string& host);

/// Resolves `host` to addresses in the order to try them (RFC 8305). getaddrinfo() has no timeout,
/// so a name is looked up on a separate thread, which is abandoned at the deadline. While 64
/// abandoned look-ups still run, further names fail at once.
bool resolve(const std::string& host, unsigned short port, Deadline deadline, Addresses& addresses,
             Failure& failure);

}  // namespace zqpool::detail
