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
  std::string text() const;  ///< numeric, without the port
};

using Addresses = std::vector<Address>;

/// Whether `host` is an address literal (IPv6 without brackets, a zone allowed).
bool is_address_literal(const std::string& host);

/// The addresses of `host` in the order to try them (RFC 8305). Literals need no look-up. A name is
/// looked up by the system on a thread of its own, which is left behind when the deadline passes
/// first; only so many may be left behind at a time.
bool resolve(const std::string& host, unsigned short port, Deadline deadline, Addresses& addresses,
             Failure& failure);

}  // namespace zqpool::detail
