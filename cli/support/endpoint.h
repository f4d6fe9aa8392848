#pragma once

#include <string>

namespace zqpool::cli {

/// Where a service listens.
struct Endpoint {
  bool ssl = false;
  std::string host;  ///< a name or an address, IPv6 without brackets
  unsigned short port = 0;

  std::string text() const;  ///< "https://[::1]:8443"
};

/// Reads "http://HOST[:PORT]" or "https://HOST[:PORT]"; the default port is 80 or 443. Throws
/// Usage_Error for anything else.
Endpoint parse_endpoint(const std::string& text);

}  // namespace zqpool::cli
