#pragma once

#include <optional>
#include <string_view>

namespace zqpool::detail {

/// The unreserved characters of RFC 3986, which never need percent-encoding.
inline constexpr std::string_view unreserved_characters =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~";

/// An IPv6 address with its zone, the interface of a link-local address.
struct IPv6_Literal {
  std::string_view address;
  std::string_view zone;  ///< "" if there is none
};

/// Parses "::1" or "fe80::1%eth0", without brackets. The parts point into `text`.
std::optional<IPv6_Literal> parse_ipv6_literal(std::string_view text);

}  // namespace zqpool::detail
