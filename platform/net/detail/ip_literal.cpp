#include "platform/net/detail/ip_literal.h"

#include <arpa/inet.h>

#include <string>

namespace zqpool::detail {

std::optional<IPv6_Literal> parse_ipv6_literal(std::string_view text) {
  const std::size_t percent = text.find('%');
  IPv6_Literal literal{text.substr(0, percent), {}};
  if (percent != std::string_view::npos) {
    literal.zone = text.substr(percent + 1);
    if (literal.zone.empty() ||
        literal.zone.find_first_not_of(unreserved_characters) != std::string_view::npos) {
      return std::nullopt;
    }
  }
  in6_addr address;
  // inet_pton() stops at a NUL byte.
  if (literal.address.find('\0') != std::string_view::npos ||
      inet_pton(AF_INET6, std::string(literal.address).c_str(), &address) != 1) {
    return std::nullopt;
  }
  return literal;
}

}  // namespace zqpool::detail
